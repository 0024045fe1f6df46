// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/verify.hpp"

#include <sys/stat.h>

#include <csignal>
#include <functional>
#include <memory>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/terminal.hpp"

namespace zot::test {
namespace {

constexpr int clean = 0;
constexpr int failed = 1;
constexpr int damaged = 7;

using words = std::vector<std::string>;

// A configuration of three files is in force.
class Verify : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Wlan/b", "ssid=b");
    put("Zone/z", "country=DE");
    commit_source();
  }
  [[nodiscard]] finished verify(const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"verify"};
    args.insert(args.end(), more.begin(), more.end());
    return run(args);
  }
  [[nodiscard]] json_value told(const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"--json"};
    args.insert(args.end(), more.begin(), more.end());
    return json_value(verify(args).out);
  }
  // The damage, when there is exactly one.
  [[nodiscard]] json_value damage() const {
    const json_value list = told()["damaged"];
    EXPECT_EQ(list.size(), 1);
    return list[0];
  }
  [[nodiscard]] std::string notes() const {
    std::string text;
    const json_value list = told()["notes"];
    for (int i = 0; i < list.size(); ++i) {
      text += list[i]["kind"].text() + " " + list[i]["path"].text() + "\n";
    }
    return text;
  }
  // Commits another configuration, so that there is a last one.
  void commit_second() {
    put("Wlan/a", "ssid=second");
    commit_source();
  }
};

TEST_F(Verify, FindsAGoodCacheClean) {
  const finished done = verify();
  EXPECT_EQ(done.status, clean) << done.out;
  EXPECT_EQ(done.err, "");
  EXPECT_TRUE(has(done.out, "clean: 6 files, 44 bytes checked\n")) << done.out;
}

TEST_F(Verify, SaysThatNothingLiesInTheCache) {
  std::filesystem::remove_all(dir_ / "device");
  const finished done = verify();
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.out, "empty: 0 files, 0 bytes checked\n")) << done.out;
  EXPECT_EQ(done.err, "zotconf: the element has no configuration yet: no K in " + conf_root_ +
                          "; ZOT_PREFIX_CONF_ROOT must have the value of the service process\n"
                          "try: zotconf status\n");
  EXPECT_EQ(told()["result"].text(), "empty");
  EXPECT_FALSE(exists(dir_ / "device"));
}

TEST_F(Verify, CallsACacheEmptyThatHasOnlyWhatAGetFetched) {
  std::filesystem::remove_all(conf_root_);
  publish_source();
  ASSERT_EQ(run({"cycle", "--index", index_}).status, 0);
  EXPECT_EQ(verify().status, failed);
  EXPECT_EQ(told()["result"].text(), "empty");
}

class VerifyUnreadable : public Verify, public testing::WithParamInterface<const char *> {};

TEST_P(VerifyUnreadable, IsAnError) {
  const std::string folder = dir_ / GetParam();
  std::filesystem::permissions(folder, std::filesystem::perms::none);
  for (const std::vector<std::string> &args :
       {words{"verify"}, words{"status"}, words{"show", "current"}, words{"forget"}}) {
    const finished done = run_zotconf_as_user(args, variables());
    EXPECT_EQ(done.status, failed) << args.front();
    EXPECT_TRUE(has(done.err, "zotconf: cannot read " + folder)) << done.err;
    EXPECT_TRUE(has(done.err, "Permission denied")) << done.err;
  }
  std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
}

INSTANTIATE_TEST_SUITE_P(Folders, VerifyUnreadable,
                         testing::Values("device/writable/zot", "device/writable/zot/knowledge",
                                         "device/writable/zot/config", "device/tmp/zot"));

TEST_F(Verify, WritesNotAByte) {
  write_bytes(conf("config/Wlan/a/1"), "damage");
  const auto before = snapshot(dir_ / "device");
  EXPECT_EQ(verify().status, damaged);
  EXPECT_EQ(snapshot(dir_ / "device"), before);
}

TEST_F(Verify, WritesJson) {
  const json_value found = told();
  EXPECT_EQ(found["conf_root"].text(), conf(""));
  EXPECT_EQ(found["tmp_root"].text() + "/", scratch(""));
  ASSERT_EQ(found["slots"].size(), 4);
  EXPECT_EQ(found["slots"][0]["slot"].text(), "current");
  EXPECT_EQ(found["slots"][0]["state"].text(), "good");
  EXPECT_EQ(found["slots"][0]["entries"].number(), 3);
  EXPECT_EQ(found["slots"][2]["state"].text(), "absent");
  EXPECT_EQ(found["damaged"].size(), 0);
  EXPECT_EQ(found["notes"].size(), 0);
  EXPECT_EQ(found["files"].number(), 6);
  EXPECT_EQ(found["bytes"].number(), 44);
  EXPECT_EQ(found["result"].text(), "clean");
}

