// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/report_file.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/fleet/reporting.hpp"
#include "tools/output/plain_text.hpp"

namespace zot::test {
namespace {

using zotconf::parse_report;
using zotconf::report_reading;

TEST(ParseReport, ReadsEveryMemberThatCounts) {
  const report_reading read = parse_report(report_text({.in_force = "in force",
                                                        .refused = "refused",
                                                        .reason = "apply: exit status 1",
                                                        .problem = "get: timeout",
                                                        .relay_problem = "cannot connect",
                                                        .offered = "offered",
                                                        .relay_refused = "not accepted",
                                                        .undo = true,
                                                        .subsys = "CP",
                                                        .index = "0B"}));
  ASSERT_TRUE(read.report) << read.wrong;
  EXPECT_EQ(read.wrong, "");
  EXPECT_EQ(read.report->in_force, "in force");
  EXPECT_EQ(read.report->refused, "refused");
  EXPECT_EQ(read.report->refusal, "apply: exit status 1");
  EXPECT_EQ(read.report->problem, "get: timeout");
  EXPECT_EQ(read.report->relay_problem, "cannot connect");
  EXPECT_EQ(read.report->offered, "offered");
  EXPECT_EQ(read.report->relay_refused, "not accepted");
  EXPECT_TRUE(read.report->has_undo);
  EXPECT_EQ(read.report->subsys, "CP");
  EXPECT_EQ(read.report->index, "0B");
  EXPECT_EQ(read.report->time, "2026-11-23T11:00:00Z");
}

TEST(ParseReport, NeedsNothingButTheFormat) {
  const report_reading read = parse_report(R"({"format": 1, "unknown": [{}]})");
  ASSERT_TRUE(read.report) << read.wrong;
  EXPECT_EQ(read.report->in_force, "");
  EXPECT_FALSE(read.report->problem);
  EXPECT_FALSE(read.report->relay_problem);
  EXPECT_FALSE(read.report->has_undo);
}

TEST(ParseReport, TakesMembersOfAnotherTypeForMissing) {
  const report_reading read = parse_report(
      R"({"format": 1, "time": 5, "subsys": [], "index": {}, "relay": "good", "offered": 1,
          "in_force": ["x"], "refused": {"digest": 7, "reason": null}, "undo": true,
          "problem": {"text": {}}})");
  ASSERT_TRUE(read.report) << read.wrong;
  EXPECT_EQ(read.report->time + read.report->subsys + read.report->index, "");
  EXPECT_EQ(read.report->in_force + read.report->refused + read.report->refusal, "");
  EXPECT_FALSE(read.report->problem);
  EXPECT_EQ(read.report->relay_refused, "");
  EXPECT_FALSE(read.report->has_undo);
}

TEST(ParseReport, RefusesAReportThatIsCutOffAnywhere) {
  std::string text = report_text({.in_force = "x", .problem = "y"});
  text.resize(text.find_last_of('}') + 1);
  EXPECT_TRUE(parse_report(text).report);
  for (size_t size = 0; size < text.size(); ++size) {
    const report_reading read = parse_report(text.substr(0, size));
    EXPECT_FALSE(read.report) << size;
    EXPECT_FALSE(read.wrong.empty()) << size;
  }
}

TEST(ParseReport, SaysWhatIsWrong) {
  EXPECT_EQ(parse_report("").wrong, "it is empty");
  EXPECT_EQ(parse_report("[1]").wrong, "it is not a JSON object");
  EXPECT_EQ(parse_report("{\"format\":1} x").wrong, "it is not a JSON object");
  EXPECT_EQ(parse_report(std::string("{\"format\":1}\0{", 14)).wrong, "it is not a JSON object");
  EXPECT_EQ(parse_report("{}").wrong, "its format is not 1");
  EXPECT_EQ(parse_report("{\"format\":2}").wrong, "its format is not 1");
  EXPECT_EQ(parse_report("{\"format\":\"1\"}").wrong, "its format is not 1");
}

TEST(ParseReport, AcceptsExactlySixtyFourKibibytes) {
  std::string text = "{\"format\":1}";
  text.append(zotconf::most_report_bytes - text.size(), ' ');
  EXPECT_TRUE(parse_report(text).report);
  EXPECT_EQ(parse_report(text + " ").wrong, "it is larger than 64 KiB");
}

TEST(ParseReport, SurvivesDeepNesting) {
  for (const std::string open : {"[", "{\"a\":"}) {
    std::string text = "{\"format\":1,\"x\":";
    while (text.size() + open.size() < zotconf::most_report_bytes) {
      text += open;
    }
    EXPECT_FALSE(parse_report(text).report);
  }
}

TEST(ParseReport, MakesTextsPrintableAndShort) {
  const std::string hostile = "\x1b[31m<b>\xff\xc2\x9b" + std::string(20000, 'x');
  const report_reading read = parse_report(
      report_text({.refused = "x", .reason = hostile, .problem = hostile, .index = hostile}));
  ASSERT_TRUE(read.report) << read.wrong;
  for (const std::string &text :
       {read.report->refusal, *read.report->problem, read.report->index}) {
    EXPECT_EQ(text, zotconf::printable(text));
    EXPECT_TRUE(text.starts_with("?[31m<b>")) << text;
    EXPECT_LT(text.size(), 400U);
    EXPECT_TRUE(text.ends_with("...")) << text;
  }
}

TEST(ParseReport, AcceptsInvalidUtf8AsQuestionMarks) {
  const report_reading read = parse_report("{\"format\":1,\"problem\":{\"text\":\"a\xff\xc3(b\"}}");
  ASSERT_TRUE(read.report) << read.wrong;
  EXPECT_EQ(read.report->problem,
            "a?"
            "?(b");
}

TEST(ParseReport, CutsALongTextBetweenCharacters) {
  for (size_t ahead = 0; ahead < 4; ++ahead) {
    std::string text(ahead, 'x');
    while (text.size() < 1000) {
      text += "\xe2\x82\xac";
    }
    const report_reading read = parse_report(report_text({.problem = text}));
    ASSERT_TRUE(read.report);
    EXPECT_FALSE(has(*read.report->problem, "?")) << *read.report->problem;
    EXPECT_TRUE(zotconf::is_utf8(*read.report->problem));
  }
}

class ReadReport : public Reporting {
 protected:
  void SetUp() override {
    Reporting::SetUp();
    std::filesystem::create_directories(reports_ + "/AP");
  }
  [[nodiscard]] report_reading read(const std::string &name) const {
    return zotconf::read_report(zotconf::folder(reports_ + "/AP"), name);
  }
};

TEST_F(ReadReport, StatesWhenItWasReceived) {
  put_report("0A", {.in_force = "x"}, 1700000000);
  const report_reading found = read("0A.json");
  ASSERT_TRUE(found.report) << found.wrong;
  EXPECT_EQ(found.report->received, 1700000000);
  EXPECT_EQ(found.report->in_force, "x");
}

TEST_F(ReadReport, FindsNoReport) {
  const report_reading found = read("0A.json");
  EXPECT_FALSE(found.report);
  EXPECT_EQ(found.wrong, "");
}

TEST_F(ReadReport, FollowsNoSymbolicLink) {
  write_bytes(dir_ / "outside.json", report_text({}));
  std::filesystem::create_symlink(dir_ / "outside.json", report_file("0A"));
  EXPECT_EQ(read("0A.json").wrong, "it is a symbolic link");
}

TEST_F(ReadReport, ReadsNothingButRegularFiles) {
  std::filesystem::create_directories(report_file("0A"));
  EXPECT_EQ(read("0A.json").wrong, "it is not a regular file");
  ASSERT_EQ(::mkfifo(report_file("0B").c_str(), 0644), 0);
  EXPECT_EQ(read("0B.json").wrong, "it is not a regular file");
}

TEST_F(ReadReport, ReadsNoMoreThanAReportMayHave) {
  write_bytes(report_file("0A"), "{\"format\":1}");
  std::filesystem::resize_file(report_file("0A"), uint64_t{1} << 30);
  EXPECT_EQ(read("0A.json").wrong, "it is larger than 64 KiB");
}

}  // namespace
}  // namespace zot::test
