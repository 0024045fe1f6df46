// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/signature.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/tools/support/signing.hpp"

namespace zot::test {
namespace {

class Signature : public testing::Test {
 protected:
  [[nodiscard]] zotconf::signer signer_of(const std::string &name) const {
    return {authority_.certificate_of(name), authority_.key_of(name)};
  }
  // What is wrong with a certificate and a key; empty when nothing is.
  [[nodiscard]] static std::string why_not(const std::string &certificate, const std::string &key) {
    try {
      const zotconf::signer signs(certificate, key);
    } catch (const std::exception &error) {
      return error.what();
    }
    return "";
  }
  // The same of an issued one, without the path.
  [[nodiscard]] std::string why_not(const std::string &name) const {
    const std::string text = why_not(authority_.certificate_of(name), authority_.key_of(name));
    return text.substr(text.rfind(": ") == std::string::npos ? 0 : text.rfind(": ") + 2);
  }

  authority authority_;
};

TEST_F(Signature, OfAnEcKeyIsTakenByOpenssl) {
  authority_.issue("publisher");
  const temp_dir dir;
  write_bytes(dir / "k", "bytes of K");
  write_bytes(dir / "k.p7s", signer_of("publisher").sign("bytes of K"));
  EXPECT_TRUE(authority_.accepts(dir / "k"));
  write_bytes(dir / "k", "bytes of L");
  EXPECT_FALSE(authority_.accepts(dir / "k"));
}

TEST_F(Signature, OfAnRsaKeyIsTakenByOpenssl) {
  authority_.issue("publisher", "digitalSignature", "rsa:2048");
  const temp_dir dir;
  write_bytes(dir / "k", std::string("with\0zero\r\nand lines", 20));
  write_bytes(dir / "k.p7s",
              signer_of("publisher").sign(std::string("with\0zero\r\nand lines", 20)));
  EXPECT_TRUE(authority_.accepts(dir / "k"));
}

TEST_F(Signature, DoesNotContainWhatIsSigned) {
  authority_.issue("publisher");
  const std::string bytes(5000, 'k');
  const std::string signature = signer_of("publisher").sign(bytes);
  EXPECT_LT(signature.size(), 2000U);
  EXPECT_EQ(signature.find("kkkk"), std::string::npos);
}

TEST_F(Signature, IsKnownAgainByItsSigner) {
  authority_.issue("publisher");
  authority_.issue("other");
  const zotconf::signer publisher = signer_of("publisher");
  const std::string signature = publisher.sign("K");
  EXPECT_TRUE(publisher.has_signed("K", signature));
  EXPECT_FALSE(publisher.has_signed("L", signature));
  EXPECT_FALSE(signer_of("other").has_signed("K", signature));
  EXPECT_FALSE(publisher.has_signed("K", signature.substr(0, signature.size() / 2)));
  EXPECT_FALSE(publisher.has_signed("K", ""));
}

TEST_F(Signature, BringsTheCertificatesBetweenItsOwnAndTheTrustedOne) {
  authority_.issue("between", "keyCertSign\nbasicConstraints=critical,CA:TRUE");
  authority_.issue("publisher");
  const temp_dir dir;
  write_bytes(dir / "both.crt", read_bytes(authority_.certificate_of("publisher")) +
                                    read_bytes(authority_.certificate_of("between")));
  const std::string signature =
      zotconf::signer(dir / "both.crt", authority_.key_of("publisher")).sign("K");
  EXPECT_NE(signature.find("between"), std::string::npos);
}

TEST_F(Signature, IsRefusedWithoutTheKeyUsage) {
  authority_.issue("none", "");
  authority_.issue("tls", "keyEncipherment");
  EXPECT_EQ(why_not("none"), "the certificate states no key usage; it needs digitalSignature");
  EXPECT_EQ(why_not("tls"), "the certificate's key usage does not allow digital signatures");
}

TEST_F(Signature, IsRefusedWithAKeyOfAnotherTypeOrTooShort) {
  authority_.issue("edwards", "digitalSignature", "ed25519");
  authority_.issue("short", "digitalSignature", "rsa:1024");
  EXPECT_EQ(why_not("edwards"), "the key is neither EC nor RSA");
  EXPECT_EQ(why_not("short"), "an RSA key needs at least 2048 bits");
}

TEST_F(Signature, IsRefusedWithAnExpiredCertificate) {
  authority_.issue("old", "digitalSignature", "ec -pkeyopt ec_paramgen_curve:P-256", -1);
  EXPECT_EQ(why_not("old"), "the certificate has expired");
}

TEST_F(Signature, IsRefusedWithTheKeyOfAnother) {
  authority_.issue("publisher");
  authority_.issue("other");
  EXPECT_EQ(why_not(authority_.certificate_of("publisher"), authority_.key_of("other")),
            authority_.key_of("other") + ": the key does not match the certificate");
}

TEST_F(Signature, IsRefusedWithoutCertificateOrKey) {
  authority_.issue("publisher");
  const std::string own_key = authority_.key_of("publisher");
  EXPECT_NE(why_not(own_key, own_key).find(own_key + ": contains no PEM certificate"),
            std::string::npos);
  EXPECT_EQ(why_not(authority_.certificate_of("publisher"), "/absent.key"),
            "cannot open the key /absent.key: no such file");
  EXPECT_NE(why_not(authority_.certificate_of("publisher"), authority_.certificate_of("publisher"))
                .find("cannot read a private key"),
            std::string::npos);
}

}  // namespace
}  // namespace zot::test
