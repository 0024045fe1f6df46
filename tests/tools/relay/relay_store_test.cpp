// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_store.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/tools/support/process.hpp"
#include "tests/tools/support/stored.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

const contents first = {{"Wlan/a/1", "ssid=a"}, {"Wlan/b/1", "ssid=b"}, {"Zone/z/1", "country=DE"}};
const contents second = {{"Wlan/a/2", "ssid=other"}, {"Wlan/b/1", "ssid=b"}};
const contents third = {{"Wlan/a/3", "ssid=third"}};

class RelayStore : public stored {
 protected:
  // Which publication is read with all of its files; empty if there is none.
  [[nodiscard]] std::string served_whole() {
    const auto current = store().current();
    if (current == nullptr) {
      return "";
    }
    const std::string k = opened(latest(".k"));
    EXPECT_EQ(sha256_hex(k), current->digest);
    EXPECT_EQ(opened(latest(".checksum")), current->digest + "\n");
    for (const auto &file : current->content.files) {
      const std::string bytes = opened(parts_of(file));
      EXPECT_EQ(sha256_hex(bytes), file.checksum) << file.key;
    }
    return current->digest;
  }
  [[nodiscard]] static std::vector<std::string> parts_of(const zotconf::published_file &file) {
    return {"config", file.category_name, file.key, std::to_string(file.version)};
  }
  [[nodiscard]] std::string why_not_opened(const std::vector<std::string> &parts) {
    try {
      return "opened: " + opened(parts);
    } catch (const std::runtime_error &error) {
      return error.what();
    }
  }
  [[nodiscard]] std::vector<std::string> missing_keys(const contents &files) {
    std::vector<std::string> keys;
    for (const auto &file : store().missing(manifest_of(files, 0))) {
      keys.push_back(file.key);
    }
    return keys;
  }
};

using keys = std::vector<std::string>;

// Start and layout.

TEST_F(RelayStore, HasNothingInServiceWhenItIsNew) {
  EXPECT_EQ(store().current(), nullptr);
  EXPECT_EQ(store().last_sequence(), 0U);
  EXPECT_FALSE(store().is_damaged());
  EXPECT_FALSE(store().open_member(latest(".k")).is_open());
  EXPECT_FALSE(store().open_member({"config", "Wlan", "a", "1"}).is_open());
  EXPECT_FALSE(store().read_checksum(ap));
}

TEST_F(RelayStore, CreatesItsFolderWithTheFoldersAbove) {
  root_ = dir_ / "var/lib/store";
  const std::string digest = put(first, 1);
  EXPECT_EQ(served_whole(), digest);
}

TEST_F(RelayStore, CreatesWhatOthersMayReadAndNotWrite) {
  const mode_t before = ::umask(0);
  put(first, 1, "signature");
  ::umask(before);
  for (const auto &entry : fs::recursive_directory_iterator(root_)) {
    struct stat info {};
    ASSERT_EQ(::lstat(entry.path().c_str(), &info), 0);
    // The files of objects have the mode with which they arrived.
    if (!S_ISLNK(info.st_mode) && entry.path().string().find("/objects/") == std::string::npos) {
      EXPECT_EQ(info.st_mode & 07777U, S_ISDIR(info.st_mode) ? 0755U : 0644U) << entry.path();
    }
  }
}

TEST_F(RelayStore, RefusesAFolderThatAnotherRelayUses) {
  (void)store();
  try {
    const zotconf::relay_store other(root_, ap);
    FAIL() << "opened twice";
  } catch (const std::runtime_error &error) {
    EXPECT_EQ(error.what(), root_ + ": another relay uses this folder");
  }
}

TEST_F(RelayStore, RefusesAPlaceThatIsNoFolder) {
  write_bytes(root_, "a file");
  EXPECT_EQ(why_not_opened(latest(".k")), "cannot open " + root_ + ": Not a directory");
}

