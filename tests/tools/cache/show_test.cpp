// SPDX-License-Identifier: Apache-2.0
#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/terminal.hpp"

namespace zot::test {
namespace {

constexpr const char *config_id = "7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11";

class Show : public CachedElement {
 protected:
  void SetUp() override {
    put("Zone/z", "country=DE");
    put("Wlan/guest-2", "ssid=g2");
    put("Wlan/guest-1", "ssid=g");
    put("Ap/x", "model=x");
    publish_source({"--config-id", config_id, "--firmware", "1.2.3"});
  }
  [[nodiscard]] std::string table_of(const std::vector<std::string> &more) const {
    std::vector<std::string> args = {"show", dir_ / "pub"};
    args.insert(args.end(), more.begin(), more.end());
    const finished done = run(args);
    EXPECT_EQ(done.status, 0) << done.err;
    return done.out.substr(done.out.find("\n\n") + 2);
  }
};

TEST_F(Show, ListsEntriesByCategoryNumberAndKey) {
  EXPECT_EQ(table_of({}),
            "CATEGORY  KEY      VERSION  SIZE\n"
            "Ap        x              1     7\n"
            "Wlan      guest-1        1     6\n"
            "Wlan      guest-2        1     7\n"
            "Zone      z              1    10\n"
            "4 entries, 30 bytes\n");
}

TEST_F(Show, TellsWhatKSaysAboutItself) {
  const std::string out = run({"show", dir_ / "pub"}).out;
  const std::string checksum = sha256_hex(read_bytes(published(".k")));
  EXPECT_TRUE(has(out, std::string("config ID:  ") + config_id + "\n")) << out;
  EXPECT_TRUE(has(out, "cluster:    cluster-1\n")) << out;
  EXPECT_TRUE(has(out, "firmware:   1.2.3\n")) << out;
  EXPECT_TRUE(has(out, "entries:    4\n")) << out;
  EXPECT_TRUE(has(out, "bytes:      30\n")) << out;
  EXPECT_TRUE(has(out, "checksum:   " + checksum + "\n")) << out;
}

TEST_F(Show, MakesWhatIsNoTextFitForATerminalAndForJson) {
  const std::string k = dir_ / "foreign.k";
  write_bytes(k, R"({"clusterId":"c)"
                 "\xff"
                 R"(\u001b[1m","gpbs":[{"path":"/Wlan/k)"
                 "\xff"
                 R"(/1","size":1,"checksum":")" +
                     sha256_hex("x") + R"("}]})");
  const finished shown = run({"show", k});
  EXPECT_EQ(shown.status, 0) << shown.err;
  EXPECT_TRUE(has(shown.out, "cluster:    c??[1m\n")) << shown.out;
  const json_value found(run({"show", k, "--json"}).out);
  EXPECT_EQ(found["files"][0]["key"].text(), "k?");
}

TEST_F(Show, TellsWhenKWasWrittenInUtc) {
  const std::filesystem::path k = published(".k");
  std::filesystem::last_write_time(
      k, std::chrono::file_clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(90061))));
  EXPECT_TRUE(has(run({"show", dir_ / "pub"}).out, "written:    1970-01-02T01:01:01Z\n"));
}

TEST_F(Show, TakesCategoriesAndAKeyPattern) {
  EXPECT_EQ(table_of({"--category", "Wlan,Zone", "--key", "guest-[1]"}),
            "CATEGORY  KEY      VERSION  SIZE\n"
            "Wlan      guest-1        1     6\n"
            "1 of 4 entries, 6 bytes\n");
}

TEST_F(Show, TakesItsFiltersBeforeK) {
  EXPECT_EQ(run({"show", "--category", "Wlan", dir_ / "pub"}).status, 0);
}

TEST_F(Show, SaysSoWhenTheFilterMatchesNothing) {
  EXPECT_EQ(table_of({"--key", "nobody"}), "0 of 4 entries, 0 bytes\n");
}

TEST_F(Show, WritesJson) {
  const json_value shown(run({"show", dir_ / "pub", "--category", "Wlan", "--json"}).out);
  EXPECT_EQ(shown["k"].text(), published(".k"));
  EXPECT_EQ(shown["checksum_file"].text(), published(".checksum"));
  EXPECT_EQ(shown["config_id"].text(), config_id);
  EXPECT_EQ(shown["cluster"].text(), "cluster-1");
  EXPECT_EQ(shown["firmware"].text(), "1.2.3");
  EXPECT_EQ(shown["entries"].number(), 4);
  EXPECT_EQ(shown["bytes"].number(), 30);
  EXPECT_EQ(shown["shown_entries"].number(), 2);
  EXPECT_EQ(shown["shown_bytes"].number(), 13);
  ASSERT_EQ(shown["files"].size(), 2);
  const json_value file = shown["files"][0];
  EXPECT_EQ(file["category"].text(), "Wlan");
  EXPECT_EQ(file["category_number"].number(), 18);
  EXPECT_EQ(file["key"].text(), "guest-1");
  EXPECT_EQ(file["version"].number(), 1);
  EXPECT_EQ(file["size"].number(), 6);
  EXPECT_EQ(file["checksum"].text(), sha256_hex("ssid=g"));
  EXPECT_EQ(file["path"].text(), "/Wlan/guest-1/1");
}

