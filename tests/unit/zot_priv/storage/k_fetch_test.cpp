// SPDX-License-Identifier: Apache-2.0
// A new K from the service: what is requested, and what the record and the scratch directory hold
// then.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/service.hpp"
#include "tests/unit/zot_priv/storage/storage_records.hpp"

namespace {

using namespace zot::test;
using lines = std::vector<std::string>;

constexpr const char *get_new_k = "zot_priv_get_new_k_by_host";
constexpr const char *checksum_name = "/AABBCCDDEEFF.checksum";
constexpr const char *k_name = "/AABBCCDDEEFF.k";

// An element beside a service that publishes one configuration.
struct fetch {
  explicit fetch(const publication &offered = small_publication()) : published(offered) {
    remote.publish(published);
    tested.log().clear();
  }

  int run() {
    return zot_priv_get_new_k_by_host(tested.handle(), new_k.get(), remote.host().c_str());
  }

  // Sets earlier bytes, which only a cleared record loses.
  void fill_new_k() { fill_data(new_k.get(), "earlier bytes"); }

  void cache(uint32_t slot, const publication &cached) {
    zot_priv_set_k(tested.handle(), slot, make_k_of(tested, cached).release());
    tested.log().clear();
  }

  [[nodiscard]] std::string scratch(const std::string &name) const {
    return tested.tmp_root() + "/" + name;
  }

  publication published;
  service remote;
  element tested;
  zot::k_owner new_k = zot::make_k();
};

TEST(GetNewK, MissingHandleIsRefused) {
  fetch fetched;
  EXPECT_EQ(zot_priv_get_new_k_by_host(nullptr, fetched.new_k.get(), "127.0.0.1:1"),
            ZOT_ERR_NULL_INPUT);
}

TEST(GetNewK, MissingRecordIsRefused) {
  fetch fetched;
  EXPECT_EQ(zot_priv_get_new_k_by_host(fetched.tested.handle(), nullptr, "127.0.0.1:1"),
            ZOT_ERR_NULL_INPUT);
}

TEST(GetNewK, MissingHostIsRefused) {
  fetch fetched;
  EXPECT_EQ(zot_priv_get_new_k_by_host(fetched.tested.handle(), fetched.new_k.get(), nullptr),
            ZOT_ERR_NULL_INPUT);
}

TEST(GetNewK, NewKFillsTheRecord) {
  fetch fetched;
  ASSERT_EQ(fetched.run(), ZOT_OK) << fetched.tested.error_text();
  EXPECT_EQ(data_of(*fetched.new_k), fetched.published.k_text());
  EXPECT_STREQ(fetched.new_k->meta.config_id, "config-1");
  EXPECT_NE(fetched.new_k->gpbs, nullptr);
}

TEST(GetNewK, NewKCarriesTheFixedPathAndTheScratchRoot) {
  fetch fetched;
  ASSERT_EQ(fetched.run(), ZOT_OK);
  EXPECT_EQ(text_of(fetched.new_k->path), "/tmp/zot/subsys.k");
  EXPECT_EQ(text_of(fetched.new_k->root), fetched.tested.handle()->tmp_root);
}

TEST(GetNewK, NewKHasNoChecksumText) {
  fetch fetched;
  set_text(fetched.new_k->checksum, std::string(64, 'a'));
  ASSERT_EQ(fetched.run(), ZOT_OK);
  EXPECT_STREQ(fetched.new_k->checksum, "");
}

TEST(GetNewK, NewKAndChecksumLieInTheScratchDirectory) {
  fetch fetched;
  ASSERT_EQ(fetched.run(), ZOT_OK);
  EXPECT_EQ(read_bytes(fetched.scratch("subsys.k")), fetched.published.k_text());
  EXPECT_EQ(read_bytes(fetched.scratch("subsys.checksum")), fetched.published.checksum_text());
}

TEST(GetNewK, SuccessIsRecorded) {
  fetch fetched;
  mark_status(fetched.tested.handle());
  ASSERT_EQ(fetched.run(), ZOT_OK);
  EXPECT_EQ(fetched.tested.error_text(), "Success");
  EXPECT_EQ(fetched.tested.handle()->err, ZOT_OK);
}

TEST(GetNewK, StepsAreLoggedInOrder) {
  fetch fetched;
  ASSERT_EQ(fetched.run(), ZOT_OK);
  const lines expected = {"2 8 Checksum of K matched, the K is valid.\n",
                          "2 8 K is new version. Start to check content of K.\n",
                          "2 13 Get new K from remote: Done\n", "3 1 Success\n"};
  EXPECT_EQ(lines_of(fetched.tested.log(), get_new_k), expected);
}

TEST(GetNewK, ChecksumIsAskedForBeforeK) {
  fetch fetched;
  ASSERT_EQ(fetched.run(), ZOT_OK);
  const std::vector<request> requests = fetched.remote.requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].path, "/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.checksum");
  EXPECT_EQ(requests[1].path, "/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.k");
}