TEST_F(RelayStore, RefusesAFolderToWhichEveryUserMayWrite) {
  fs::create_directories(root_);
  fs::permissions(root_, fs::perms::all);
  EXPECT_EQ(why_not_opened(latest(".k")), root_ + ": every user may write to this folder");
  fs::permissions(root_, fs::perms::others_write, fs::perm_options::remove);
  EXPECT_EQ(why_not_opened(latest(".k")), "opened: (not open)");
}

TEST_F(RelayStore, RefusesAFolderThatHasFoldersOfAnother) {
  for (const std::string name : {"objects", "partial", "publications"}) {
    write_bytes(root_ + "/" + name + "/file", "of another program");
    EXPECT_EQ(why_not_opened(latest(".k")),
              root_ + ": has a folder " + name + " and is not the store of a relay");
    EXPECT_EQ(tree(root_).size(), 1U);
    fs::remove_all(root_);
  }
}

TEST_F(RelayStore, AcceptsAFolderWithOtherFiles) {
  write_bytes(root_ + "/lost+found/file", "of the file system");
  const std::string digest = put(first, 1);
  EXPECT_EQ(served_whole(), digest);
  EXPECT_TRUE(exists(root_ + "/lost+found/file"));
}

TEST_F(RelayStore, RefusesAFolderOfItsOwnThatIsALink) {
  fs::create_directories(dir_ / "outside");
  for (const std::string name : {"objects", "partial", "publications"}) {
    fs::remove_all(root_);
    write_bytes(root_ + "/.lock", "");
    fs::create_directory_symlink(dir_ / "outside", root_ + "/" + name);
    EXPECT_THROW((void)store(), std::runtime_error) << name;
  }
}

// Files.

TEST_F(RelayStore, NamesEachMissingFileOnce) {
  take({{"Wlan/a/1", "ssid=a"}});
  const contents wanted = {
      {"Wlan/a/1", "ssid=a"}, {"Wlan/b/1", "same"}, {"Wlan/c/1", "same"}, {"Zone/d/1", "ssid=a"}};
  EXPECT_EQ(missing_keys(wanted), keys{"b"});
}

TEST_F(RelayStore, TakesNoFileWithOtherBytes) {
  const auto file = manifest_of(first, 0).files.front();
  for (const std::string bytes : {"ssid=x", "ssid=", "ssid=aa", ""}) {
    write_bytes(store().partial(file), bytes);
    EXPECT_FALSE(store().take(file)) << bytes;
    EXPECT_FALSE(fs::exists(store().partial(file))) << bytes;
  }
  EXPECT_FALSE(store().take(file)) << "nothing was collected";
  EXPECT_EQ(missing_keys(first), (keys{"a", "b", "z"}));
}

TEST_F(RelayStore, TakesNoLinkForAFile) {
  const auto file = manifest_of(first, 0).files.front();
  write_bytes(dir_ / "outside", "ssid=a");
  fs::create_symlink(dir_ / "outside", store().partial(file));
  EXPECT_FALSE(store().take(file));
  EXPECT_EQ(read_bytes(dir_ / "outside"), "ssid=a");
}

TEST_F(RelayStore, GivesNoPlaceToAFileWithoutADigest) {
  auto file = manifest_of(first, 0).files.front();
  for (const std::string checksum : {"", "../../../outside", "ABCDEF"}) {
    file.checksum = checksum;
    EXPECT_THROW((void)store().partial(file), std::runtime_error) << checksum;
    EXPECT_THROW((void)store().take(file), std::runtime_error) << checksum;
  }
}

TEST_F(RelayStore, ReadsAFileThatNoPublicationNames) {
  take(first);
  write_bytes(object("ssid=b"), "ssid=B");
  EXPECT_EQ(missing_keys(first), keys{"b"});
  restarted();
  EXPECT_EQ(missing_keys(first), keys{"b"});
}

TEST_F(RelayStore, KnowsHowMuchMayBeWritten) {
  const uint64_t room = fs::space(dir_.path()).available;
  EXPECT_NEAR(static_cast<double>(store().room()), static_cast<double>(room), 1e9);
}

