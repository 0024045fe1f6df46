// SPDX-License-Identifier: Apache-2.0
#include "tools/output/hint.hpp"

#include <gtest/gtest.h>

#include "tests/support/files.hpp"

namespace zotconf {
namespace {

const std::string answered = "unable to get K from \"http://h/k\", http return code = 200";
const std::string not_asked = "unable to get K from \"http://h/k\", http return code = 0";

TEST(Hint, IsThatAnAnswerCouldNotBeStored) {
  const zot::test::temp_dir dir;
  EXPECT_EQ(hint_of(answered, dir.path()),
            "the service responded, but the response could not be stored in " + dir.path() +
                ": the response was empty, or another program removed files there");
}

TEST(Hint, NamesAFolderThatIsGone) {
  const zot::test::temp_dir dir;
  EXPECT_EQ(hint_of(answered, dir / "gone"),
            "the service responded, but the response could not be stored in " + (dir / "gone") +
                ": No such file or directory");
  EXPECT_EQ(hint_of(not_asked, dir / "gone"),
            "no request was sent: the response could not be stored in " + (dir / "gone") +
                ": No such file or directory");
}

TEST(Hint, IsNothingWhereTheTextSaysItAll) {
  const zot::test::temp_dir dir;
  for (const char *const text : {"", "unable to get K from \"http://h/k\", http return code = 404",
                                 "unable to get K from \"http://h/k\", http return code = 500",
                                 "curl error get K from \"http://h/k\": timeout(5)"}) {
    EXPECT_EQ(hint_of(text, dir.path()), "") << text;
  }
}

}  // namespace
}  // namespace zotconf
