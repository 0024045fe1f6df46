// SPDX-License-Identifier: Apache-2.0
#include "tools/service/http_types.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

TEST(HttpTarget, IsDecodedWithoutItsQuery) {
  struct row {
    std::string target, path, query;
  };
  for (const row &each : {
           row{"/", "/", ""},
           row{"/a%20b", "/a b", ""},
           row{"/a+b", "/a+b", ""},
           row{"/%41%2f%c3%A4", "/A/\xc3\xa4", ""},
           row{"/a%00b", std::string("/a\0b", 4), ""},
           row{"/a?b=%20?c", "/a", "b=%20?c"},
           row{"/a?", "/a", ""},
           row{"/%3f?x", "/?", "x"},
           row{"/%", "/%", ""},
           row{"/%4", "/%4", ""},
           row{"/%4?1", "/%4", "1"},
           row{"/%zz%-1%+1% 1", "/%zz%-1%+1% 1", ""},
           row{"", "", ""},
       }) {
    http_request request;
    set_target(request, each.target);
    EXPECT_EQ(request.path, each.path) << each.target;
    EXPECT_EQ(request.query, each.query) << each.target;
  }
}

TEST(HttpAnswer, RefusesWithTheReasonAndTheFile) {
  EXPECT_EQ(refused(404, "not found").body, "{\"error\":\"not found\"}\n");
  const http_answer answer = refused(400, "no name", "x");
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.type, "application/json");
  EXPECT_EQ(answer.body, "{\"error\":\"no name\",\"file\":\"x\"}\n");
  EXPECT_EQ(answer.result, "no name: x");
}

}  // namespace
}  // namespace zotconf