TEST_F(Verify, NamesEveryBadFileForPeople) {
  write_bytes(conf("config/Wlan/a/1"), "ssid=X");
  std::filesystem::remove(conf("config/Zone/z/1"));
  const finished done = verify();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out, "damaged: " + conf("config/Wlan/a/1") +
                                ": wrong content: [zot_priv_verify_gpb]: wrong GPB checksum"))
      << done.out;
  EXPECT_TRUE(has(done.out, "damaged: " + conf("config/Zone/z/1") + ": missing: ")) << done.out;
  EXPECT_TRUE(has(done.out, "damaged: 2 bad; 6 files, 44 bytes checked\n")) << done.out;
}

// One kind of damage to one file, and the expected report.
struct damage_case {
  const char *name;
  std::function<void(const std::string &)> damage;
  const char *path;
  const char *kind;
  const char *state;
  const char *text;
};

void replace_by_folder(const std::string &path) {
  std::filesystem::remove(path);
  std::filesystem::create_directories(path);
}
void replace_by_fifo(const std::string &path) {
  std::filesystem::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0644), 0);
}
void remove_file(const std::string &path) {
  std::filesystem::remove(path);
}
void make_empty(const std::string &path) {
  write_bytes(path, "");
}
void append_byte(const std::string &path) {
  write_bytes(path, read_bytes(path) + "+");
}
void dangle(const std::string &path) {
  std::filesystem::remove(path);
  std::filesystem::create_symlink("nowhere", path);
}
void write_text(const std::string &path) {
  write_bytes(path, "no JSON");
  write_bytes(std::filesystem::path(path).replace_extension(".checksum"), sha256_hex("no JSON"));
}

constexpr const char *k_file = "knowledge/subsys.k";
constexpr const char *checksum_file = "knowledge/subsys.checksum";
constexpr const char *gpb_file = "config/Wlan/a/1";

const std::vector<damage_case> damage_cases = {
    {"GpbMissing", remove_file, gpb_file, "gpb", "missing", "Empty content"},
    {"GpbDangling", dangle, gpb_file, "gpb", "missing", "Empty content"},
    {"GpbEmpty", make_empty, gpb_file, "gpb", "wrong_size", "Empty content"},
    {"GpbTooLong", append_byte, gpb_file, "gpb", "wrong_size", "expect/real size=6/7"},
    {"GpbFlipped", flip_bit, gpb_file, "gpb", "wrong_content", "wrong GPB checksum"},
    {"GpbFolder", replace_by_folder, gpb_file, "gpb", "not_a_file", ""},
    {"GpbFifo", replace_by_fifo, gpb_file, "gpb", "not_a_file", "is no regular file"},
    {"KMissing", remove_file, k_file, "k", "missing", "unable to read"},
    {"KEmpty", make_empty, k_file, "k", "wrong_content", "unable to read"},
    {"KFlipped", flip_bit, k_file, "k", "wrong_content", "checksum mismatch"},
    {"KFolder", replace_by_folder, k_file, "k", "not_a_file", "unable to read"},
    {"KFifo", replace_by_fifo, k_file, "k", "not_a_file", "is no regular file"},
    {"KNoJson", write_text, k_file, "k", "invalid", "unable to parse json str"},
    {"ChecksumMissing", remove_file, checksum_file, "checksum", "missing", "No such file"},
    {"ChecksumEmpty", make_empty, checksum_file, "checksum", "wrong_content",
     "unable to get correct checksum"},
    {"ChecksumTooShort", [](const std::string &path) { write_bytes(path, "ab12\n"); },
     checksum_file, "checksum", "wrong_content", "unable to get correct checksum"},
    {"ChecksumFolder", replace_by_folder, checksum_file, "checksum", "not_a_file",
     "unable to get correct checksum"},
    {"ChecksumFifo", replace_by_fifo, checksum_file, "checksum", "not_a_file",
     "is no regular file"}};

class VerifyDamage : public Verify, public testing::WithParamInterface<damage_case> {};

TEST_P(VerifyDamage, IsFoundAndNamed) {
  GetParam().damage(conf(GetParam().path));
  EXPECT_EQ(verify().status, damaged);
  const json_value bad = damage();
  EXPECT_EQ(bad["path"].text(), conf(GetParam().path));
  EXPECT_EQ(bad["slot"].text(), "current");
  EXPECT_EQ(bad["kind"].text(), GetParam().kind);
  EXPECT_EQ(bad["state"].text(), GetParam().state);
  EXPECT_LT(bad["code"].number(), 0);
  EXPECT_TRUE(bad["name"].text().starts_with("ZOT_ERR_"));
  EXPECT_TRUE(has(bad["text"].text(), GetParam().text)) << bad["text"].text();
  EXPECT_FALSE(bad["harmless"].flag());
}

