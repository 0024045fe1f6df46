// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_query.hpp"

#include <gtest/gtest.h>

#include <string>

namespace zotconf {
namespace {

TEST(StatusQuery, HasADefaultForEachParameter) {
  for (const std::string query : {"", "&", "page=1&size=50&filter=&state=all&fetch=all"}) {
    const auto parsed = parse_status_query(query);
    ASSERT_TRUE(std::holds_alternative<status_query>(parsed)) << query;
    const auto &wanted = std::get<status_query>(parsed);
    EXPECT_EQ(wanted.page, 1);
    EXPECT_EQ(wanted.size, 50);
    EXPECT_EQ(wanted.filter, "");
    EXPECT_EQ(wanted.state, state_filter::all);
    EXPECT_FALSE(wanted.fetch.has_value());
    EXPECT_EQ(wanted.requests, 50);
  }
}

TEST(StatusQuery, TakesEachParameter) {
  const auto parsed = parse_status_query(
      "page=7&size=200&filter=AP%2000+1%c3%A4&state=problem&fetch=older&requests=0");
  ASSERT_TRUE(std::holds_alternative<status_query>(parsed));
  const auto &wanted = std::get<status_query>(parsed);
  EXPECT_EQ(wanted.page, 7);
  EXPECT_EQ(wanted.size, 200);
  EXPECT_EQ(wanted.filter, "ap 00 1ä");
  EXPECT_EQ(wanted.state, state_filter::problem);
  EXPECT_EQ(wanted.fetch, fetch_state::older);
  EXPECT_EQ(wanted.requests, 0);
}

TEST(StatusQuery, RefusesWhatIsNoneAndNamesIt) {
  struct refused {
    std::string query;
    std::string parameter;
  };
  const std::string long_text(101, 'x');
  const std::string longer_text(601, 'x');
  for (const auto &[query, parameter] : {refused{"page=0", "page"},
                                         refused{"page=1000001", "page"},
                                         refused{"page=", "page"},
                                         refused{"page", "page"},
                                         refused{"page=-1", "page"},
                                         refused{"page=1x", "page"},
                                         refused{"page=99999999999999999999999", "page"},
                                         refused{"size=0", "size"},
                                         refused{"size=201", "size"},
                                         refused{"requests=51", "requests"},
                                         refused{"state=bad", "state"},
                                         refused{"state=", "state"},
                                         refused{"fetch=1", "fetch"},
                                         refused{"filter=" + long_text, "filter"},
                                         refused{"filter=" + longer_text, "filter"},
                                         refused{"filter=%zz", "filter"},
                                         refused{"filter=%4", "filter"},
                                         refused{"filter=%00", "filter"},
                                         refused{"filter=%ff", "filter"},
                                         refused{"filter=a%0ab", "filter"},
                                         refused{"page=1&page=2", "page"},
                                         refused{"Page=1", "Page"},
                                         refused{"=1", ""},
                                         refused{"%70age=1", "%70age"}}) {
    const auto parsed = parse_status_query(query);
    const auto *const error = std::get_if<query_error>(&parsed);
    ASSERT_NE(error, nullptr) << query;
    EXPECT_EQ(error->parameter, parameter) << query;
    EXPECT_NE(error->text, "") << query;
  }
}

TEST(StatusQuery, NamesAnElement) {
  const auto parsed = parse_element_query("subsys=AP&index=00%3A11");
  ASSERT_TRUE(std::holds_alternative<element>(parsed));
  EXPECT_EQ(std::get<element>(parsed).subsys, "AP");
  EXPECT_EQ(std::get<element>(parsed).index, "00:11");
  for (const std::string query : {"", "subsys=AP", "index=1", "subsys=AP&index=1&x=2"}) {
    EXPECT_TRUE(std::holds_alternative<query_error>(parse_element_query(query))) << query;
  }
}

}  // namespace
}  // namespace zotconf