// Publications.

TEST_F(RelayStore, ServesWhatWasPutIntoService) {
  const std::string digest = put(first, 7, "a signature");
  EXPECT_EQ(served_whole(), digest);
  EXPECT_EQ(opened(latest(".k.p7s")), "a signature");
  EXPECT_EQ(store().read_checksum(ap), digest + "\n");
  EXPECT_EQ(store().last_sequence(), 7U);
  EXPECT_EQ(store().last_digest(), digest);
  EXPECT_NEAR(static_cast<double>(store().current()->kept_since),
              static_cast<double>(std::time(nullptr)), 60);
}

TEST_F(RelayStore, ServesTheSameAfterARestart) {
  put(first, 1);
  const std::string digest = put(second, 2, "a signature");
  const std::time_t since = store().current()->kept_since;
  restarted();
  EXPECT_EQ(served_whole(), digest);
  EXPECT_EQ(opened(latest(".k.p7s")), "a signature");
  EXPECT_EQ(store().current()->kept_since, since);
  EXPECT_EQ(store().last_sequence(), 2U);
}

TEST_F(RelayStore, ServesACategoryThatItDoesNotKnowAfterARestart) {
  const std::string digest = put({{"Wlan/a/1", "ssid=a"}, {"Novel/n/1", "of a later version"}}, 1);
  restarted();
  EXPECT_EQ(served_whole(), digest);
  EXPECT_EQ(opened({"config", "Novel", "n", "1"}), "of a later version");
}

TEST_F(RelayStore, ServesOnlyItsElementAndOnlyWhatItHas) {
  put(first, 1);
  for (const std::vector<std::string> &parts :
       {std::vector<std::string>{"file", "knowledge", "CP", "001122334455", "latest",
                                 "001122334455.k"},
        {"file", "knowledge", "AP", "OTHER", "latest", "OTHER.k"},
        {"file", "knowledge", "AP", "001122334455", "latest", "001122334455"},
        {"config", "Wlan", "a", "2"},
        {"config", "Wlan", "a", "x"},
        {"config", "Zone", "a", "1"},
        {"config", "Wlan", "a"},
        {"objects", "Wlan", "a", "1"},
        {},
        latest(".k.p7s")}) {
    EXPECT_FALSE(store().open_member(parts).is_open());
  }
  EXPECT_FALSE(store().read_checksum({.subsys = "CP", .index = "001122334455"}));
  EXPECT_FALSE(store().read_checksum({.subsys = "AP", .index = "OTHER"}));
}

TEST_F(RelayStore, OpensAFileOfAnotherKeptPublication) {
  put(first, 1);
  put(second, 2);
  EXPECT_EQ(opened({"config", "Wlan", "a", "1"}), "ssid=a");
  EXPECT_EQ(opened({"config", "Wlan", "a", "2"}), "ssid=other");
  EXPECT_EQ(sha256_hex(opened(latest(".k"))), store().current()->digest);
  restarted();
  EXPECT_EQ(opened({"config", "Wlan", "a", "1"}), "ssid=a");
}

TEST_F(RelayStore, MayReturnToAnEarlierPublication) {
  const std::string digest = put(first, 0);
  put(second, 0);
  EXPECT_EQ(put(first, 0), digest);
  EXPECT_EQ(served_whole(), digest);
  restarted();
  EXPECT_EQ(served_whole(), digest);
}

TEST_F(RelayStore, ReplacesTheSignatureOfTheSameK) {
  const std::string digest = put(first, 1, "one");
  EXPECT_EQ(put(first, 1, "two"), digest);
  EXPECT_EQ(opened(latest(".k.p7s")), "two");
  EXPECT_EQ(put(first, 1), digest);
  EXPECT_FALSE(store().open_member(latest(".k.p7s")).is_open());
  restarted();
  EXPECT_EQ(served_whole(), digest);
  EXPECT_FALSE(store().open_member(latest(".k.p7s")).is_open());
}