TEST_F(Show, WritesNullForWhatKDoesNotState) {
  publish_source();
  put("Ap/y", "model=y");
  publish_source();
  const json_value shown(run({"show", dir_ / "pub", "--json"}).out);
  EXPECT_TRUE(shown["config_id"].is_null());
  EXPECT_TRUE(shown["firmware"].is_null());
}

TEST_F(Show, TakesAKFileAlone) {
  write_bytes(dir_ / "alone.k", read_bytes(published(".k")));
  EXPECT_TRUE(has(run({"show", dir_ / "alone.k"}).out, "4 entries, 30 bytes\n"));
}

TEST_F(Show, HoldsAKFileAgainstTheChecksumFileBesideIt) {
  write_bytes(dir_ / "alone.k", read_bytes(published(".k")));
  write_bytes(dir_ / "alone.checksum", sha256_hex("something else"));
  const finished done = run({"show", dir_ / "alone.k"});
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(has(done.err, "checksum mismatch expect/real")) << done.err;
}

TEST_F(Show, TakesTheSlotsOfTheCache) {
  commit_source();
  EXPECT_TRUE(has(run({"show", "current"}).out, "K:          " + conf("knowledge/subsys.k\n")));
  EXPECT_EQ(run({"show", "scratch"}).status, 0);
}

TEST_F(Show, FailsOnAnEmptySlot) {
  const finished done = run({"show", "last"});
  EXPECT_EQ(done.status, 1);
  EXPECT_EQ(done.out, "");
  EXPECT_EQ(done.err, "zotconf: last: no K at " + conf("knowledge/prev_subsys.k") +
                          "\ntry: zotconf status\n");
}

TEST_F(Show, FailsOnADamagedKWithTheTextOfTheLibrary) {
  commit_source();
  write_bytes(conf("knowledge/subsys.k"), "{");
  const finished done = run({"show", "current"});
  EXPECT_EQ(done.status, 1);
  EXPECT_EQ(done.out, "");
  EXPECT_TRUE(has(done.err, "checksum mismatch expect/real")) << done.err;
  EXPECT_TRUE(has(done.err, "(-8)\ntry: zotconf verify\n")) << done.err;
}

TEST_F(Show, FailsOnAFileThatIsNoK) {
  write_bytes(dir_ / "empty.k", "");
  write_bytes(dir_ / "text.k", "no JSON");
  EXPECT_TRUE(has(run({"show", dir_ / "empty.k"}).err, "json is empty"));
  EXPECT_TRUE(has(run({"show", dir_ / "text.k"}).err, "unable to parse json str"));
}

TEST_F(Show, FailsOnASourceThatIsNothing) {
  EXPECT_EQ(run({"show", dir_ / "nowhere"}).status, 1);
}

TEST_F(Show, WantsAnIndexWhenSeveralElementsArePublished) {
  const finished other = run({"publish", dir_ / "source", "--out", dir_ / "pub", "--index", "cafe",
                              "--subsys", "CP", "--cluster", "c"});
  ASSERT_EQ(other.status, 0) << other.err;
  EXPECT_TRUE(has(run({"show", dir_ / "pub"}).err, "--index"));
  EXPECT_TRUE(
      has(run({"show", dir_ / "pub", "--subsys", "CP", "--index", "cafe"}).out, "cluster:    c\n"));
}

TEST_F(Show, RefusesAnUnknownCategory) {
  const finished done = run({"show", dir_ / "pub", "--category", "Wlan,wlan"});
  EXPECT_EQ(done.status, 2);
  EXPECT_TRUE(has(done.err, "unknown category \"wlan\"")) << done.err;
}

TEST_F(Show, SendsNoControlCharacterOfAKToTheTerminal) {
  write_bytes(dir_ / "loud.k", R"({"clusterId": "a\u001b[2Jb", "gpbs": []})");
  EXPECT_TRUE(has(run({"show", dir_ / "loud.k"}).out, "cluster:    a?[2Jb\n"));
}

TEST_F(Show, HasColoursOnATerminalOnly) {
  const std::vector<std::string> args = {"show", dir_ / "pub"};
  EXPECT_TRUE(has(run_on_terminal(args).out, "\x1b[1mCATEGORY\x1b[0m"));
  EXPECT_FALSE(has(run_on_terminal(args, {{"NO_COLOR", ""}}).out, "\x1b"));
  EXPECT_FALSE(has(run(args).out, "\x1b"));
}

}  // namespace
}  // namespace zot::test