TEST(GetNewK, WrittenBytesCountBothFiles) {
  fetch fetched;
  const uint64_t before = fetched.tested.handle()->stat.bytes_written;
  ASSERT_EQ(fetched.run(), ZOT_OK);
  EXPECT_EQ(fetched.tested.handle()->stat.bytes_written - before,
            fetched.published.k_text().size() + fetched.published.checksum_text().size());
}

TEST(GetNewK, CachedSlotsStayAsTheyAre) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CURRENT, small_publication("config-current"));
  const zot_k *const current = zot_priv_get_k(fetched.tested.handle(), ZOT_SLOT_CURRENT);
  ASSERT_EQ(fetched.run(), ZOT_OK);
  EXPECT_EQ(zot_priv_get_k(fetched.tested.handle(), ZOT_SLOT_CURRENT), current);
  EXPECT_STREQ(current->meta.config_id, "config-current");
}

TEST(GetNewK, OtherChecksumsThanTheCachedOnesAreLogged) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CURRENT, small_publication("config-current"));
  ASSERT_EQ(fetched.run(), ZOT_OK);
  const lines expected = {
      "3 8 current K/new checksum = " + sha256_hex(small_publication("config-current").k_text()) +
      "/" + fetched.published.checksum_text() + "\n"};
  EXPECT_EQ(lines_of(fetched.tested.log(), "zot_priv_is_chk_dup"), expected);
}

TEST(GetNewK, MissingScratchDirectoryIsCreated) {
  fetch fetched;
  std::filesystem::remove_all(fetched.tested.tmp_root());
  EXPECT_EQ(fetched.run(), ZOT_OK) << fetched.tested.error_text();
  EXPECT_TRUE(exists(fetched.scratch("subsys.k")));
}

TEST(GetNewK, ScratchDirectoryThatCannotBeCreatedIsNamed) {
  fetch fetched;
  const std::string file = fetched.tested.dir() / "a-file";
  write_bytes(file, "in the way");
  set_text(fetched.tested.handle()->tmp_root, file + "/zot");
  EXPECT_EQ(fetched.run(), ZOT_ERR_GENERIC);
  EXPECT_EQ(fetched.tested.error_text(), "fail to create dir " + file + "/zot");
}

TEST(GetNewK, ChecksumOf64CharactersAndANewlineIsAccepted) {
  fetch fetched;
  fetched.remote.answer(checksum_name, 200, sha256_hex(fetched.published.k_text()) + "\n");
  EXPECT_EQ(fetched.run(), ZOT_OK) << fetched.tested.error_text();
}

TEST(GetNewK, ChecksumOf64CharactersAloneIsAccepted) {
  fetch fetched;
  fetched.remote.answer(checksum_name, 200, sha256_hex(fetched.published.k_text()));
  EXPECT_EQ(fetched.run(), ZOT_OK) << fetched.tested.error_text();
}

