// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/response_head.hpp"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::is_etag;
using zotconf::parse_content_range;
using zotconf::parse_retry_after;
using zotconf::response_head;

constexpr std::time_t now = 1'795'245'273;  // 2026-11-21T07:14:33Z

response_head head_of(std::initializer_list<std::string> lines) {
  response_head head;
  for (const std::string &line : lines) {
    head.take_line(line + "\r\n", now);
  }
  return head;
}

TEST(ContentRange, StatesItsBeginAndTheTotal) {
  const auto range = parse_content_range("bytes 100-199/500");
  ASSERT_TRUE(range);
  EXPECT_EQ(range->first, 100U);
  EXPECT_EQ(range->total, 500U);
}

TEST(ContentRange, MayLeaveTheTotalOpen) {
  const auto range = parse_content_range("bytes 0-0/*");
  ASSERT_TRUE(range);
  EXPECT_EQ(range->first, 0U);
  EXPECT_FALSE(range->total);
}

TEST(ContentRange, IsRejectedWhenItIsNotOne) {
  for (const char *const text :
       {"", "bytes", "bytes */500", "bytes 5-4/500", "bytes 0-500/500", "bytes 0-9/10 ",
        "bytes 0-9/", "bytes 0-9", "bytes -5/10", "bytes 1-/10", "lines 0-9/10", "bytes +1-2/10",
        "bytes 0-99999999999999999999/*", "bytes 0x1-5/10"}) {
    EXPECT_FALSE(parse_content_range(text)) << text;
  }
}

TEST(Etag, IsStrongOrWeak) {
  EXPECT_TRUE(is_etag("\"\""));
  EXPECT_TRUE(is_etag("\"5f-1a\""));
  EXPECT_TRUE(is_etag("W/\"5f-1a\""));
  EXPECT_TRUE(is_etag('"' + std::string(254, 'x') + '"'));
}

TEST(Etag, IsRejectedWhenLongOrMalformed) {
  for (const std::string &text :
       {std::string(), std::string("\""), std::string("x"), std::string("\"x"), std::string("x\""),
        std::string("w/\"x\""), std::string("W/"), std::string("\"a\"b\""), std::string("\"a b\""),
        std::string("\"a\x1b\""), std::string("\"a\r\nb\""), std::string("\"\xc3\xa4\""),
        std::string("\"a\0b\"", 5), '"' + std::string(255, 'x') + '"'}) {
    EXPECT_FALSE(is_etag(text)) << text;
  }
}

TEST(RetryAfter, IsANumberOfSeconds) {
  EXPECT_EQ(parse_retry_after("0", now), 0s);
  EXPECT_EQ(parse_retry_after("120", now), 120s);
}

TEST(RetryAfter, IsADate) {
  EXPECT_EQ(parse_retry_after("Sat, 21 Nov 2026 07:15:33 GMT", now), 60s);
}

TEST(RetryAfter, InThePastIsNow) {
  EXPECT_EQ(parse_retry_after("Sat, 21 Nov 2026 07:00:00 GMT", now), 0s);
  EXPECT_EQ(parse_retry_after("Thu, 01 Jan 1970 00:00:00 GMT", now), 0s);
}

TEST(RetryAfter, IsAtMostADay) {
  for (const char *const text :
       {"86401", "4294967296", "99999999999999999999999999", "Sun, 21 Nov 2027 07:15:33 GMT",
        "Fri, 31 Dec 9999 23:59:59 GMT"}) {
    EXPECT_EQ(parse_retry_after(text, now), 24h) << text;
  }
}

TEST(RetryAfter, IsIgnoredWhenUnreadable) {
  for (const char *const text :
       {"", "-1", "+1", "1.5", "1 s", "soon", "Sat, 21 Nov 2026", "Sat, 31 Feb 2026 07:15:33 GMT",
        "Sat, 21 Nov 2026 07:15:33 GMT x", "Sat, 21 Nov 2026 07:15:33 CET"}) {
    EXPECT_FALSE(parse_retry_after(text, now)) << text;
  }
}

TEST(ResponseHead, ReadsItsHeadersWhateverTheirCase) {
  const response_head head =
      head_of({"HTTP/1.1 503 Service Unavailable", "ETAG: \"a\"", "retry-after:  7 ", "Location:/x",
               "Content-Range: bytes 1-2/3", "Etagged: \"b\"", "no colon", ""});
  EXPECT_EQ(head.status, 503);
  EXPECT_TRUE(head.is_complete);
  EXPECT_EQ(head.etag, "\"a\"");
  EXPECT_EQ(head.retry_after, 7s);
  EXPECT_EQ(head.location, "/x");
  ASSERT_TRUE(head.range);
  EXPECT_EQ(head.range->first, 1U);
}

TEST(ResponseHead, OfAnInterimResponseIsForgotten) {
  const response_head head =
      head_of({"HTTP/1.1 103 Early Hints", "ETag: \"a\"", "", "HTTP/2 200", "Retry-After: 1", ""});
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.etag, "");
  EXPECT_EQ(head.retry_after, 1s);
}

TEST(ResponseHead, IsNotCompleteBeforeTheEmptyLine) {
  EXPECT_FALSE(head_of({"HTTP/1.1 200 OK", "ETag: \"a\""}).is_complete);
  EXPECT_FALSE(head_of({"HTTP/1.1 100 Continue", ""}).is_complete);
}

TEST(ResponseHead, IgnoresTrailers) {
  const response_head head =
      head_of({"HTTP/1.1 200 OK", "ETag: \"a\"", "", "ETag: \"b\"", "HTTP/1.1 404 Not Found", ""});
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.etag, "\"a\"");
}

TEST(ResponseHead, NamesTheTargetOfARedirectionPrintably) {
  EXPECT_EQ(head_of({"HTTP/1.1 302 Found", "Location: http://u:p@h/\x1b[1m", ""}).status_text(),
            "status 302, a redirection to http://h/?[1m, which is not followed");
  EXPECT_EQ(head_of({"HTTP/1.1 302 Found", ""}).status_text(), "status 302");
  EXPECT_EQ(head_of({"HTTP/1.1 304 Not Modified", "Location: x", ""}).status_text(), "status 304");
  EXPECT_EQ(head_of({"HTTP/1.1 404 Not Found", "Location: x", ""}).status_text(), "status 404");
}

TEST(ResponseHead, KeepsOnlyTheBeginOfALongTarget) {
  const response_head head = head_of({"HTTP/1.1 301 x", "Location: " + std::string(5000, 'x'), ""});
  EXPECT_EQ(head.location, std::string(256, 'x'));
}

}  // namespace
}  // namespace zot::test
