// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/trusted_time.hpp"

#include <gtest/gtest.h>

#include "tests/support/files.hpp"
#include "tests/tools/support/certificates.hpp"
#include "tools/publication/keyring.hpp"

namespace zot::test {
namespace {

// What an element knows whose clock was never set: the day of the build.
const std::time_t build_day = zotconf::trusted_time(0, 0);

TEST(TrustedTime, IsNeverBeforeTheBuild) {
  EXPECT_GT(build_day, 0);
  EXPECT_EQ(build_day % 86400, 0) << "midnight in UTC";
  EXPECT_LE(build_day, std::time(nullptr));
  EXPECT_EQ(zotconf::trusted_time(build_day - 1, build_day - 2), build_day);
}

TEST(TrustedTime, IsTheClockOnceItIsSet) {
  EXPECT_EQ(zotconf::trusted_time(build_day + 5, 0), build_day + 5);
  EXPECT_EQ(zotconf::trusted_time(build_day + 5, build_day + 4), build_day + 5);
}

TEST(TrustedTime, IsNeverBeforeASignature) {
  EXPECT_EQ(zotconf::trusted_time(0, build_day + 7), build_day + 7);
  EXPECT_EQ(zotconf::trusted_time(build_day + 5, build_day + 7), build_day + 7);
}

TEST(TrustedTime, LetsAnElementWhoseClockIsNotSetVerify) {
  const temp_dir dir;
  const identity publisher =
      issue({.name = "publisher", .from = build_day - 86400, .until = days_from_now(30)});
  write_bytes(dir / "keyring.pem", publisher.pem());
  const zotconf::keyring trusted(dir / "keyring.pem");
  const std::string signature = sign_as({.signers = {publisher}}, "K");
  EXPECT_NE(trusted.check("K", signature, 0).wrong, "");
  EXPECT_EQ(trusted.check("K", signature, zotconf::trusted_time(0, 0)).wrong, "");
}

TEST(TrustedTime, LetsNoElementWhoseClockIsNotSetAcceptAnExpiredCertificate) {
  const temp_dir dir;
  const identity publisher =
      issue({.name = "publisher", .from = build_day - 20 * 86400, .until = build_day - 86400});
  write_bytes(dir / "keyring.pem", publisher.pem());
  const std::string signature =
      sign_as({.signers = {publisher}, .at = build_day - 10 * 86400}, "K");
  EXPECT_NE(zotconf::keyring(dir / "keyring.pem")
                .check("K", signature, zotconf::trusted_time(0, 0))
                .wrong.find("has expired"),
            std::string::npos);
}

}  // namespace
}  // namespace zot::test