// Checks the repaired content here; repair_test.cpp tests the rest of the repair.
TEST_P(VerifyDamage, IsRepairedUnlessKItselfIsLost) {
  GetParam().damage(conf(GetParam().path));
  const finished done = verify({"--repair", "--index", index_});
  if (std::string(GetParam().state) == "invalid") {
    EXPECT_EQ(done.status, damaged);
    EXPECT_TRUE(has(done.out, "not restorable: " + conf(k_file))) << done.out;
    return;
  }
  EXPECT_EQ(done.status, clean) << done.out << done.err;
  EXPECT_TRUE(has(done.out, "repaired: " + conf(GetParam().path) + "\n")) << done.out;
  EXPECT_EQ(read_bytes(conf(gpb_file)), "ssid=a");
  EXPECT_EQ(read_bytes(conf(k_file)), read_bytes(published(".k")));
  EXPECT_EQ(cycle("--commit").status, 3);
}

INSTANTIATE_TEST_SUITE_P(OneFile, VerifyDamage, testing::ValuesIn(damage_cases),
                         [](const auto &tested) { return std::string(tested.param.name); });

TEST_F(Verify, NamesKAndChecksumWhenBothAreBad) {
  remove_file(conf(k_file));
  make_empty(conf(checksum_file));
  const json_value list = told()["damaged"];
  ASSERT_EQ(list.size(), 2);
  EXPECT_EQ(list[0]["kind"].text(), "checksum");
  EXPECT_EQ(list[1]["kind"].text(), "k");
  EXPECT_EQ(list[1]["state"].text(), "missing");
}

TEST_F(Verify, NotesFilesThatNoKNames) {
  write_bytes(conf("config/Wlan/a/9"), "old");
  write_bytes(conf("config/stray"), "old");
  EXPECT_EQ(verify().status, clean);
  EXPECT_EQ(told()["notes"].size(), 2);
  EXPECT_TRUE(has(notes(), "not_named " + conf("config/Wlan/a/9") + "\n"));
  EXPECT_TRUE(has(notes(), "not_named " + conf("config/stray") + "\n"));
}

TEST_F(Verify, NotesThatItCannotCheckFilesWithoutK) {
  flip_bit(conf(k_file));
  EXPECT_EQ(notes(), "not_checked " + conf("config") + "\n");
}

TEST_F(Verify, ChecksTheLastKWithoutItsFiles) {
  commit_second();
  EXPECT_EQ(told()["slots"][1]["state"].text(), "good");
  EXPECT_EQ(verify().status, clean);
  flip_bit(conf("knowledge/prev_subsys.k"));
  EXPECT_EQ(verify().status, damaged);
  EXPECT_EQ(damage()["slot"].text(), "last");
  EXPECT_EQ(damage()["path"].text(), conf("knowledge/prev_subsys.k"));
}

TEST_F(Verify, ChecksTheCorruptedK) {
  put("Wlan/a", "ssid=refused");
  publish_source();
  ASSERT_EQ(cycle("--roll-back").status, 5);
  EXPECT_EQ(verify().status, clean);
  remove_file(conf("knowledge/corrupted.checksum"));
  EXPECT_EQ(verify().status, damaged);
  EXPECT_EQ(damage()["slot"].text(), "refused");
  EXPECT_EQ(damage()["kind"].text(), "checksum");
}

TEST_F(Verify, CallsDamageOfTheScratchAreaHarmless) {
  flip_bit(scratch(gpb_file));
  const finished done = verify();
  EXPECT_EQ(done.status, clean);
  EXPECT_TRUE(has(done.out, "harmless: " + scratch(gpb_file))) << done.out;
  EXPECT_TRUE(damage()["harmless"].flag());
  EXPECT_EQ(told()["result"].text(), "clean");
}

TEST_F(Verify, CallsAHalfFetchedKHarmless) {
  write_bytes(scratch("subsys.checksum"), sha256_hex("the next K"));
  EXPECT_EQ(verify().status, clean);
  EXPECT_EQ(damage()["slot"].text(), "scratch");
  EXPECT_EQ(cycle("--commit").status, 3);
}

TEST_F(Verify, CountsDamageOfTheScratchAreaWhenStrict) {
  flip_bit(scratch(gpb_file));
  EXPECT_EQ(verify({"--strict"}).status, damaged);
  EXPECT_FALSE(told({"--strict"})["damaged"][0]["harmless"].flag());
}

TEST_F(Verify, NotesThatFilesOfTheScratchAreaAreGone) {
  std::filesystem::remove_all(scratch("config"));
  EXPECT_EQ(verify({"--strict"}).status, clean);
  EXPECT_EQ(notes(), "scratch " + scratch("subsys.k") + "\n");
}