TEST_F(RelayStore, PutsNothingIntoServiceThatIsNotWhole) {
  const std::string digest = put(first, 1);
  take({{"Wlan/b/1", "ssid=b"}});
  EXPECT_THROW(store().put_into_service(k_of(second, 2), {}, manifest_of(second, 2)),
               std::runtime_error);
  EXPECT_EQ(served_whole(), digest);
  EXPECT_EQ(store().last_sequence(), 1U);
  restarted();
  EXPECT_EQ(served_whole(), digest);
  EXPECT_EQ(store().last_sequence(), 1U);
}

TEST_F(RelayStore, ReplacesTheLinkAfterEverythingElse) {
  put(first, 1);
  const std::string digest = sha256_hex(k_of(second, 2));
  take(second);
  // What stands in the way of each file in turn ends the change before the link is replaced.
  for (const std::string name : {"/k", "/checksum", "/signature"}) {
    fs::create_directories(publication(digest) + name + "/in the way");
    EXPECT_THROW(store().put_into_service(k_of(second, 2), "s", manifest_of(second, 2)),
                 std::runtime_error)
        << name;
    EXPECT_NE(fs::read_symlink(root_ + "/current"), "publications/" + digest) << name;
    EXPECT_EQ(served_whole(), sha256_hex(k_of(first, 1))) << name;
    fs::remove_all(publication(digest));
  }
  store().put_into_service(k_of(second, 2), "s", manifest_of(second, 2));
  EXPECT_EQ(fs::read_symlink(root_ + "/current"), "publications/" + digest);
}

// Damage at the start.

class DamagedRelayStore : public RelayStore {
 protected:
  DamagedRelayStore() {
    older_ = put(first, 1);
    newer_ = put(second, 2, "a signature");
    store_.reset();
  }

  std::string older_;
  std::string newer_;
};

TEST_F(DamagedRelayStore, ServesTheOlderOneWhenAFileIsMissing) {
  fs::remove(object("ssid=other"));
  EXPECT_EQ(served_whole(), older_);
  EXPECT_EQ(store().last_sequence(), 2U);
  EXPECT_EQ(store().last_digest(), newer_);
}

TEST_F(DamagedRelayStore, ServesTheOlderOneWhenAFileHasAnotherSize) {
  write_bytes(object("ssid=other"), "ssid");
  EXPECT_EQ(served_whole(), older_);
}

TEST_F(DamagedRelayStore, ServesTheOlderOneWhenAFileIsALinkOrAFolder) {
  fs::rename(object("ssid=other"), dir_ / "outside");
  fs::create_symlink(dir_ / "outside", object("ssid=other"));
  EXPECT_EQ(served_whole(), older_);
  fs::remove(object("ssid=other"));
  fs::create_directory(object("ssid=other"));
  restarted();
  EXPECT_EQ(served_whole(), older_);
}

TEST_F(DamagedRelayStore, ServesTheOlderOneWhenKIsDamaged) {
  flip_bit(publication(newer_) + "/k");
  EXPECT_EQ(served_whole(), older_);
  EXPECT_EQ(store().last_sequence(), 2U);
  EXPECT_EQ(store().last_digest(), newer_);
}

TEST_F(DamagedRelayStore, ServesTheOlderOneWhenAFileOfThePublicationIsMissing) {
  fs::remove(publication(newer_) + "/checksum");
  EXPECT_EQ(served_whole(), older_);
  restarted();
  fs::remove(publication(newer_) + "/k");
  EXPECT_EQ(served_whole(), older_);
}

TEST_F(DamagedRelayStore, ServesTheOlderOneWhenTheChecksumIsDamaged) {
  flip_bit(publication(newer_) + "/checksum");
  EXPECT_EQ(served_whole(), older_);
}

