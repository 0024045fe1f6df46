// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/tls_files.hpp"

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>

#include "tests/support/files.hpp"
#include "tests/tools/relay/tls_authority.hpp"

namespace zot::test {
namespace {

using zotconf::check_client_certificate;
using zotconf::check_trusted_certificates;

class TlsFiles : public testing::Test {
 protected:
  TlsFiles() {
    authority_.issue({.name = "a"});
    authority_.issue({.name = "b"});
    write_bytes(no_pem_, "no PEM");
  }
  // Empty when nothing is wrong.
  static std::string error_of(const std::function<void()> &check) {
    try {
      check();
    } catch (const std::exception &error) {
      return error.what();
    }
    return "";
  }
  static std::string error_of_ca(const std::string &ca) {
    return error_of([&] { check_trusted_certificates(ca); });
  }
  static std::string error_of_client(const std::string &certificate, const std::string &key) {
    return error_of([&] { check_client_certificate(certificate, key); });
  }

  tls_authority authority_;
  temp_dir dir_;
  const std::string no_pem_ = dir_ / "no.pem";
  const std::string missing_ = dir_ / "missing.pem";
  const std::string a_ = authority_.certificate_of("a");
  const std::string key_of_a_ = authority_.key_of("a");
};

TEST_F(TlsFiles, OfAnAuthorityAndAClientAreAccepted) {
  EXPECT_EQ(error_of_ca(authority_.path()), "");
  EXPECT_EQ(error_of_client(a_, key_of_a_), "");
}

TEST_F(TlsFiles, MayBeOneFileWithCertificateAndKey) {
  write_bytes(dir_ / "both.pem", read_bytes(a_) + read_bytes(key_of_a_));
  EXPECT_EQ(error_of_client(dir_ / "both.pem", dir_ / "both.pem"), "");
}

TEST_F(TlsFiles, ThatAreMissingAreReported) {
  const std::string expected = "cannot open " + missing_ + ": No such file or directory";
  EXPECT_EQ(error_of_ca(missing_), expected);
  EXPECT_EQ(error_of_client(missing_, key_of_a_), expected);
  EXPECT_EQ(error_of_client(a_, missing_), expected);
}

TEST_F(TlsFiles, WithoutACertificateOrKeyAreReported) {
  EXPECT_EQ(error_of_ca(no_pem_), no_pem_ + ": contains no PEM certificate");
  EXPECT_EQ(error_of_client(no_pem_, key_of_a_), no_pem_ + ": contains no PEM certificate");
  EXPECT_EQ(error_of_client(a_, no_pem_), no_pem_ + ": contains no PEM key that needs no password");
}

TEST_F(TlsFiles, ThatDoNotMatchAreReported) {
  EXPECT_EQ(error_of_client(a_, authority_.key_of("b")),
            authority_.key_of("b") + ": the key does not match the certificate " + a_);
}

}  // namespace
}  // namespace zot::test
