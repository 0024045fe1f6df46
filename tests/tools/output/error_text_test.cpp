// SPDX-License-Identifier: Apache-2.0
#include "tools/output/error_text.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/support/process.hpp"

namespace zotconf {
namespace {

TEST(ErrorText, EndsWithTheCommandThatHelps) {
  std::ostringstream err;
  tell_error(err, "it failed", "zotconf status");
  EXPECT_EQ(err.str(), "zotconf: it failed\ntry: zotconf status\n");
}

TEST(ErrorText, IsOneLineWhereNoCommandHelps) {
  std::ostringstream err;
  tell_error(err, "it failed");
  tell_warning(err, "it goes on");
  EXPECT_EQ(err.str(), "zotconf: it failed\nzotconf: warning: it goes on\n");
}

TEST(ErrorText, ShowsNoControlCharacter) {
  std::ostringstream err;
  tell_error(err, "a\nb", "zotconf show a\x1b");
  EXPECT_EQ(err.str(), "zotconf: a?b\ntry: zotconf show a?\n");
}

TEST(ErrorText, NamesACommandThatTakesTheStatus) {
  for (int status = -1; status >= -16; --status) {
    // The numbers have a gap.
    if (status == -2) {
      continue;
    }
    std::istringstream command(command_after(status));
    std::string word;
    command >> word;
    std::vector<std::string> args;
    while (command >> word) {
      args.push_back(word);
    }
    const zot::test::environment nowhere = {{"ZOT_DEV_PATH", ""},
                                            {"ZOT_PREFIX_CONF_ROOT", "/nowhere"},
                                            {"ZOT_PREFIX_TMP_ROOT", "/nowhere"}};
    EXPECT_EQ(zot::test::run_zotconf(args, nowhere).status, 0) << command_after(status);
  }
}

}  // namespace
}  // namespace zotconf