TEST_F(DamagedRelayStore, ServesNoKThatIsNoKWhateverItsChecksumIs) {
  const std::string text = "no K";
  write_bytes(publication(sha256_hex(text)) + "/k", text);
  write_bytes(publication(sha256_hex(text)) + "/checksum", sha256_hex(text) + "\n");
  fs::remove(root_ + "/current");
  fs::create_symlink("publications/" + sha256_hex(text), root_ + "/current");
  EXPECT_EQ(served_whole(), newer_);
}

TEST_F(DamagedRelayStore, ServesNoKOfAnotherElement) {
  zotconf::manifest other = manifest_of(first, 9);
  other.who.index = "OTHER";
  const std::string k = zotconf::render_manifest(other);
  write_bytes(publication(sha256_hex(k)) + "/k", k);
  write_bytes(publication(sha256_hex(k)) + "/checksum", sha256_hex(k) + "\n");
  EXPECT_EQ(served_whole(), newer_);
  EXPECT_EQ(store().last_sequence(), 2U);
}

TEST_F(RelayStore, TheSequenceOfOneElementDoesNotCountForAnother) {
  put(first, 9);
  store_.reset();
  const zotconf::relay_store other(root_, {.subsys = "AP", .index = "OTHER"});
  EXPECT_EQ(other.current(), nullptr);
  EXPECT_EQ(other.last_sequence(), 0U);
  EXPECT_EQ(other.last_digest(), "");
}

TEST_F(DamagedRelayStore, ServesTheNewestOneWithoutALinkThatCanBeUsed) {
  write_bytes(dir_ / "outside/" + older_ + "/k", "secret");
  for (const std::string &target : std::vector<std::string>{
           std::string(), "publications/" + std::string(64, '0'), "../outside/" + older_,
           dir_ / "outside", "publications/" + older_ + "/",
           "publications/../publications/" + older_, std::string("publications")}) {
    fs::remove(root_ + "/current");
    if (!target.empty()) {
      fs::create_symlink(target, root_ + "/current");
    }
    restarted();
    EXPECT_EQ(served_whole(), newer_) << target;
  }
  fs::remove(root_ + "/current");
  write_bytes(root_ + "/current", "publications/" + older_);
  restarted();
  EXPECT_EQ(served_whole(), newer_);
}

TEST_F(DamagedRelayStore, ServesWhatTheLinkNamesAndNotTheNewest) {
  fs::remove(root_ + "/current");
  fs::create_symlink("publications/" + older_, root_ + "/current");
  EXPECT_EQ(served_whole(), older_);
  EXPECT_EQ(store().last_sequence(), 2U);
}

TEST_F(DamagedRelayStore, ReplacesWhatStandsInThePlaceOfTheLink) {
  for (const bool is_folder : {false, true}) {
    fs::remove(root_ + "/current");
    if (is_folder) {
      fs::create_directory(root_ + "/current");
    } else {
      write_bytes(root_ + "/current", "a file");
    }
    const std::string digest = put(third, 3);
    EXPECT_EQ(fs::read_symlink(root_ + "/current"), "publications/" + digest);
  }
}

TEST_F(DamagedRelayStore, HasNothingInServiceWithoutPublications) {
  fs::remove_all(root_ + "/publications");
  fs::create_directory(root_ + "/publications");
  EXPECT_EQ(served_whole(), "");
  EXPECT_EQ(store().last_sequence(), 2U);
  EXPECT_EQ(store().last_digest(), newer_);
}

TEST_F(DamagedRelayStore, TakesTheSequenceFromKWhenItsRecordIsDamaged) {
  for (const std::string &text : std::vector<std::string>{"", "2", "x " + newer_, "2 abc",
                                                          "99999999999999999999 " + newer_}) {
    write_bytes(root_ + "/accepted", text);
    restarted();
    EXPECT_EQ(store().last_sequence(), 2U) << text;
    EXPECT_EQ(store().last_digest(), newer_) << text;
  }
  fs::remove(root_ + "/accepted");
  fs::remove(object("ssid=other"));
  restarted();
  EXPECT_EQ(served_whole(), older_);
  EXPECT_EQ(store().last_sequence(), 2U);
}

