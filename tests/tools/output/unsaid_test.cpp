// SPDX-License-Identifier: Apache-2.0
#include "tools/output/unsaid.hpp"

#include <gtest/gtest.h>

#include "tests/support/files.hpp"

namespace zotconf {
namespace {

const std::string answered = "unable to get K from \"http://h/k\", http return code = 200";
const std::string not_asked = "unable to get K from \"http://h/k\", http return code = 0";

TEST(Unsaid, IsThatAnAnswerCouldNotBeStored) {
  const zot::test::temp_dir dir;
  EXPECT_EQ(unsaid_of(answered, dir.path()),
            "the service answered, but its answer could not be stored in " + dir.path() +
                ": it was empty, or another program removed files there meanwhile");
}

TEST(Unsaid, NamesAFolderThatIsGone) {
  const zot::test::temp_dir dir;
  EXPECT_EQ(unsaid_of(answered, dir / "gone"),
            "the service answered, but its answer could not be stored in " + (dir / "gone") +
                ": No such file or directory");
  EXPECT_EQ(unsaid_of(not_asked, dir / "gone"),
            "the service was not asked: its answer could not be stored in " + (dir / "gone") +
                ": No such file or directory");
}

TEST(Unsaid, IsNothingWhereTheTextSaysItAll) {
  const zot::test::temp_dir dir;
  for (const char *const text : {"", "unable to get K from \"http://h/k\", http return code = 404",
                                 "unable to get K from \"http://h/k\", http return code = 500",
                                 "curl error get K from \"http://h/k\": timeout(5)"}) {
    EXPECT_EQ(unsaid_of(text, dir.path()), "") << text;
  }
}

}  // namespace
}  // namespace zotconf
