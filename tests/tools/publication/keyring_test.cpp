// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/keyring.hpp"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include "tests/support/files.hpp"
#include "tests/tools/support/certificates.hpp"
#include "tests/tools/support/signing.hpp"
#include "tools/publication/signature.hpp"

namespace zot::test {
namespace {

constexpr const char *k = R"({"clusterId":"c","gpbs":[]})";

std::string day_of(std::time_t time) {
  std::tm day{};
  ::gmtime_r(&time, &day);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d", &day)};
}

class Keyring : public testing::Test {
 protected:
  [[nodiscard]] zotconf::keyring::verdict check(const std::string &trusted,
                                                const std::string &signature,
                                                const std::string &bytes = k,
                                                std::time_t now = std::time(nullptr)) const {
    write_bytes(dir_ / "keyring.pem", trusted);
    return zotconf::keyring(dir_ / "keyring.pem").check(bytes, signature, now);
  }
  // Why a signature is not accepted by someone who trusts the authority.
  [[nodiscard]] std::string wrong(const std::string &signature, const std::string &bytes = k,
                                  std::time_t now = std::time(nullptr)) const {
    return check(ca_.pem(), signature, bytes, now).wrong;
  }
  [[nodiscard]] identity leaf(const std::string &name = "publisher") const {
    return issue({.name = name}, &ca_);
  }