TEST_F(DamagedRelayStore, NamesTheMissingFileAndIsWholeWithIt) {
  fs::remove(object("ssid=other"));
  EXPECT_EQ(missing_keys(second), keys{"a"});
  EXPECT_EQ(put(second, 2, "a signature"), newer_);
  EXPECT_EQ(served_whole(), newer_);
  restarted();
  EXPECT_EQ(served_whole(), newer_);
}

TEST_F(DamagedRelayStore, IgnoresWhatAnInterruptionHasLeft) {
  write_bytes(publication(newer_) + "/k.new", "half");
  write_bytes(publication(std::string(64, 'a')) + "/k.new", "half");
  write_bytes(root_ + "/accepted.new", "half");
  fs::create_symlink("publications/" + older_, root_ + "/current.new");
  write_bytes(root_ + "/partial/" + sha256_hex("x"), "half");
  EXPECT_EQ(served_whole(), newer_);
  const std::string next = put(third, 3);
  EXPECT_EQ(served_whole(), next);
}

// Damage while it is served.

TEST_F(RelayStore, SendsNoDamagedFile) {
  put(first, 1);
  flip_bit(object("ssid=b"));
  EXPECT_EQ(why_not_opened({"config", "Wlan", "b", "1"}),
            "config/Wlan/b/1: missing or damaged in " + root_);
  EXPECT_TRUE(store().is_damaged());
  EXPECT_FALSE(exists(object("ssid=b")));
  EXPECT_EQ(opened({"config", "Wlan", "a", "1"}), "ssid=a");
}

TEST_F(RelayStore, SendsNoFileThatHasBecomeALink) {
  put(first, 1);
  fs::rename(object("ssid=b"), dir_ / "outside");
  fs::create_symlink(dir_ / "outside", object("ssid=b"));
  EXPECT_EQ(why_not_opened({"config", "Wlan", "b", "1"}),
            "config/Wlan/b/1: missing or damaged in " + root_);
  EXPECT_EQ(read_bytes(dir_ / "outside"), "ssid=b");
}

TEST_F(RelayStore, NoticesAMissingFileOfTheCurrentPublication) {
  put(first, 1);
  fs::remove(object("ssid=b"));
  EXPECT_EQ(why_not_opened({"config", "Wlan", "b", "1"}),
            "config/Wlan/b/1: missing or damaged in " + root_);
  EXPECT_TRUE(store().is_damaged());
}

TEST_F(RelayStore, SendsNoDamagedK) {
  for (const auto &[suffix, name] : std::map<std::string, std::string>{
           {".k", "k"}, {".checksum", "checksum"}, {".k.p7s", "signature"}}) {
    const std::string digest = put(first, 1, "a signature");
    ASSERT_FALSE(store().is_damaged());
    flip_bit(publication(digest) + "/" + name);
    EXPECT_EQ(why_not_opened(latest(suffix)), "file/knowledge/AP/001122334455/latest/001122334455" +
                                                  suffix + ": missing or damaged in " + root_);
    EXPECT_TRUE(store().is_damaged()) << name;
  }
}

TEST_F(RelayStore, FindsAllOtherDamageAfterTheFirst) {
  put(first, 1);
  flip_bit(object("ssid=a"));
  flip_bit(object("country=DE"));
  EXPECT_EQ(missing_keys(first), keys{});
  EXPECT_NE(why_not_opened({"config", "Wlan", "a", "1"}), "");
  EXPECT_EQ(missing_keys(first), (keys{"a", "z"}));
}

TEST_F(RelayStore, IsRepairedByPuttingTheSameIntoServiceAgain) {
  const std::string digest = put(first, 1);
  const std::time_t since = store().current()->kept_since;
  flip_bit(publication(digest) + "/k");
  flip_bit(object("ssid=a"));
  (void)why_not_opened(latest(".k"));
  ASSERT_TRUE(store().is_damaged());
  EXPECT_EQ(put(first, 1), digest);
  EXPECT_FALSE(store().is_damaged());
  EXPECT_EQ(served_whole(), digest);
  EXPECT_EQ(store().current()->kept_since, since);
}

