// SPDX-License-Identifier: Apache-2.0
#include "tools/service/page_answer.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace zot::test {
namespace {

std::string header_of(const zotconf::http_answer &answer, const std::string &name) {
  const auto found = std::ranges::find(answer.headers, name, &zotconf::http_header::name);
  return found == answer.headers.end() ? "" : found->value;
}

TEST(PageAnswer, AllowsTheTextBetweenTheTagsByItsHash) {
  EXPECT_EQ(zotconf::source_hash("<p><style></style>", "style"),
            "'sha256-47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU='");
  EXPECT_EQ(zotconf::source_hash("<style>x</style><script>abc</script>", "script"),
            "'sha256-ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0='");
}

TEST(PageAnswer, IsNotStoredAndSendsNoReferrer) {
  const zotconf::http_answer answer =
      zotconf::page_answer(404, "text", "text/html", "default-src 'self'");
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(answer.body, "text");
  EXPECT_EQ(answer.type, "text/html");
  EXPECT_EQ(header_of(answer, "Cache-Control"), "no-store");
  EXPECT_EQ(header_of(answer, "Content-Security-Policy"), "default-src 'self'");
  EXPECT_EQ(header_of(answer, "Referrer-Policy"), "no-referrer");
}

TEST(PageAnswer, LetsJsonLoadNothing) {
  const zotconf::http_answer answer = zotconf::json_answer(200, "{}");
  EXPECT_EQ(answer.type, "application/json");
  EXPECT_TRUE(header_of(answer, "Content-Security-Policy").starts_with("default-src 'none';"));
}

}  // namespace
}  // namespace zot::test
