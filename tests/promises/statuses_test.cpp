// SPDX-License-Identifier: Apache-2.0
// Statuses that a call promises and that no other test provokes through that very call.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <filesystem>
#include <string>

#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/service.hpp"
#include "utilities/owner.hpp"
#include "zot_list.hpp"
#include "zot_priv/model/owners.hpp"

namespace {
using namespace zot::test;
namespace fs = std::filesystem;

// An element that has the first configuration in force and the second one fetched.
class Promise : public testing::Test {
 protected:
  void SetUp() override {
    remote.publish(first_configuration());
    ASSERT_EQ(e.get().status, ZOT_OK);
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
    remote.publish(second_configuration());
    ASSERT_EQ(e.get().status, ZOT_OK);
  }
  // Removes a file of the cache when a message arrives, as another process may at that moment.
  void remove_when(const std::string &message, const std::string &name) {
    e.log().when(message, [this, name] { fs::remove(e.conf_root() + name); });
  }
  [[nodiscard]] zot_ctx *handle() const { return e.handle(); }

  service remote;
  element e{element_options{.port = remote.port(), .timeout = 1}};
  zot::k_owner k = zot::make_k();
};

TEST_F(Promise, CommitMissesAChecksumThatSomebodyRemoved) {
  remove_when("Copy new K to cached storage: Done\n", "knowledge/subsys.checksum");
  EXPECT_EQ(zot_conf_commit(handle()), ZOT_ERR_NO_FILE);
}

TEST_F(Promise, CommitOfTheOperationsMissesAChecksumThatSomebodyRemoved) {
  remove_when("Copy new K to cached storage: Done\n", "knowledge/subsys.checksum");
  EXPECT_EQ(zot_priv_commit_conf(handle()), ZOT_ERR_NO_FILE);
}

TEST_F(Promise, CommitOfKMissesAChecksumThatSomebodyRemoved) {
  remove_when("Copy new K to cached storage: Done\n", "knowledge/subsys.checksum");
  EXPECT_EQ(zot_priv_commit_k(handle(), handle()->slot[ZOT_SLOT_TMP].k), ZOT_ERR_NO_FILE);
}

constexpr const char *refused_is_stored =
    "Move new K.checksum from temporary storage to cached storage as corrupted K.checksum: Done\n";

TEST_F(Promise, RollBackMissesAChecksumThatSomebodyRemoved) {
  remove_when(refused_is_stored, "knowledge/corrupted.checksum");
  EXPECT_EQ(zot_conf_roll_back(handle()), ZOT_ERR_NO_FILE);
}

TEST_F(Promise, RollBackOfTheOperationsMissesAChecksumThatSomebodyRemoved) {
  remove_when(refused_is_stored, "knowledge/corrupted.checksum");
  EXPECT_EQ(zot_priv_commit_fail_k(handle()), ZOT_ERR_NO_FILE);
}

TEST_F(Promise, VerdictsOfTheOperationsEndAtTheTimeOutOfALockedFolder) {
  const zot::descriptor fd(::open(e.conf_root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(fd.get(), LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(zot_priv_commit_conf(handle()), ZOT_ERR_TIMEOUT);
  EXPECT_EQ(zot_priv_commit_fail_k(handle()), ZOT_ERR_TIMEOUT);
}

TEST_F(Promise, CommitNeedsATemporaryConfiguration) {
  zot_priv_free_gpb_ex_safe(handle(), ZOT_SLOT_TMP, nullptr);
  EXPECT_EQ(zot_conf_commit(handle()), ZOT_ERR_WRONG_INPUT);
}

TEST_F(Promise, NoUpdateNeedsTheRootOfTheTemporaryK) {
  zot_priv_k_set_root(handle()->slot[ZOT_SLOT_TMP].k, "");
  EXPECT_EQ(zot_priv_handle_no_update(handle()), ZOT_ERR_WRONG_INPUT);
}

TEST_F(Promise, EntryWithoutAPathIsNotRead) {
  zot_list *const gpbs = handle()->slot[ZOT_SLOT_TMP].gpbs;
  zot_gpb &first = zot::gpb_of(gpbs->next);
  std::free(first.path);
  first.path = nullptr;
  first.stat = ZOT_STAT_ADDED;
  zot_list ret;
  zot_list_init(&ret);
  EXPECT_EQ(zot_priv_get_ret_data_via_gpb(handle(), gpbs, &ret, every_change, e.tmp_root().c_str(),
                                          every_category()),
            ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(zot_priv_read_gpb(handle(), nullptr, gpbs, e.tmp_root().c_str()), ZOT_ERR_WRONG_INPUT);
}

TEST_F(Promise, DownloadOfKTellsWhatIsPublished) {
  remote.publish(first_configuration());
  EXPECT_EQ(ap_download_k(handle(), k.get()), ZOT_NO_UPDATE);
  remote.publish(second_configuration());
  ASSERT_EQ(e.get().status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(handle()), ZOT_OK);
  zot::k_owner refused = zot::make_k();
  EXPECT_EQ(ap_download_k(handle(), refused.get()), ZOT_ERR_SAME_AS_CORRUPTED);
  remote.answer(".checksum", 404, "");
  zot::k_owner unknown = zot::make_k();
  EXPECT_EQ(ap_download_k(handle(), unknown.get()), ZOT_ERR_NOT_FOUND);
}

TEST_F(Promise, DownloadOfKRefusesADamagedChecksum) {
  remote.answer(".checksum", 200, "short");
  EXPECT_EQ(ap_download_k(handle(), k.get()), ZOT_ERR_CORRUPTED);
}

TEST_F(Promise, DownloadOfKRefusesAnyOtherResponse) {
  remote.answer(".checksum", 500, "");
  EXPECT_EQ(ap_download_k(handle(), k.get()), ZOT_ERR_GENERIC);
}

TEST_F(Promise, KInForceIsRead) {
  EXPECT_EQ(zot_priv_read_cur_k(handle(), k.get(), e.conf_root().c_str()), ZOT_OK);
  EXPECT_EQ(text_of(k.get()), first_configuration().k_text());
}

class PromiseOfAFetch : public Promise {
 protected:
  int fetch(const std::string &host) {
    zot_file_mem bytes{};
    const int status = zot_priv_get_k_into_mem(handle(), host.c_str(), &bytes, 0);
    std::free(bytes.data);
    return status;
  }
};

TEST_F(PromiseOfAFetch, RefusesAnyOtherResponse) {
  remote.answer(".k", 500, "");
  EXPECT_EQ(fetch(remote.host()), ZOT_ERR_GENERIC);
}

TEST_F(PromiseOfAFetch, TellsThatNobodyAnswers) {
  EXPECT_EQ(fetch("127.0.0.1:" + std::to_string(closed_port())), ZOT_ERR_REMOTE_UNAVAIL);
}

TEST_F(PromiseOfAFetch, EndsAtTheTimeOut) {
  remote.delay(".k", 3000);
  EXPECT_EQ(fetch(remote.host()), ZOT_ERR_TIMEOUT);
}

TEST(PromiseOfDevMode, GetMissesTheChecksumFile) {
  const temp_dir dev;
  first_configuration().install_dev(dev.path());
  fs::remove(dev / "knowledge/subsys.checksum");
  const element e(element_options{.dev_path = dev.path()});
  EXPECT_EQ(e.get().status, ZOT_ERR_NO_FILE);
}

TEST(PromiseOfDevMode, UpdateNeedsADirectory) {
  const element e;
  const zot::k_owner k = zot::make_k();
  e.handle()->dev_mode = 1;
  e.handle()->conf_root[0] = '\0';
  EXPECT_EQ(zot_priv_update_tmp_k(e.handle(), k.get()), ZOT_ERR_WRONG_INPUT);
}

TEST(PromiseOfSetUp, LogNeedsParameters) {
  zot_ctx bare{};
  EXPECT_EQ(zot_log_init(&bare), ZOT_ERR_WRONG_INPUT);
}

TEST(PromiseOfSetUp, SubSystemRefusesARootForAShell) {
  const element e;
  const env_guard prefix("ZOT_PREFIX_CONF_ROOT", e.dir() / "a b");
  EXPECT_EQ(zot_priv_init_sub_sys(e.handle()), ZOT_ERR_WRONG_INPUT);
}

TEST(PromiseOfSetUp, SubSystemNeedsItsDirectories) {
  const element e;
  write_bytes(e.dir() / "file", "no directory");
  const env_guard prefix("ZOT_PREFIX_CONF_ROOT", e.dir() / "file");
  EXPECT_EQ(zot_priv_init_sub_sys(e.handle()), ZOT_ERR_GENERIC);
}

TEST(PromiseOfSetUp, StepsSucceed) {
  const element e;
  EXPECT_EQ(zot_log_init(e.handle()), ZOT_OK);
  EXPECT_EQ(zot_sub_init_data(e.handle()), ZOT_OK);
  EXPECT_EQ(zot_priv_chk_n_mkdir(e.handle(), (e.dir() / "made").c_str(), "it"), ZOT_OK);
  EXPECT_TRUE(fs::is_directory(e.dir() / "made"));
}

TEST(PromiseOfALoader, NeedsARoot) {
  const element e;
  zot_k *loaded = nullptr;
  EXPECT_EQ(__zot_priv_init_load_k_f(e.handle(), zot_priv_read_cur_k_f, &loaded, "", 0),
            ZOT_ERR_WRONG_INPUT);
  e.handle()->tmp_root[0] = '\0';
  EXPECT_EQ(zot_priv_init_load_tmp_k(e.handle()), ZOT_ERR_WRONG_INPUT);
}

TEST(PromiseOfALoader, RefusesAFileOfSizeZero) {
  const element e;
  install_current(e, first_configuration().put("Wlan", "guest", 1, ""));
  EXPECT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_ERR_WRONG_INPUT);
}

TEST(PromiseOfALoader, MissesTheFile) {
  const element e;
  zot_k *loaded = nullptr;
  EXPECT_EQ(__zot_priv_init_load_k_f(e.handle(), zot_priv_read_cur_k_f, &loaded,
                                     e.conf_root().c_str(), 0),
            ZOT_ERR_NO_FILE);
}

TEST(PromiseOfALoader, RefusesADamagedK) {
  publication damaged = first_configuration();
  damaged.set_checksum_text(std::string(64, '0') + "\n");
  const element e;
  install_corrupted(e, damaged);
  damaged.install_k(e.tmp_root(), "subsys.k", "subsys.checksum");
  EXPECT_EQ(zot_priv_init_load_fail_k(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(zot_priv_init_load_tmp_k(e.handle()), ZOT_ERR_CORRUPTED);
}

// The files of one kind of K, and the two calls that read them.
struct reader {
  const char *name;
  zot_k_reader with_flags;
  int (*without_flags)(zot_ctx *, zot_k *, const char *);
  const char *k;
  const char *checksum;
};

class PromiseOfAReader : public testing::TestWithParam<reader> {
 protected:
  void expect_both(int status, const char *root) {
    zot::k_owner k = zot::make_k();
    EXPECT_EQ(GetParam().with_flags(e.handle(), k.get(), root, 0), status);
    EXPECT_EQ(GetParam().without_flags(e.handle(), k.get(), root), status);
  }

  element e;
};

TEST_P(PromiseOfAReader, NeedsARecord) {
  EXPECT_EQ(GetParam().with_flags(e.handle(), nullptr, "/", 0), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(GetParam().without_flags(e.handle(), nullptr, "/"), ZOT_ERR_NULL_INPUT);
}

TEST_P(PromiseOfAReader, NeedsARoot) {
  expect_both(ZOT_ERR_WRONG_INPUT, "");
}

TEST_P(PromiseOfAReader, MissesTheFile) {
  expect_both(ZOT_ERR_NO_FILE, e.conf_root().c_str());
}

TEST_P(PromiseOfAReader, RefusesADamagedK) {
  publication damaged = first_configuration();
  damaged.set_checksum_text(std::string(64, '0') + "\n");
  damaged.install_k(e.conf_root(), GetParam().k, GetParam().checksum);
  expect_both(ZOT_ERR_CORRUPTED, e.conf_root().c_str());
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, PromiseOfAReader,
    testing::Values(reader{"Current", zot_priv_read_cur_k_f, zot_priv_read_cur_k,
                           "knowledge/subsys.k", "knowledge/subsys.checksum"},
                    reader{"Last", zot_priv_read_prev_k_f, zot_priv_read_prev_k,
                           "knowledge/prev_subsys.k", "knowledge/prev_subsys.checksum"},
                    reader{"Corrupted", zot_priv_read_corrupted_k_f, zot_priv_read_corrupted_k,
                           "knowledge/corrupted.k", "knowledge/corrupted.checksum"},
                    reader{"Temporary", zot_priv_read_tmp_k_f, zot_priv_read_tmp_k, "subsys.k",
                           "subsys.checksum"}),
    [](const auto &tested) { return tested.param.name; });

TEST(PromiseOfReadK, MissesTheFile) {
  const element e;
  const zot::k_owner k = zot::make_k();
  EXPECT_EQ(_zot_priv_read_k_f(e.handle(), k.get(), e.conf_root().c_str(), "k", "checksum", 0),
            ZOT_ERR_NO_FILE);
}

}  // namespace