TEST_F(RelayStore, IsNotDamagedByAFileOfAnotherPublicationOnly) {
  put(first, 1);
  put(second, 2);
  flip_bit(object("ssid=a"));
  EXPECT_EQ(why_not_opened({"config", "Wlan", "a", "1"}),
            "config/Wlan/a/1: missing or damaged in " + root_);
  EXPECT_FALSE(store().is_damaged());
}

TEST_F(RelayStore, KeepsAnOpenFileWhenItIsRemoved) {
  put(first, 1);
  const zot::descriptor file = store().open_member({"config", "Wlan", "a", "1"});
  put(third, 2);
  store().clean(1, {});
  EXPECT_FALSE(exists(object("ssid=a")));
  EXPECT_EQ(text_of(file), "ssid=a");
}

// Removal.

TEST_F(RelayStore, KeepsSoManyPublicationsAndTheirFiles) {
  const std::string one = put(first, 1);
  const std::string two = put(second, 2);
  const std::string three = put(third, 3);
  store().clean(2, {});
  EXPECT_FALSE(exists(publication(one)));
  EXPECT_TRUE(exists(publication(two)));
  EXPECT_EQ(served_whole(), three);
  EXPECT_EQ(opened({"config", "Wlan", "a", "2"}), "ssid=other");
  EXPECT_EQ(opened({"config", "Wlan", "b", "1"}), "ssid=b");
  EXPECT_FALSE(store().open_member({"config", "Wlan", "a", "1"}).is_open());
  EXPECT_EQ(tree(root_ + "/objects").size(), 3U);
}

TEST_F(RelayStore, AlwaysKeepsTheCurrentPublication) {
  put(second, 2);
  const std::string current = put(first, 0);
  restarted();
  store().clean(0, {});
  EXPECT_EQ(served_whole(), current);
  EXPECT_EQ(tree(root_ + "/publications").size(), 2U);
  restarted();
  EXPECT_EQ(served_whole(), current);
}

TEST_F(RelayStore, KeepsWhatIsWantedNext) {
  put(first, 1);
  take({{"Wlan/a/2", "ssid=other"}, {"Wlan/old/1", "never in service"}});
  const auto wanted = manifest_of({{"Wlan/a/2", "ssid=other"}, {"Wlan/c/1", "half of it"}}, 2);
  const std::string half = store().partial(wanted.files[1]);
  write_bytes(half, "half");
  write_bytes(root_ + "/partial/" + sha256_hex("of nobody"), "of");
  store().clean(1, wanted);
  EXPECT_TRUE(exists(half));
  EXPECT_TRUE(exists(object("ssid=other")));
  EXPECT_FALSE(exists(object("never in service")));
  EXPECT_EQ(tree(root_ + "/partial").size(), 1U);
  store().clean(1, {});
  EXPECT_FALSE(exists(half));
  EXPECT_FALSE(exists(object("ssid=other")));
}

TEST_F(RelayStore, RemovesWhatAnInterruptionHasLeft) {
  const std::string digest = put(first, 1);
  const std::string halted = publication(std::string(64, 'a'));
  write_bytes(publication(digest) + "/k.new", "half");
  write_bytes(halted + "/k.new", "half");
  write_bytes(root_ + "/publications/a file", "x");
  write_bytes(root_ + "/objects/zz/odd", "x");
  write_bytes(root_ + "/objects/odd", "x");
  write_bytes(root_ + "/accepted.new", "half");
  fs::create_symlink("publications/x", root_ + "/current.new");
  store().clean(2, {});
  EXPECT_FALSE(exists(publication(digest) + "/k.new"));
  EXPECT_FALSE(exists(halted));
  EXPECT_FALSE(exists(root_ + "/publications/a file"));
  EXPECT_FALSE(exists(root_ + "/objects/zz"));
  EXPECT_FALSE(exists(root_ + "/objects/odd"));
  EXPECT_FALSE(exists(root_ + "/accepted.new"));
  EXPECT_FALSE(exists(root_ + "/current.new"));
  EXPECT_EQ(served_whole(), digest);
}