TEST(GetNewK, ChecksumOf63BytesIsCorrupted) {
  fetch fetched;
  fetched.remote.answer(checksum_name, 200, std::string(63, 'a'));
  EXPECT_EQ(fetched.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(fetched.tested.error_text(), "Wrong checksum size: 63");
}

TEST(GetNewK, ShortChecksumTakesTheDataOfTheRecord) {
  fetch fetched;
  fetched.fill_new_k();
  fetched.remote.answer(checksum_name, 200, std::string(63, 'a'));
  ASSERT_EQ(fetched.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(fetched.new_k->data, nullptr);
  EXPECT_EQ(fetched.new_k->data_len, 0U);
}

TEST(GetNewK, ShortChecksumKeepsKFromBeingDownloaded) {
  fetch fetched;
  fetched.remote.answer(checksum_name, 200, std::string(63, 'a'));
  ASSERT_EQ(fetched.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(fetched.remote.request_count(k_name), 0U);
}

TEST(GetNewK, RolledBackKIsRefusedWithoutADownload) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CORRUPTED, fetched.published);
  EXPECT_EQ(fetched.run(), -13);
  EXPECT_EQ(fetched.remote.request_count(k_name), 0U);
}

TEST(GetNewK, RolledBackKIsCopiedIntoTheScratchDirectory) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CORRUPTED, fetched.published);
  ASSERT_EQ(fetched.run(), ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(read_bytes(fetched.scratch("subsys.k")), fetched.published.k_text());
}

TEST(GetNewK, RolledBackKIsCopiedIntoTheRecord) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CORRUPTED, fetched.published);
  ASSERT_EQ(fetched.run(), ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(data_of(*fetched.new_k), fetched.published.k_text());
  EXPECT_NE(fetched.new_k->data, zot_priv_get_k(fetched.tested.handle(), ZOT_SLOT_CORRUPTED)->data);
}

TEST(GetNewK, RolledBackKIsLogged) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CORRUPTED, fetched.published);
  ASSERT_EQ(fetched.run(), ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(lines_of(fetched.tested.log(), "zot_priv_is_chk_dup"),
            lines{"2 8 New checksum of K is as same as fail K\n"});
  EXPECT_EQ(lines_of(fetched.tested.log(), get_new_k), lines{"2 8 No need to download K\n"});
  EXPECT_EQ(lines_of(fetched.tested.log(), "zot_priv_hd_dup_k").at(0),
            "2 8 K is as same as corrupted K\n");
}

TEST(GetNewK, CurrentKIsNoUpdateWithoutADownload) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CURRENT, fetched.published);
  EXPECT_EQ(fetched.run(), ZOT_NO_UPDATE);
  EXPECT_EQ(fetched.remote.request_count(k_name), 0U);
}

TEST(GetNewK, CurrentKIsCopiedIntoTheScratchDirectory) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CURRENT, fetched.published);
  ASSERT_EQ(fetched.run(), ZOT_NO_UPDATE);
  EXPECT_EQ(read_bytes(fetched.scratch("subsys.k")), fetched.published.k_text());
}

TEST(GetNewK, CurrentKIsLogged) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CURRENT, fetched.published);
  ASSERT_EQ(fetched.run(), ZOT_NO_UPDATE);
  EXPECT_EQ(lines_of(fetched.tested.log(), "zot_priv_is_chk_dup"),
            lines{"2 8 New checksum of K is as same as current K\n"});
  EXPECT_EQ(lines_of(fetched.tested.log(), get_new_k), lines{"2 8 No need to download K\n"});
  EXPECT_EQ(lines_of(fetched.tested.log(), "zot_priv_hd_dup_k").at(0),
            "2 8 K is as same as current K\n");
}

TEST(GetNewK, CorruptedKIsComparedBeforeTheCurrentOne) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CURRENT, fetched.published);
  fetched.cache(ZOT_SLOT_CORRUPTED, fetched.published);
  EXPECT_EQ(fetched.run(), ZOT_ERR_SAME_AS_CORRUPTED);
}

TEST(GetNewK, RolledBackKThatCannotBeWrittenTakesTheDataOfTheRecord) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CORRUPTED, fetched.published);
  std::filesystem::create_directories(fetched.scratch("subsys.k"));
  EXPECT_EQ(fetched.run(), ZOT_ERR_GENERIC);
  EXPECT_EQ(fetched.new_k->data, nullptr);
  EXPECT_EQ(fetched.new_k->data_len, 0U);
}

TEST(GetNewK, CurrentKThatCannotBeWrittenLeavesTheDataInTheRecord) {
  fetch fetched;
  fetched.cache(ZOT_SLOT_CURRENT, fetched.published);
  std::filesystem::create_directories(fetched.scratch("subsys.k"));
  EXPECT_EQ(fetched.run(), ZOT_ERR_GENERIC);
  EXPECT_EQ(data_of(*fetched.new_k), fetched.published.k_text());
}