  temp_dir dir_;
  identity ca_ = issue_ca("ca");
};

TEST_F(Keyring, AcceptsAnEcKeyAndStatesSignerAndTime) {
  const std::time_t before = std::time(nullptr);
  const auto found = check(ca_.pem(), sign_as({.signers = {leaf()}}, k));
  EXPECT_EQ(found.wrong, "");
  EXPECT_EQ(found.signer, "CN=publisher");
  EXPECT_GE(found.signed_at, before);
  EXPECT_LE(found.signed_at, std::time(nullptr));
}

TEST_F(Keyring, AcceptsAnRsaKey) {
  const identity publisher = issue({.name = "publisher", .key = rsa_key()}, &ca_);
  EXPECT_EQ(wrong(sign_as({.signers = {publisher}}, k)), "");
}

TEST_F(Keyring, AcceptsADigestThatIsStrongerThanSha256) {
  EXPECT_EQ(wrong(sign_as({.signers = {leaf()}, .digest = ::EVP_sha512()}, k)), "");
}

TEST_F(Keyring, AcceptsWhatTheSignerOfThisProgramWrites) {
  authority issuer;
  issuer.issue("publisher");
  const zotconf::signer signs(issuer.certificate_of("publisher"), issuer.key_of("publisher"));
  EXPECT_EQ(check(read_bytes(issuer.certificate()), signs.sign(k)).wrong, "");
}

TEST_F(Keyring, AcceptsAnIntermediateCertificateOfTheMessage) {
  const identity between = issue_ca("between", &ca_);
  const identity publisher = issue({.name = "publisher"}, &between);
  EXPECT_EQ(wrong(sign_as({.signers = {publisher}, .others = {between}}, k)), "");
  EXPECT_EQ(wrong(sign_as({.signers = {publisher}}, k)),
            "signed by an unknown certificate: CN=publisher");
}

TEST_F(Keyring, AcceptsAnIntermediateCertificateOfItsOwn) {
  const identity between = issue_ca("between", &ca_);
  const identity publisher = issue({.name = "publisher"}, &between);
  const std::string signature = sign_as({.signers = {publisher}}, k);
  EXPECT_EQ(check(ca_.pem() + between.pem(), signature).wrong, "");
  EXPECT_EQ(check(between.pem(), signature).wrong, "") << "its issuer is not needed";
}

TEST_F(Keyring, AcceptsAPinnedCertificate) {
  const identity alone = issue({.name = "alone"});
  EXPECT_EQ(check(alone.pem(), sign_as({.signers = {alone}}, k)).wrong, "");
  const identity issued = leaf();
  EXPECT_EQ(check(issued.pem(), sign_as({.signers = {issued}}, k)).wrong, "")
      << "its issuer is not needed";
}

TEST_F(Keyring, FindsACertificateThatTheMessageOmits) {
  const identity alone = issue({.name = "alone"});
  const std::string bare =
      sign_as({.signers = {alone}, .signer_flags = CMS_NOSMIMECAP | CMS_NOCERTS}, k);
  EXPECT_EQ(check(alone.pem(), bare).wrong, "");
  EXPECT_EQ(wrong(bare), "the signer's certificate is missing");
}

TEST_F(Keyring, AcceptsBothAuthoritiesDuringARotation) {
  const identity next = issue_ca("ca");
  const std::string both = ca_.pem() + next.pem();
  EXPECT_EQ(check(both, sign_as({.signers = {leaf()}}, k)).wrong, "");
  const identity successor = issue({.name = "successor"}, &next);
  EXPECT_EQ(check(both, sign_as({.signers = {successor}}, k)).wrong, "");
  EXPECT_EQ(wrong(sign_as({.signers = {successor}}, k)),
            "signed by an unknown certificate: CN=successor");
}

TEST_F(Keyring, AcceptsASignatureWithoutATime) {
  const auto found = check(
      ca_.pem(), sign_as({.signers = {leaf()}, .signer_flags = CMS_NOSMIMECAP | CMS_NOATTR}, k));
  EXPECT_EQ(found.wrong, "");
  EXPECT_EQ(found.signed_at, 0);
}

TEST_F(Keyring, RefusesAnotherK) {
  const std::string signature = sign_as({.signers = {leaf()}}, k);
  EXPECT_EQ(wrong(signature, "{}"), "the signature is not that of this K");
  EXPECT_EQ(wrong(signature, ""), "the signature is not that of this K");
  EXPECT_EQ(wrong(signature, std::string(k) + "\n"), "the signature is not that of this K");
}

TEST_F(Keyring, RefusesWhatIsNotDer) {
  const std::string der = sign_as({.signers = {leaf()}}, k);
  constexpr const char *reason = "the signature is not DER";
  EXPECT_EQ(wrong(""), reason);
  EXPECT_EQ(wrong("-----BEGIN CMS-----\n"), reason);
  EXPECT_EQ(wrong(der + '\0'), reason);
  EXPECT_EQ(wrong(der + der), reason);
  EXPECT_EQ(wrong(der.substr(0, der.size() - 1)), reason);
  ASSERT_EQ(der.substr(0, 2), "\x30\x82");
  EXPECT_EQ(wrong("\x30\x83" + std::string(1, '\0') + der.substr(2)), reason)
      << "a length of more bytes than it needs";
  EXPECT_EQ(wrong("\x30\x80" + der.substr(4) + std::string(2, '\0')), reason)
      << "a length that is not stated";
}

TEST_F(Keyring, RefusesASignatureOfOver64KiB) {
  EXPECT_EQ(wrong(std::string(65536, 'x')), "the signature is not DER");
  EXPECT_EQ(wrong(std::string(65537, 'x')), "the signature is longer than 64 KiB");
}

TEST_F(Keyring, RefusesAMessageOfAnotherType) {
  const zotconf::memory_bio content = zotconf::bio_over(k);
  const zotconf::cms_message data(::CMS_data_create(content.get(), CMS_BINARY));
  EXPECT_EQ(wrong(zotconf::der_of(data.get())), "the signature is not CMS signed data");
}

TEST_F(Keyring, RefusesEmbeddedContent) {
  EXPECT_EQ(wrong(sign_as({.signers = {leaf()}, .flags = CMS_BINARY}, k)),
            "the signature is not detached");
}

TEST_F(Keyring, RefusesAnotherNumberOfSignersThanOne) {
  EXPECT_EQ(wrong(sign_as({.signers = {}}, k)), "the signature has 0 signers, not one");
  EXPECT_EQ(wrong(sign_as({.signers = {leaf(), leaf("other")}}, k)),
            "the signature has 2 signers, not one");
}

TEST_F(Keyring, RefusesAWeakDigest) {
  EXPECT_EQ(wrong(sign_as({.signers = {leaf()}, .digest = ::EVP_sha1()}, k)),
            "the digest of the signature is weaker than SHA-256");
  EXPECT_EQ(wrong(sign_as({.signers = {leaf()}, .digest = ::EVP_sha224()}, k)),
            "the digest of the signature is weaker than SHA-256");
}

TEST_F(Keyring, RefusesADigestThatNobodyKnows) {
  const std::string sha256("\x60\x86\x48\x01\x65\x03\x04\x02\x01", 9);
  std::string der = sign_as({.signers = {leaf()}}, k);
  der[der.find(sha256) + sha256.size() - 1] = '\x7f';
  EXPECT_EQ(wrong(der), "the signature is not that of this K") << "in the list of the message";
  der[der.rfind(sha256) + sha256.size() - 1] = '\x7f';
  EXPECT_EQ(wrong(der), "the digest of the signature is weaker than SHA-256") << "of the signer";
}

TEST_F(Keyring, RefusesAKeyOfAnotherTypeOrTooShort) {
  const identity is_short = issue({.name = "short", .key = rsa_key(1024)}, &ca_);
  EXPECT_EQ(wrong(sign_as({.signers = {is_short}}, k)),
            "the signer's certificate: an RSA key needs at least 2048 bits");
  const identity publisher = issue({.name = "publisher", .serial = 5}, &ca_);
  const identity edwards = issue({.name = "edwards", .key = edwards_key(), .serial = 5}, &ca_);
  EXPECT_EQ(wrong(sign_as({.signers = {publisher},
                           .others = {edwards},
                           .signer_flags = CMS_NOSMIMECAP | CMS_NOCERTS},
                          k)),
            "the signer's certificate: the key is neither EC nor RSA");
}

TEST_F(Keyring, RefusesAnUnknownSigner) {
  const identity other_ca = issue_ca("ca");
  const identity publisher = issue({.name = "publisher"}, &other_ca);
  EXPECT_EQ(wrong(sign_as({.signers = {publisher}}, k)),
            "signed by an unknown certificate: CN=publisher")
      << "of an authority of the same name";
  const identity foreign_ca = issue_ca("foreign");
  const identity foreign = issue({.name = "publisher"}, &foreign_ca);
  EXPECT_EQ(wrong(sign_as({.signers = {foreign}, .others = {foreign_ca}}, k)),
            "signed by an unknown certificate: CN=publisher");
  const identity alone = issue({.name = "alone"});
  EXPECT_EQ(wrong(sign_as({.signers = {alone}}, k)), "signed by an unknown certificate: CN=alone");
}

TEST_F(Keyring, RefusesACertificateThatDoesNotAllowSignatures) {
  constexpr const char *reason = "the signer's certificate does not allow digital signatures";
  const identity none = issue({.name = "none", .usage = ""}, &ca_);
  EXPECT_EQ(wrong(sign_as({.signers = {none}}, k)), reason);
  const identity tls = issue({.name = "tls", .usage = "critical,keyEncipherment"}, &ca_);
  EXPECT_EQ(wrong(sign_as({.signers = {tls}}, k)), reason);
  EXPECT_EQ(wrong(sign_as({.signers = {ca_}}, k)), reason) << "the authority itself";
}

TEST_F(Keyring, RefusesAnIssuerThatIsNoAuthority) {
  const identity between = leaf("between");
  const identity publisher = issue({.name = "publisher"}, &between);
  const std::string signature = sign_as({.signers = {publisher}, .others = {between}}, k);
  EXPECT_NE(wrong(signature), "");
  EXPECT_NE(check(between.pem(), signature).wrong, "") << "a pinned certificate issues none";
}

TEST_F(Keyring, RefusesAWeakChain) {
  const identity publisher = issue({.name = "publisher"}, &ca_, ::EVP_sha1());
  EXPECT_EQ(wrong(sign_as({.signers = {publisher}}, k)),
            "the signer's certificate is not accepted: CA signature digest algorithm too weak");
}

TEST_F(Keyring, RefusesACertificateOutsideItsValidity) {
  const std::time_t from = days_from_now(-10);
  const std::time_t until = days_from_now(300);
  const identity publisher = issue({.name = "publisher", .from = from, .until = until}, &ca_);
  const identity lasting_ca = issue({.name = "ca",
                                     .usage = ca_usage,
                                     .is_ca = true,
                                     .from = days_from_now(-900),
                                     .until = days_from_now(900),
                                     .key = ca_.key});
  const std::string signature = sign_as({.signers = {publisher}}, k);
  const auto at = [&](std::time_t now) { return check(lasting_ca.pem(), signature, k, now).wrong; };
  EXPECT_EQ(at(until - 1), "");
  EXPECT_EQ(at(until + 1), "the signer's certificate has expired on " + day_of(until));
  EXPECT_EQ(at(from + 1), "");
  EXPECT_EQ(at(from - 1), "the signer's certificate is not valid before " + day_of(from));
}

TEST_F(Keyring, NamesTheIssuerThatIsOutsideItsValidity) {
  const std::time_t until = days_from_now(-1);
  const identity old = issue({.name = "old", .usage = ca_usage, .is_ca = true, .until = until});
  const identity publisher = issue({.name = "publisher"}, &old);
  EXPECT_EQ(check(old.pem(), sign_as({.signers = {publisher}}, k)).wrong,
            "the certificate CN=old has expired on " + day_of(until));
}

TEST_F(Keyring, RefusesASigningTimeOutsideTheValidityOfTheSigner) {
  const std::time_t early = days_from_now(-11);
  EXPECT_EQ(wrong(sign_as({.signers = {leaf()}, .at = early}, k)),
            "signed on " + day_of(early) + ", when the signer's certificate was not valid");
  const std::time_t late = days_from_now(301);
  EXPECT_EQ(wrong(sign_as({.signers = {leaf()}, .at = late}, k)),
            "signed on " + day_of(late) + ", when the signer's certificate was not valid");
  const auto inside = check(ca_.pem(), sign_as({.signers = {leaf()}, .at = early + 172800}, k));
  EXPECT_EQ(inside.wrong, "");
  EXPECT_EQ(inside.signed_at, early + 172800);
}

TEST_F(Keyring, RefusesARevokedSigner) {
  const identity publisher = leaf();
  const identity other = leaf("other");
  const std::string trusted = ca_.pem() + revoke(ca_, {publisher});
  EXPECT_EQ(check(trusted, sign_as({.signers = {publisher}}, k)).wrong,
            "the signer's certificate is revoked: CN=publisher");
  EXPECT_EQ(check(trusted, sign_as({.signers = {other}}, k)).wrong, "");
}

TEST_F(Keyring, RefusesASignerOfARevokedIssuer) {
  const identity between = issue_ca("between", &ca_);
  const identity publisher = issue({.name = "publisher"}, &between);
  const std::string signature = sign_as({.signers = {publisher}, .others = {between}}, k);
  EXPECT_EQ(check(ca_.pem() + revoke(ca_, {between}), signature).wrong,
            "an issuer of the signer's certificate is revoked: CN=between");
  EXPECT_EQ(check(ca_.pem() + revoke(between, {publisher}), signature).wrong,
            "the signer's certificate is revoked: CN=publisher")
      << "the list of an issuer that only the message has";
}

TEST_F(Keyring, AListThatHasExpiredCounts) {
  const identity publisher = leaf();
  const std::string trusted = ca_.pem() + revoke(ca_, {publisher}, days_from_now(-1));
  EXPECT_EQ(check(trusted, sign_as({.signers = {publisher}}, k)).wrong,
            "the signer's certificate is revoked: CN=publisher");
  EXPECT_EQ(check(trusted, sign_as({.signers = {leaf("other")}}, k)).wrong, "");
}

TEST_F(Keyring, AllListsOfAnIssuerCount) {
  const identity first = leaf("first");
  const identity second = leaf("second");
  const std::string trusted = revoke(ca_, {first}) + ca_.pem() + revoke(ca_, {second});
  EXPECT_NE(check(trusted, sign_as({.signers = {first}}, k)).wrong, "");
  EXPECT_NE(check(trusted, sign_as({.signers = {second}}, k)).wrong, "");
}

TEST_F(Keyring, AMissingListIsNoError) {
  const identity other = issue_ca("other");
  const std::string trusted = ca_.pem() + other.pem() + revoke(other, {});
  EXPECT_EQ(check(trusted, sign_as({.signers = {leaf()}}, k)).wrong, "");
}

TEST_F(Keyring, APinnedCertificateCanBeRevoked) {
  const identity publisher = leaf();
  EXPECT_EQ(
      check(publisher.pem() + revoke(ca_, {publisher}), sign_as({.signers = {publisher}}, k)).wrong,
      "the signer's certificate is revoked: CN=publisher");
}

TEST_F(Keyring, PrintsASubjectSafely) {
  const identity alone = issue({.name = "a\x1b[2J\nb"});
  const std::string reason = wrong(sign_as({.signers = {alone}}, k));
  EXPECT_EQ(reason.find('\x1b'), std::string::npos) << reason;
  EXPECT_EQ(reason.find('\n'), std::string::npos) << reason;
  EXPECT_EQ(check(alone.pem(), sign_as({.signers = {alone}}, k)).signer.find('\x1b'),
            std::string::npos);
}

TEST_F(Keyring, NoChangedBitMakesAnotherKSigned) {
  write_bytes(dir_ / "keyring.pem", ca_.pem());
  const zotconf::keyring trusted(dir_ / "keyring.pem");
  const std::string der = sign_as({.signers = {leaf()}}, k);
  for (size_t i = 0; i < der.size(); ++i) {
    std::string changed = der;
    changed[i] = static_cast<char>(changed[i] ^ (1 << (i % 8)));
    EXPECT_NE(trusted.check("{}", changed, std::time(nullptr)).wrong, "") << i;
  }
}

TEST_F(Keyring, LeavesNoErrorsForOthersToFind) {
  EXPECT_NE(wrong("x"), "");
  EXPECT_NE(wrong(sign_as({.signers = {leaf()}}, k), "{}"), "");
  EXPECT_EQ(::ERR_peek_error(), 0U);
}

}  // namespace
}  // namespace zot::test
