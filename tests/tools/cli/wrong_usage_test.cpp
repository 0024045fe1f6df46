// SPDX-License-Identifier: Apache-2.0
// What a person sees who has mistyped something.
#include <gtest/gtest.h>

#include "tests/tools/support/process.hpp"

namespace zot::test {
namespace {

using words = std::vector<std::string>;

constexpr int usage = 2;

struct mistake {
  const char *test;
  words typed;
  std::string what;
  std::string command;
};

void PrintTo(const mistake &one, std::ostream *out) {
  *out << one.test;
}

class Mistake : public testing::TestWithParam<mistake> {};

TEST_P(Mistake, IsNamedInOneLineAboveTheCommandThatHelps) {
  const finished done = run_zotconf(GetParam().typed);
  EXPECT_EQ(done.status, usage);
  EXPECT_EQ(done.out, "");
  EXPECT_EQ(done.err, "zotconf: " + GetParam().what + "\ntry: " + GetParam().command + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Typed, Mistake,
    testing::Values(
        mistake{"NoCommand", {}, "no command given", "zotconf --help"},
        mistake{"TransposedCommand",
                {"statsu"},
                "unknown command \"statsu\": did you mean `zotconf status`?",
                "zotconf --help"},
        mistake{"CommandWithALetterLess",
                {"verfy", "--strict"},
                "unknown command \"verfy\": did you mean `zotconf verify`?",
                "zotconf --help"},
        mistake{"CommandThatIsFarFromAll",
                {"frobnicate"},
                "unknown command \"frobnicate\"",
                "zotconf --help"},
        mistake{"ShortWordThatSharesNoLetter", {"x"}, "unknown command \"x\"", "zotconf --help"},
        mistake{"HelpOfAnUnknownCommand",
                {"help", "prun"},
                "unknown command \"prun\": did you mean `zotconf prune`?",
                "zotconf --help"},
        mistake{"OptionOfTheProgram",
                {"--versoin"},
                "unknown option --versoin: did you mean --version?",
                "zotconf --help"},
        mistake{"OptionInsteadOfARequiredOne",
                {"cycle", "--idnex", "001122334455"},
                "cycle: unknown option --idnex: did you mean --index?",
                "zotconf cycle --help"},
        mistake{"OptionWithItsValue",
                {"cycle", "--index=a", "--timeuot=3"},
                "cycle: unknown option --timeuot: did you mean --timeout?",
                "zotconf cycle --help"},
        mistake{"OptionThatIsFarFromAll",
                {"status", "--frobnicate"},
                "status: unknown option --frobnicate",
                "zotconf status --help"},
        mistake{"OptionAfterAValueThatLooksLikeOne",
                {"watch", "--index", "a", "--apply", "--aply", "--evry", "3s"},
                "watch: unknown option --evry: did you mean --every?",
                "zotconf watch --help"},
        mistake{"MissingOption", {"cycle"}, "cycle: --index is required", "zotconf cycle --help"},
        mistake{"OptionsThatExcludeEachOther",
                {"cycle", "--index", "a", "--commit", "--roll-back"},
                "cycle: --commit excludes --roll-back",
                "zotconf cycle --help"},
        mistake{"ValueOutOfRange",
                {"watch", "--index", "a", "--apply", "true", "--every", "soon"},
                "watch: --every: \"soon\" is not a duration such as 500ms, 30s, 5m, 1h or 30d",
                "zotconf watch --help"}),
    [](const auto &one) { return std::string(one.param.test); });

TEST(HelpCommand, ShowsWhatTheOptionShows) {
  EXPECT_EQ(run_zotconf({"help"}).out, run_zotconf({"--help"}).out);
  const finished done = run_zotconf({"help", "cycle"});
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.err, "");
  EXPECT_EQ(done.out, run_zotconf({"cycle", "--help"}).out);
  EXPECT_NE(done.out.find("--index"), std::string::npos);
}

TEST(HelpCommand, IsNamedByTheHelp) {
  EXPECT_NE(run_zotconf({"--help"}).out.find("zotconf help COMMAND"), std::string::npos);
}

}  // namespace
}  // namespace zot::test