TEST_F(RelayStore, RemovesNothingOutside) {
  put(first, 1);
  write_bytes(dir_ / "outside/k", "kept");
  fs::create_directory_symlink(dir_ / "outside", publication(std::string(64, 'b')));
  fs::create_directory_symlink(dir_ / "outside", root_ + "/objects/zz");
  fs::create_symlink(dir_ / "outside/k", root_ + "/partial/" + sha256_hex("x"));
  write_bytes(root_ + "/notes", "of somebody");
  store().clean(1, {});
  EXPECT_EQ(read_bytes(dir_ / "outside/k"), "kept");
  EXPECT_EQ(read_bytes(root_ + "/notes"), "of somebody");
  EXPECT_FALSE(exists(publication(std::string(64, 'b'))));
  EXPECT_FALSE(exists(root_ + "/objects/zz"));
  EXPECT_TRUE(tree(root_ + "/partial").empty());
}

// A limit on the size of files stands for a full disk. Descriptors of this process only.
class file_size_limit {
 public:
  explicit file_size_limit(rlim_t bytes) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit low{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &low);
  }
  file_size_limit(const file_size_limit &) = delete;
  file_size_limit &operator=(const file_size_limit &) = delete;
  ~file_size_limit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_{};
  sighandler_t handler_;
};

TEST_F(RelayStore, StaysAsItIsWhenTheMediumIsFull) {
  const std::string digest = put(first, 1);
  take(second);
  const size_t files = tree(root_).size();
  {
    const file_size_limit full(100);
    ASSERT_GT(k_of(second, 2).size(), 100U);
    EXPECT_THROW(store().put_into_service(k_of(second, 2), "s", manifest_of(second, 2)),
                 std::system_error);
    EXPECT_EQ(served_whole(), digest);
    EXPECT_EQ(store().last_sequence(), 1U);
  }
  EXPECT_EQ(tree(root_).size(), files) << "nothing is left of it";
  const std::string next = put(second, 2);
  EXPECT_EQ(served_whole(), next);
}

TEST_F(RelayStore, ServesWholePublicationsWhileTheyAreReplaced) {
  std::vector<contents> configurations;
  for (int number = 1; number <= 3; ++number) {
    contents files;
    for (int key = 0; key < 5; ++key) {
      files["Wlan/k" + std::to_string(key) + "/" + std::to_string(number)] =
          std::string(20000, static_cast<char>('a' + number)) + std::to_string(key);
    }
    configurations.push_back(files);
  }
  put(configurations[0], 1);
  std::array<std::atomic<int>, 3> whole{};
  std::vector<std::jthread> readers;
  for (std::atomic<int> &own : whole) {
    readers.emplace_back([this, &own](const std::stop_token &stop) {
      while (!stop.stop_requested()) {
        const auto content = zotconf::parse_manifest(opened(latest(".k")));
        ASSERT_TRUE(content);
        for (const auto &file : content->files) {
          ASSERT_EQ(sha256_hex(opened(parts_of(file))), file.checksum);
        }
        ++own;
      }
    });
  }
  // A reader has time until the publication after the next one, as `keep` says.
  for (size_t sequence = 2; sequence < 20; ++sequence) {
    put(configurations[sequence % 3], sequence, "signature " + std::to_string(sequence));
    store().clean(2, {});
    for (std::atomic<int> &own : whole) {
      const int before = own;
      wait_until([&] { return own > before; }, "a reader");
    }
  }
  readers.clear();
  EXPECT_FALSE(store().is_damaged());
}

}  // namespace
}  // namespace zot::test