TEST(GetNewK, KThatDoesNotMatchItsChecksumIsCorrupted) {
  fetch fetched;
  fetched.remote.answer(k_name, 200, "other bytes");
  EXPECT_EQ(fetched.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(fetched.tested.error_text(),
            "[zot_priv_get_new_k_by_host]: New checksum = " + fetched.published.checksum_text() +
                " not match new K");
}

TEST(GetNewK, KThatDoesNotMatchItsChecksumLeavesNoDataInTheRecord) {
  fetch fetched;
  fetched.fill_new_k();
  fetched.remote.answer(k_name, 200, "other bytes");
  ASSERT_EQ(fetched.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(fetched.new_k->data, nullptr);
  EXPECT_EQ(fetched.new_k->data_len, 0U);
}

TEST(GetNewK, InvalidContentIsReportedByTheContentCheck) {
  fetch fetched(small_publication().set_k_text("no object"));
  EXPECT_EQ(fetched.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(fetched.tested.error_text(), "[zot_priv_chk_vail_k_cont]: unable to parse json str");
}

TEST(GetNewK, InvalidContentLeavesNoDataInTheRecord) {
  fetch fetched(small_publication().set_k_text("no object"));
  ASSERT_EQ(fetched.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(fetched.new_k->data, nullptr);
  EXPECT_EQ(fetched.new_k->data_len, 0U);
}

constexpr std::size_t largest_checksum_file = 64 * 1024;
constexpr std::size_t largest_k = 64 * 1024 * 1024;

std::string too_large(const fetch &fetched, const std::string &label, const std::string &suffix) {
  return "curl error get " + label + " from \"" +
         fetched.remote.url("/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF." + suffix) +
         "\": Maximum file size exceeded";
}

TEST(GetNewK, ChecksumFileOf64KiBIsTaken) {
  fetch fetched;
  std::string text = fetched.published.checksum_text();
  text.resize(largest_checksum_file, '\n');
  fetched.remote.answer(checksum_name, 200, text);
  EXPECT_EQ(fetched.run(), ZOT_OK) << fetched.tested.error_text();
}

TEST(GetNewK, LargerChecksumFileIsRefused) {
  fetch fetched;
  std::string text = fetched.published.checksum_text();
  text.resize(largest_checksum_file + 1, '\n');
  fetched.remote.answer(checksum_name, 200, text);
  EXPECT_EQ(fetched.run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(fetched.tested.error_text(), too_large(fetched, "K.checksum", "checksum"));
  EXPECT_EQ(fetched.remote.request_count(k_name), 0U);
}

TEST(GetNewK, LargerKIsRefusedAndNotFetched) {
  fetch fetched;
  fetched.remote.answer(k_name, 200, std::string(largest_k + 1, ' '));
  EXPECT_EQ(fetched.run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(fetched.tested.error_text(), too_large(fetched, "K", "k"));
  EXPECT_FALSE(std::filesystem::exists(fetched.scratch("subsys.k")));
  EXPECT_EQ(fetched.new_k->data, nullptr);
}

TEST(UpdateTmpK, MissingHandleIsRefused) {
  const zot::k_owner k = zot::make_k();
  EXPECT_EQ(zot_priv_update_tmp_k(nullptr, k.get()), ZOT_ERR_NULL_INPUT);
}

TEST(UpdateTmpK, MissingRecordIsNamedWithFunctionAndLine) {
  const element tested;
  EXPECT_EQ(zot_priv_update_tmp_k(tested.handle(), nullptr), ZOT_ERR_NULL_INPUT);
  const std::regex form(R"(\[zot_priv_update_tmp_k \([0-9]+\)\]: Null K file)");
  EXPECT_TRUE(std::regex_match(tested.error_text(), form)) << tested.error_text();
}

// A sub-system whose download of K returns a chosen status.
int chosen_status = ZOT_OK;
const zot_k *asked_record = nullptr;

int download_chosen(zot_ctx *, zot_k *k) {
  asked_record = k;
  return chosen_status;
}

struct adapted {
  explicit adapted(int status) {
    chosen_status = status;
    asked_record = nullptr;
    tested.handle()->fns.download_k = download_chosen;
    mark_status(tested.handle());
    tested.log().clear();
  }

  int run() { return zot_priv_update_tmp_k(tested.handle(), k.get()); }

  element tested;
  zot::k_owner k = zot::make_k();
};

TEST(UpdateTmpK, DownloadOfTheSubSystemGetsTheRecord) {
  adapted update(ZOT_OK);
  EXPECT_EQ(update.run(), ZOT_OK);
  EXPECT_EQ(asked_record, update.k.get());
}

TEST(UpdateTmpK, DownloadIsAnnouncedInTheLog) {
  adapted update(ZOT_OK);
  update.run();
  const lines expected = {"2 12 Do Synchronize K.\n", "3 1 Success\n"};
  EXPECT_EQ(lines_of(update.tested.log(), "zot_priv_update_tmp_k"), expected);
}

TEST(UpdateTmpK, ErrorOfTheDownloadIsReturnedAsItStands) {
  for (const int status : {-6, -11, -13, -16}) {
    adapted update(status);
    EXPECT_EQ(update.run(), status);
    EXPECT_TRUE(has_marked_status(update.tested.handle())) << status;
  }
}

TEST(UpdateTmpK, NoUpdateIsReturnedAsItStands) {
  adapted update(ZOT_NO_UPDATE);
  EXPECT_EQ(update.run(), ZOT_NO_UPDATE);
  EXPECT_TRUE(has_marked_status(update.tested.handle()));
}

TEST(UpdateTmpK, OtherNewsOfTheDownloadIsSuccess) {
  adapted update(1);
  EXPECT_EQ(update.run(), ZOT_OK);
  EXPECT_EQ(update.tested.error_text(), "Success");
}

TEST(UpdateTmpK, SubSystemWithoutADownloadIsRefused) {
  adapted update(ZOT_OK);
  update.tested.handle()->fns.download_k = nullptr;
  EXPECT_EQ(update.run(), ZOT_ERR_NULL_INPUT);
}

// The configuration of a developer's directory.
struct dev_update {
  dev_update() { tested.log().clear(); }

  int run() { return zot_priv_update_tmp_k(tested.handle(), k.get()); }

  temp_dir dir;
  element tested{element_options{.dev_path = dir.path()}};
  zot::k_owner k = zot::make_k();
};

TEST(UpdateTmpK, DevModeReadsTheKnowledgeDirectoryOfTheDevPath) {
  dev_update update;
  small_publication("config-dev").install_dev(update.dir.path());
  ASSERT_EQ(update.run(), ZOT_OK) << update.tested.error_text();
  EXPECT_STREQ(update.k->meta.config_id, "config-dev");
}

TEST(UpdateTmpK, DevModeMakesTheDevPathTheRoot) {
  dev_update update;
  small_publication().install_dev(update.dir.path());
  ASSERT_EQ(update.run(), ZOT_OK);
  EXPECT_EQ(text_of(update.k->root), update.tested.handle()->conf_root);
}

TEST(UpdateTmpK, DevModeIsLogged) {
  dev_update update;
  small_publication().install_dev(update.dir.path());
  update.run();
  const lines expected = {
      std::string("2 10 Dev mode: just read K from: ") + update.tested.handle()->conf_root + "\n",
      "3 1 Success\n"};
  EXPECT_EQ(lines_of(update.tested.log(), "zot_priv_update_tmp_k"), expected);
}

TEST(UpdateTmpK, DevModeWithoutAChecksumFileRecordsTheMissingFile) {
  dev_update update;
  EXPECT_EQ(update.run(), ZOT_ERR_NO_FILE);
  EXPECT_EQ(update.tested.handle()->err, ZOT_ERR_NO_FILE);
}

TEST(UpdateTmpK, DevModeWithADamagedKIsCorrupted) {
  dev_update update;
  small_publication().install_dev(update.dir.path());
  write_bytes(update.dir / "knowledge/subsys.k", "other bytes");
  EXPECT_EQ(update.run(), ZOT_ERR_CORRUPTED);
}

}  // namespace