TEST_F(Verify, HasColoursOnATerminalOnly) {
  EXPECT_TRUE(has(run_on_terminal({"verify"}, variables()).out, "\x1b[32mclean\x1b[0m"));
  EXPECT_FALSE(has(verify().out, "\x1b"));
}

// Four files that take some time to read.
class LongVerify : public testing::Test {
 protected:
  void SetUp() override {
    constexpr size_t size = size_t{64} << 20U;
    std::string bytes(size, '\0');
    bytes.front() = 'x';
    const std::string checksum = sha256_hex(bytes);
    std::string list;
    for (const char *key : {"1", "2", "3", "4"}) {
      const std::string path = "/Wlan/" + std::string(key) + "/1";
      write_bytes(dir_ / ("config" + path), "x");
      std::filesystem::resize_file(dir_ / ("config" + path), size);
      list += (list.empty() ? "" : ", ") + (R"({"path": ")" + path + R"(", "size": )") +
              std::to_string(size) + R"(, "checksum": ")" + checksum + "\"}";
    }
    const std::string k = R"({"clusterId": "c", "gpbs": [)" + list + "]}";
    write_bytes(dir_ / "knowledge/subsys.k", k);
    write_bytes(dir_ / "knowledge/subsys.checksum", sha256_hex(k));
  }

  temp_dir dir_;
};

TEST_F(LongVerify, ShowsItsProgressOnATerminalOnly) {
  environment variables = {{"ZOT_DEV_PATH", dir_.path()}, {"ZOT_PREFIX_TMP_ROOT", dir_.path()}};
  const std::string out = run_on_terminal({"verify"}, variables).out;
  EXPECT_TRUE(has(out, " of 4 files, ")) << out;
  EXPECT_TRUE(has(out, " files/s")) << out;
  EXPECT_EQ(run_zotconf({"verify"}, variables).err, "");
  variables["NO_COLOR"] = "";
  EXPECT_FALSE(has(run_on_terminal({"verify"}, variables).out, " files/s"));
}

// A commit was interrupted while it copied files.
class VerifyInterrupted : public Verify {
 protected:
  void SetUp() override {
    Verify::SetUp();
    commit_ = std::make_unique<interrupted_commit>(conf_root_);
    commit_->rotate_k("{\"half\": ");
    commit_->keep_files();
    commit_->write_file("Wlan/a/2", "half");
  }
  std::unique_ptr<interrupted_commit> commit_;
};

TEST_F(VerifyInterrupted, FindsTheCommitAndNoDamage) {
  const finished done = verify();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out,
                  "commit: interrupted commit: the next start puts the configuration before it "
                  "back\ncommit: in force then: checksum "))
      << done.out;
  EXPECT_TRUE(has(done.out, "interrupted: 6 files, 44 bytes checked\n")) << done.out;
}

TEST_F(VerifyInterrupted, WritesJson) {
  const json_value found = told();
  EXPECT_EQ(found["result"].text(), "interrupted");
  EXPECT_EQ(found["damaged"].size() + found["notes"].size(), 0);
  EXPECT_EQ(found["commit"]["state"].text(), "interrupted");
  EXPECT_EQ(found["commit"]["next_start"].text(), "previous");
}

TEST_F(VerifyInterrupted, JudgesTheFilesThatComeBack) {
  write_bytes(commit_->undo("config/Wlan/b/1"), "damage");
  EXPECT_EQ(damage()["path"].text(), commit_->undo("config/Wlan/b/1"));
  EXPECT_EQ(told()["result"].text(), "damaged");
  EXPECT_EQ(told()["commit"]["next_start"].text(), "nothing");
  EXPECT_TRUE(has(verify().out, "damaged: 1 bad; 6 files"));
}

TEST_F(VerifyInterrupted, JudgesTheKThatComesBack) {
  write_bytes(commit_->undo("subsys.k"), "{}");
  EXPECT_EQ(damage()["path"].text(), commit_->undo("subsys.k"));
  EXPECT_EQ(damage()["slot"].text(), "current");
}

TEST_F(VerifyInterrupted, IsNoFindingWhileTheCommitGoesOn) {
  const held_lock running(conf_root_);
  EXPECT_EQ(verify().status, clean);
  EXPECT_EQ(notes(), "in_progress " + conf("") + "\n");
}

TEST_F(Verify, NotesWhatACommitLeft) {
  std::filesystem::create_directories(conf("undo.old"));
  EXPECT_EQ(verify().status, clean);
  EXPECT_EQ(notes(), "leftover " + conf("undo.old") + "\n");
}

}  // namespace
}  // namespace zot::test
