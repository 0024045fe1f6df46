// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/fleet_status.hpp"

#include <sys/file.h>
#include <sys/stat.h>

#include "tests/tools/fleet/reporting.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/terminal.hpp"

namespace zot::test {
namespace {

class FleetStatus : public Reporting {};

TEST_F(FleetStatus, ExitsWithZeroWithoutLimits) {
  put_refusing("0A");
  const finished done = fleet();
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_TRUE(has(done.out, some_id)) << done.out;
  EXPECT_TRUE(has(done.out, "apply: exit status 1")) << done.out;
  EXPECT_EQ(done.err, "");
}

TEST_F(FleetStatus, ExitsWithNineAboveMaxRefused) {
  for (int i = 10; i < 100; ++i) {
    put_good(std::to_string(i));
  }
  for (int i = 0; i < 10; ++i) {
    put_refusing(std::to_string(i));
  }
  EXPECT_EQ(fleet({"--max-refused", "10%"}).status, 0);
  const finished done = fleet({"--max-refused", "9%", "--min-in-force", "95%"});
  EXPECT_EQ(done.status, 9);
  EXPECT_TRUE(done.out.ends_with("\nrefused: publication " + some_id +
                                 ": 10 of 100 elements refused it, more than 9%\n"))
      << done.out;
}

TEST_F(FleetStatus, DoesNotCountARefusalOfAnEarlierPublication) {
  const std::string refused = put_k("0A", other_id);
  put_report("0A", {.relay_problem = "K is not signed", .relay_refused = refused});
  EXPECT_EQ(fleet({"--max-refused", "0%"}).status, 9);
  put_k("0A", some_id, 2);
  EXPECT_EQ(fleet({"--max-refused", "0%"}).status, 0);
}

TEST_F(FleetStatus, ExitsWithTwelveBelowMinInForce) {
  put_good("0A");
  put_k("0B");
  EXPECT_EQ(fleet({"--min-in-force", "50%"}).status, 0);
  const finished done = fleet({"--min-in-force", "51"});
  EXPECT_EQ(done.status, 12);
  EXPECT_TRUE(has(done.out, "\npending: ")) << done.out;
}

TEST_F(FleetStatus, LooksOnlyAtThePublicationOfTheConfigId) {
  put_good("0A");
  put_refusing("0B", other_id);
  EXPECT_EQ(fleet({"--max-refused", "0%"}).status, 9);
  EXPECT_EQ(fleet({"--max-refused", "0%", "--config-id", some_id}).status, 0);
  const finished done = fleet({"--config-id", "3f2504e0-4f89-41d3-9a0c-0305e82c3309"});
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(has(done.err, "no K has the config ID")) << done.err;
}

TEST_F(FleetStatus, FailsWithAnEmptyPublication) {
  std::filesystem::create_directories(publication_);
  const finished done = fleet();
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(has(done.err, "no K found")) << done.err;
  EXPECT_EQ(done.out, "");
}

TEST_F(FleetStatus, RefusesAFolderThatDoesNotExist) {
  put_good("0A");
  std::filesystem::remove_all(reports_);
  const finished done = fleet();
  EXPECT_EQ(done.status, 2);
  EXPECT_TRUE(has(done.err, reports_)) << done.err;
}

TEST_F(FleetStatus, RefusesWordsThatAreNoLimits) {
  put_good("0A");
  EXPECT_EQ(fleet({"--max-refused", "101%"}).status, 2);
  EXPECT_EQ(fleet({"--min-in-force", "most"}).status, 2);
  EXPECT_EQ(fleet({"--silent-after", "3 days"}).status, 2);
  EXPECT_EQ(fleet({"--config-id", "x"}).status, 2);
}

TEST_F(FleetStatus, TakesThreeDaysForSilent) {
  const std::time_t now = std::time(nullptr);
  const std::string digest = put_k("0A");
  put_report("0A", {.in_force = digest}, now - 3 * 86400 + 60);
  EXPECT_EQ(fleet({"--min-in-force", "100%"}).status, 0);
  put_report("0A", {.in_force = digest}, now - 3 * 86400 - 60);
  EXPECT_EQ(fleet({"--min-in-force", "100%"}).status, 12);
  EXPECT_EQ(fleet({"--min-in-force", "100%", "--silent-after", "4d"}).status, 0);
}

TEST_F(FleetStatus, WritesJson) {
  put_good("0A");
  put_refusing("0B");
  const finished done = fleet({"--json", "--max-refused", "10%"});
  EXPECT_EQ(done.status, 9);
  const json_value json(done.out);
  EXPECT_EQ(json["result"].text(), "refused");
  EXPECT_EQ(json["publications"][0]["in_force"]["percent"].number(), 50);
  EXPECT_EQ(json["refused"][0]["index"].text(), "0B");
}

TEST_F(FleetStatus, ReplacesThePageThatTheUmaskAllows) {
  put_good("0A");
  const std::string page = dir_ / "fleet.html";
  write_bytes(page, "old");
  std::filesystem::create_hard_link(page, dir_ / "reader");
  const mode_t before = ::umask(027);
  const finished done = fleet({"--html", page});
  ::umask(before);
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_TRUE(has(read_bytes(page), "in force 1 (100.0%)"));
  EXPECT_TRUE(has(done.out, some_id));
  // Whoever has the old page open keeps the whole of it.
  EXPECT_EQ(read_bytes(dir_ / "reader"), "old");
  struct stat info {};
  ASSERT_EQ(::stat(page.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, mode_t{0640});
}

TEST_F(FleetStatus, FailsIfThePageCannotBeWritten) {
  put_good("0A");
  const finished done = fleet({"--html", dir_ / "absent/fleet.html"});
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(has(done.err, "cannot create " + dir_ / "absent")) << done.err;
}

TEST_F(FleetStatus, ReplacesNothingButARegularFileByThePage) {
  put_good("0A");
  const std::string page = dir_ / "fleet.html";
  std::filesystem::create_symlink(dir_ / "elsewhere", page);
  EXPECT_EQ(fleet({"--html", page}).status, 1);
  EXPECT_TRUE(std::filesystem::is_symlink(page));
  std::filesystem::remove(page);
  ASSERT_EQ(::mkfifo(page.c_str(), 0600), 0);
  const finished done = fleet({"--html", page});
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(has(done.err, "cannot replace " + page + ": not a regular file")) << done.err;
  EXPECT_EQ(done.out, "");
  EXPECT_TRUE(std::filesystem::is_fifo(page));
}

TEST_F(FleetStatus, PrintsNoControlCharacterOfAReport) {
  put_k("0A");
  put_report("0A", {.problem = "\x1b[2J\a\xff<b>"});
  for (const std::vector<std::string> &how :
       {std::vector<std::string>{}, std::vector<std::string>{"--json"}}) {
    const finished done = fleet(how);
    EXPECT_TRUE(has(done.out,
                    "?[2J?"
                    "?<b>"))
        << done.out;
    EXPECT_FALSE(has(done.out, "\x1b"));
  }
}

TEST_F(FleetStatus, DoesNotWaitForAPublisher) {
  put_good("0A");
  const zot::descriptor lock(
      ::open((publication_ + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  EXPECT_EQ(fleet().status, 0);
}

TEST_F(FleetStatus, UsesColoursOnATerminal) {
  put_good("0A");
  put_refusing("0B");
  const finished done = run_on_terminal({"fleet", publication_, reports_});
  EXPECT_EQ(done.status, 0);
  EXPECT_TRUE(has(done.out, "\x1b[31mrefused\x1b[0m")) << done.out;
  EXPECT_TRUE(has(done.out, "\x1b[32m1 50.0%\x1b[0m")) << done.out;
}

TEST_F(FleetStatus, ReportsAnUnreadableReport) {
  put_good("0A");
  std::filesystem::permissions(report_file("0A"), std::filesystem::perms::none);
  std::filesystem::permissions(dir_.path(), std::filesystem::perms(0755));
  const finished done = run_zotconf_as_user({"fleet", publication_, reports_}, {});
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_TRUE(has(done.out,
                  "note: AP 0A: the report cannot be used: it cannot be opened: "
                  "Permission denied\n"))
      << done.out;
}

}  // namespace
}  // namespace zot::test
