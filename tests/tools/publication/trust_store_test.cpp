// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/trust_store.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/files.hpp"
#include "tests/tools/support/certificates.hpp"

namespace zot::test {
namespace {

class TrustStore : public testing::Test {
 protected:
  // What is wrong with a file, without its name.
  [[nodiscard]] std::string why_not(const std::string &text) const {
    write_bytes(dir_ / "keyring.pem", text);
    try {
      const zotconf::trust_store store(dir_ / "keyring.pem");
    } catch (const std::runtime_error &error) {
      const std::string what = error.what();
      const std::string start = (dir_ / "keyring.pem") + ": ";
      EXPECT_EQ(what.rfind(start, 0), 0U) << what;
      return what.substr(start.size());
    }
    return "";
  }

  temp_dir dir_;
  identity ca_ = issue_ca("ca");
};

TEST_F(TrustStore, ReadsCertificatesAmongOtherText) {
  write_bytes(dir_ / "keyring.pem", "the first\n" + ca_.pem() + "\nthe next\n" +
                                        issue_ca("next").pem() + issue_ca("last").pem());
  const zotconf::trust_store store(dir_ / "keyring.pem");
  EXPECT_EQ(sk_X509_num(store.certificates()), 3);
}

TEST_F(TrustStore, RefusesAFileThatIsMissing) {
  EXPECT_THROW(zotconf::trust_store(dir_ / "absent.pem"), std::runtime_error);
}

TEST_F(TrustStore, RefusesAFileWithoutACertificate) {
  EXPECT_EQ(why_not(""), "contains no PEM certificate");
  EXPECT_EQ(why_not("no certificate\n"), "contains no PEM certificate");
  EXPECT_EQ(why_not(revoke(ca_, {})), "contains no PEM certificate");
  EXPECT_EQ(why_not(ca_.key_pem()), "contains no PEM certificate");
}

TEST_F(TrustStore, RefusesAFileThatIsDamaged) {
  const std::string pem = ca_.pem();
  EXPECT_NE(why_not(pem + pem.substr(0, pem.size() / 2)), "") << "the second one is cut off";
  std::string changed = pem;
  changed[pem.size() / 2] = '!';
  EXPECT_NE(why_not(pem + changed), "") << "the second one is no base64";
}

TEST_F(TrustStore, RefusesAListThatItsIssuerHasNotSigned) {
  const identity same_name = issue_ca("ca");
  EXPECT_EQ(why_not(ca_.pem() + revoke(same_name, {})),
            "the revocation list of CN=ca is not signed by it");
  EXPECT_EQ(why_not(ca_.pem() + same_name.pem() + revoke(same_name, {})), "");
  EXPECT_EQ(why_not(ca_.pem() + revoke(issue_ca("between", &ca_), {})), "")
      << "an issuer that messages bring";
}

TEST_F(TrustStore, AListCountsOnlyForTheAuthorityThatSignedIt) {
  const identity next = issue_ca("ca");
  const identity publisher = issue({.name = "publisher"}, &ca_);
  const identity of_next = {publisher.certificate, next.key};
  write_bytes(dir_ / "keyring.pem", ca_.pem() + next.pem() + revoke(next, {of_next}));
  const zotconf::trust_store store(dir_ / "keyring.pem");
  EXPECT_EQ(store.why_not_trusted(publisher.certificate.get(), nullptr, std::time(nullptr)), "");
}

}  // namespace
}  // namespace zot::test
