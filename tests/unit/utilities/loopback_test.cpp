// SPDX-License-Identifier: Apache-2.0
#include "utilities/loopback.hpp"

#include <gtest/gtest.h>

namespace {

class LoopbackUrl : public testing::TestWithParam<const char *> {};

TEST_P(LoopbackUrl, NamesThisMachine) {
  EXPECT_TRUE(zot::may_name_loopback(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Forms, LoopbackUrl,
                         testing::Values("http://127.0.0.1:8087/tgz", "http://127.0.0.1/",
                                         "http://127.9.8.7:1/x", "https://127.0.0.1:443/",
                                         "http://localhost:8087/", "http://LOCALHOST/",
                                         "http://[::1]:8087/", "127.0.0.1:8087/tgz",
                                         "http://user@127.0.0.1:80/"));

// A URL that cannot be parsed must not go to a proxy by mistake.
INSTANTIATE_TEST_SUITE_P(Unreadable, LoopbackUrl, testing::Values("", "http://", "http://a b/"));

class OtherUrl : public testing::TestWithParam<const char *> {};

TEST_P(OtherUrl, NamesAnotherMachine) {
  EXPECT_FALSE(zot::may_name_loopback(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Forms, OtherUrl,
                         testing::Values("http://192.0.2.1:8087/tgz", "http://127.example/",
                                         "http://127.0.0.1.example:8087/x",
                                         "http://127.0.0.1:80@other.example/",
                                         "http://localhost.example/", "http://[2001:db8::1]/"));

}  // namespace
