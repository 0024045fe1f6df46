// SPDX-License-Identifier: Apache-2.0
#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include <string>
#include <vector>

#include "gpb_entries.hpp"
#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/archive.hpp"
#include "tests/support/files.hpp"
#include "tests/support/service.hpp"

namespace {
std::optional<CURLcode> result_of_transfers;
}

// Returns a chosen result: the archive is fetched without a time limit, so no service can make the
// transfer end with this code during a test.
extern "C" CURLcode curl_easy_perform(CURL *curl) {
  if (result_of_transfers.has_value()) {
    return *result_of_transfers;
  }
  static const auto real =
      reinterpret_cast<CURLcode (*)(CURL *)>(dlsym(RTLD_NEXT, "curl_easy_perform"));
  return real(curl);
}

namespace {
using namespace zot::test;

using texts = std::vector<std::string>;

constexpr const char *download_gpb = "ap_download_gpb";
constexpr const char *checksum_path =
    "/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.checksum";

class transfers_that_end_with {
 public:
  explicit transfers_that_end_with(CURLcode code) { result_of_transfers = code; }
  transfers_that_end_with(const transfers_that_end_with &) = delete;
  transfers_that_end_with &operator=(const transfers_that_end_with &) = delete;
  ~transfers_that_end_with() { result_of_transfers.reset(); }
};

// Puts the fetched K into the temporary slot, which frees it.
int download_k_into_slot(const element &e) {
  auto *const k = static_cast<zot_k *>(std::calloc(1, sizeof(zot_k)));
  const int status = ap_download_k(e.handle(), k);
  zot_priv_free_k_ex_safe(e.handle(), ZOT_SLOT_TMP, nullptr);
  zot_priv_set_k(e.handle(), ZOT_SLOT_TMP, k);
  return status;
}

TEST(DownloadKArguments, RefuseANullHandle) {
  zot_k k{};
  EXPECT_EQ(ap_download_k(nullptr, &k), ZOT_ERR_NULL_INPUT);
}

TEST(DownloadKArguments, RefuseANullK) {
  element e(closed_port());
  EXPECT_EQ(ap_download_k(e.handle(), nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(DownloadK, FetchesFromThePortThatIsNamed) {
  service remote;
  remote.publish(first_configuration());
  element e(remote.port());
  ASSERT_EQ(download_k_into_slot(e), ZOT_OK);
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_TMP).k), first_configuration().k_text());
  EXPECT_EQ(remote.request_count(checksum_path), 1U);
}

TEST(DownloadK, LogsTheHostThatIsNamed) {
  service remote;
  remote.publish(first_configuration());
  element e(remote.port());
  download_k_into_slot(e);
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER, "ap_download_k",
                               "URL: " + remote.host() + "\n"}));
}

TEST(DownloadK, FindsARefusedConnectionUnavailable) {
  element e(closed_port());
  EXPECT_EQ(download_k_into_slot(e), ZOT_ERR_REMOTE_UNAVAIL);
}

TEST(DownloadK, TimesOut) {
  service remote;
  remote.publish(first_configuration());
  remote.delay(".checksum", 2500);
  element e(element_options{.port = remote.port(), .timeout = 1});
  EXPECT_EQ(download_k_into_slot(e), ZOT_ERR_TIMEOUT);
}

class DownloadKPort8087 : public testing::Test {
 protected:
  DownloadKPort8087() { remote.publish(first_configuration()); }
  service remote{ZOT_REMOTE_PORT};
};

TEST_F(DownloadKPort8087, IsUsedUnlessAnotherIsNamed) {
  element e;
  ASSERT_EQ(download_k_into_slot(e), ZOT_OK);
  EXPECT_EQ(remote.request_count(checksum_path), 1U);
  EXPECT_FALSE(e.log().contains_part("URL: ")) << e.log().dump();
}

TEST_F(DownloadKPort8087, IsUsedForAnEmptyName) {
  element e;
  const env_guard port("ZOT_REMOTE_PORT", "");
  ASSERT_EQ(download_k_into_slot(e), ZOT_OK);
  EXPECT_FALSE(e.log().contains_part("URL: ")) << e.log().dump();
}

TEST_F(DownloadKPort8087, IsUsedAndLoggedForANameThatIsNoPort) {
  element e;
  const env_guard port("ZOT_REMOTE_PORT", "abc");
  ASSERT_EQ(download_k_into_slot(e), ZOT_OK);
  EXPECT_TRUE(e.log().contains("URL: 127.0.0.1:8087\n"));
}

TEST_F(DownloadKPort8087, ServesAWholeCycle) {
  element e;
  ASSERT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(remote.request_count("/tgz"), 1U);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
}

// An element with the list of the first configuration, ready to download its files.
class DownloadGpb : public testing::Test {
 protected:
  void SetUp() override {
    remote.publish(first_configuration());
    ASSERT_EQ(download_k_into_slot(e), ZOT_OK);
    ASSERT_EQ(zot_priv_get_gpb_list_via_k_json(e.handle(), k(), &head.node), ZOT_OK);
    e.handle()->stat = {};
    e.log().clear();
    remote.clear_requests();
  }
  void TearDown() override { zot_priv_free_gpb_list(e.handle(), &head.node); }

  [[nodiscard]] zot_k *k() const { return slot_of(e, ZOT_SLOT_TMP).k; }
  int run() { return ap_download_gpb(e.handle(), k(), &head.node); }
  [[nodiscard]] std::string command() const {
    return "tar zxvf " + e.tmp_root() + "/gpb.tgz -C " + e.tmp_root() + " > /dev/null 2>&1";
  }

  service remote;
  element e{remote.port()};
  zot_gpb head{.path = nullptr,
               .content = nullptr,
               .size = 0,
               .checksum = {},
               .version = 0,
               .category = 0,
               .stat = 0,
               .key_len = 0,
               .key = {},
               .node = {&head.node, &head.node},
               .verified = nullptr};
};

TEST_F(DownloadGpb, RefusesMissingArguments) {
  EXPECT_EQ(ap_download_gpb(nullptr, k(), &head.node), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(ap_download_gpb(e.handle(), nullptr, &head.node), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(ap_download_gpb(e.handle(), k(), nullptr), ZOT_ERR_NULL_INPUT);
}

TEST_F(DownloadGpb, RefusesAnEntryWithoutAPath) {
  zot_gpb &first = *reinterpret_cast<zot_gpb *>(reinterpret_cast<char *>(head.node.next) -
                                                offsetof(zot_gpb, node));
  std::free(first.path);
  first.path = nullptr;
  EXPECT_EQ(run(), ZOT_ERR_WRONG_INPUT);
}

TEST_F(DownloadGpb, ReadsEveryFileIntoItsEntry) {
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_EQ(loaded_bytes(&head.node), (texts{"guest one", "hq one", "radio"}));
}

TEST_F(DownloadGpb, AsksForTheFilesInTheOrderOfTheList) {
  ASSERT_EQ(run(), ZOT_OK);
  const std::vector<request> made = remote.requests();
  ASSERT_EQ(made.size(), 1U);
  EXPECT_EQ(made[0].method, "POST");
  EXPECT_EQ(made[0].path, "/tgz");
  EXPECT_EQ(requested_names(made[0].body),
            (texts{"/config//Wlan/guest/1", "/config//Zone/hq/1", "/config//Radio/r5/3"}));
}

// A name is "/config/" and the path, truncated to 4,096 bytes with the terminator.
TEST_F(DownloadGpb, AsksForLongPathsUpToTheLengthOfAName) {
  zot_priv_free_gpb_list(e.handle(), &head.node);
  texts expected;
  for (const size_t length : {1U, 5U, 255U, 4086U, 4087U, 4088U, 4094U, 4095U}) {
    const std::string path = "/" + std::string(length - 1, static_cast<char>('a' + length % 26));
    list_add_tail(&head.node, &zot_priv_gpb_new(path.c_str(), 5, 0, "d", "k", 1)->node);
    expected.push_back(("/config/" + path).substr(0, 4095));
  }
  remote.answer("/tgz", 200, "no archive");
  ASSERT_EQ(run(), ZOT_ERR_CORRUPTED);
  ASSERT_EQ(remote.requests().size(), 1U);
  EXPECT_EQ(requested_names(remote.requests()[0].body), expected);
}

TEST_F(DownloadGpb, UnpacksBelowTheScratchDirectory) {
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_EQ(read_bytes(e.tmp_root() + "/config/Wlan/guest/1"), "guest one");
}

TEST_F(DownloadGpb, LogsItsStepsInOrder) {
  ASSERT_EQ(run(), ZOT_OK);
  const log_record *const cost = e.log().find_part("Total cost time: ");
  ASSERT_NE(cost, nullptr) << e.log().dump();
  EXPECT_TRUE(logged_in_order(
      e.log(),
      {{ZOT_LOG_INFO, ZOT_TOPIC_DETAIL, download_gpb, "Add GPB file: \"/config//Wlan/guest/1\"\n"},
       {ZOT_LOG_INFO, ZOT_TOPIC_DETAIL, download_gpb, "Add GPB file: \"/config//Radio/r5/3\"\n"},
       {ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER | ZOT_TOPIC_GPB, download_gpb,
        "Download GPB files from: \"" + remote.url("/tgz") + "\": Done\n"},
       {ZOT_LOG_DEBUG, gpb_file_topics, download_gpb, cost->text},
       {ZOT_LOG_INFO, gpb_topics, download_gpb, "untar GPB files: Done\n"},
       {ZOT_LOG_DEBUG, gpb_topics, download_gpb, "Get new GPB files on tmp: Done\n"}}));
}

TEST_F(DownloadGpb, LogsTheCommandOnceItSucceeded) {
  ASSERT_EQ(run(), ZOT_OK);
  bool found = false;
  for (const log_record &line : e.log().lines()) {
    found =
        found || (line.text == "Run CMD: \"" + command() + "\"\n" && line.level == ZOT_LOG_DEBUG &&
                  line.mask == gpb_file_topics && line.func == download_gpb);
  }
  EXPECT_TRUE(found) << e.log().dump();
}

TEST_F(DownloadGpb, CountsTheBytesOfTheArchive) {
  e.handle()->stat.bytes_written = 1000;
  ASSERT_EQ(run(), ZOT_OK);
  const auto size = std::filesystem::file_size(e.tmp_root() + "/gpb.tgz");
  EXPECT_EQ(e.handle()->stat.bytes_written, 1000 + size);
  EXPECT_TRUE(e.log().contains_part(", Write Bytes = " + std::to_string(size) + "\n"))
      << e.log().dump();
}

TEST_F(DownloadGpb, MakesTheScratchDirectory) {
  std::filesystem::remove_all(e.tmp_root());
  EXPECT_EQ(run(), ZOT_OK);
}

TEST_F(DownloadGpb, SaysWhyTheScratchDirectoryCannotBeMade) {
  write_bytes(e.dir() / "file", "x");
  const std::string below_a_file = e.dir() / "file/scratch";
  below_a_file.copy(e.handle()->tmp_root, sizeof e.handle()->tmp_root);
  e.handle()->tmp_root[below_a_file.size()] = '\0';
  EXPECT_EQ(run(), ZOT_ERR_GENERIC);
  EXPECT_EQ(e.error_text(), "[ap_download_gpb]: mkdir " + below_a_file + ": Not a directory");
}

TEST_F(DownloadGpb, FindsARefusedConnectionUnavailable) {
  e.set_port(closed_port());
  EXPECT_EQ(run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(e.error_text(), std::string("[ap_download_gpb]: curl error:") +
                                curl_easy_strerror(CURLE_COULDNT_CONNECT));
}

TEST_F(DownloadGpb, FindsAnAnswerWithoutAnArchiveUnavailable) {
  remote.answer("/tgz", 500, "broken");
  EXPECT_EQ(run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(e.error_text(), "Unable to get remote files\n");
}

TEST_F(DownloadGpb, ReportsATransferThatTimedOut) {
  const transfers_that_end_with timed_out(CURLE_OPERATION_TIMEDOUT);
  EXPECT_EQ(run(), ZOT_ERR_TIMEOUT);
  EXPECT_EQ(e.error_text(), "[ap_download_gpb]: curl timeout get GPB.");
}

TEST_F(DownloadGpb, WaitsLongerThanItsTimeout) {
  std::uint32_t one_second = 1;
  zot_parm_set(e.handle(), ZOT_PARM_TIMEOUT_GPB, &one_second, sizeof one_second);
  remote.delay("/tgz", 1300);
  EXPECT_EQ(run(), ZOT_OK);
}

TEST_F(DownloadGpb, FindsAnArchiveThatCannotBeUnpackedCorrupted) {
  remote.answer("/tgz", 200, "no archive");
  EXPECT_EQ(run(), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(e.error_text().starts_with("[ap_download_gpb]: fail to run \"" + command() + "\":"))
      << e.error_text();
}

TEST_F(DownloadGpb, NoticesThatTheArchiveCouldNotBeStored) {
  std::filesystem::create_directories(e.tmp_root() + "/gpb.tgz");
  EXPECT_EQ(run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(remote.request_count("/tgz"), 0U);
}

TEST_F(DownloadGpb, RefusesAnArchiveWithALink) {
  remote.answer("/tgz", 200,
                make_tar_gz({{.path = "config/Wlan/guest/1", .bytes = "guest one"},
                             {.path = "config/Zone/hq/1", .bytes = "hq one"},
                             {.path = "config/Radio/r5/3", .bytes = "radio"},
                             {.path = "config/out", .type = member_type::symlink, .target = "/"}}));
  EXPECT_EQ(run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.error_text(),
            "[ap_download_gpb]: archive holds more than GPB files: " + e.tmp_root() + "/gpb.tgz");
  EXPECT_FALSE(exists(e.tmp_root() + "/config/out"));
}

TEST_F(DownloadGpb, RefusesAnArchiveLargerThanItsFilesCanNeed) {
  remote.answer("/tgz", 200, noise(200000));
  EXPECT_EQ(run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(e.error_text(), std::string("[ap_download_gpb]: curl error:") +
                                curl_easy_strerror(CURLE_FILESIZE_EXCEEDED));
}

TEST_F(DownloadGpb, TakesFilesThatCannotBePacked) {
  zot_priv_free_gpb_list(e.handle(), &head.node);
  remote.publish(first_configuration().put("Wlan", "large", 1, noise(3000000)));
  ASSERT_EQ(download_k_into_slot(e), ZOT_OK);
  ASSERT_EQ(zot_priv_get_gpb_list_via_k_json(e.handle(), k(), &head.node), ZOT_OK);
  EXPECT_EQ(run(), ZOT_OK) << e.error_text();
}

TEST_F(DownloadGpb, StopsAtAMemberLargerThanTheWholeArchiveMayBe) {
  remote.answer("/tgz", 200,
                make_tar_gz({{.path = "config/Wlan/guest/1", .bytes = std::string(4000000, '\0')},
                             {.path = "config/Zone/hq/1", .bytes = "hq one"},
                             {.path = "config/Radio/r5/3", .bytes = "radio"}}));
  EXPECT_EQ(run(), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(e.error_text().starts_with("[ap_download_gpb]: fail to run \"" + command() + "\":"))
      << e.error_text();
}

TEST_F(DownloadGpb, TellsTheSizeOfAFileThatIsLongerThanStated) {
  remote.publish(first_configuration().damage("Wlan", "guest", std::string(60000, 'x')));
  EXPECT_EQ(run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.error_text(), "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=9/60000");
}

TEST_F(DownloadGpb, ShowsTheCommandWithoutItsLimits) {
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_TRUE(e.log().contains("Run system command: " + command() + " done, ret = 0\n"))
      << e.log().dump();
  EXPECT_FALSE(e.log().contains_part("ulimit")) << e.log().dump();
}

// How far an unpacker gets is undefined; the next archive overwrites its result.
TEST_F(DownloadGpb, LeavesOnlyWhatKNamesOfAnArchiveThatCannotBeUnpacked) {
  const std::string whole = make_tar_gz({{.path = "config/Wlan/guest/1", .bytes = "guest one"},
                                         {.path = "config/Vlan/other/1", .bytes = "other"},
                                         {.path = "config/Wlan/big/1", .bytes = noise(20000)}});
  remote.answer("/tgz", 200, whole.substr(0, whole.size() / 2));
  ASSERT_EQ(run(), ZOT_ERR_CORRUPTED);
  texts left = tree(e.tmp_root());
  std::erase(left, "config/Wlan/guest/1");
  EXPECT_EQ(left, (texts{"gpb.tgz", "subsys.checksum", "subsys.k"}));
}

TEST_F(DownloadGpb, LeavesTheFilesOfAnArchiveWhenOneIsDamaged) {
  remote.publish(first_configuration().damage("Radio", "r5", "RADIO"));
  ASSERT_EQ(run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(tree(e.tmp_root()),
            (texts{"config/Radio/r5/3", "config/Wlan/guest/1", "config/Zone/hq/1", "gpb.tgz",
                   "subsys.checksum", "subsys.k"}));
}

TEST_F(DownloadGpb, LeavesTheBeginningOfATransferThatFailed) {
  remote.break_off("/tgz", 100);
  ASSERT_EQ(run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(tree(e.tmp_root()), (texts{"gpb.tgz", "subsys.checksum", "subsys.k"}));
}

TEST_F(DownloadGpb, StoresTheArchiveInAFileOfItsOwn) {
  write_bytes(e.dir() / "kept", "kept");
  std::filesystem::create_symlink(e.dir() / "kept", e.tmp_root() + "/gpb.tgz");
  EXPECT_EQ(run(), ZOT_OK);
  EXPECT_EQ(read_bytes(e.dir() / "kept"), "kept");
}

// An element with the first configuration in force. The service offers the second one with an
// archive that has a link and other bytes for a file of the first.
class FailedUpdate : public testing::Test {
 protected:
  void SetUp() override {
    remote.publish(first_configuration());
    ASSERT_EQ(e.get().status, ZOT_OK);
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
    fail();
  }
  void fail() {
    remote.publish(second_configuration());
    remote.answer("/tgz", 200,
                  make_tar_gz({{.path = "config/Radio/r5/3", .bytes = "RADIO"},
                               {.path = "config/x", .type = member_type::symlink, .target = "/"}}));
    ASSERT_EQ(e.get().status, ZOT_ERR_CORRUPTED);
    remote.clear_overrides();
  }
  void expect_first(const returned_list &got) {
    ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
    const returned_entry *const radio = got.find(ZOT_CAT_RADIO, "r5");
    ASSERT_NE(radio, nullptr);
    EXPECT_EQ(radio->bytes, "radio");
  }

  service remote;
  element e{remote.port()};
};

TEST_F(FailedUpdate, LeavesTheFilesOfCachedRequests) {
  expect_first(e.get(ZOT_STAT_CACHED | every_change));
}

TEST_F(FailedUpdate, DoesNotHinderTheConfigurationInForce) {
  remote.publish(first_configuration());
  expect_first(e.get());
}

TEST_F(FailedUpdate, DoesNotHinderTheNextOne) {
  EXPECT_EQ(e.get().status, ZOT_OK) << e.error_text();
}

TEST_F(FailedUpdate, KeepsTheFilesThatStayedRight) {
  element other(remote.port());
  remote.publish(first_configuration());
  ASSERT_EQ(other.get().status, ZOT_OK);
  remote.publish(second_configuration());
  remote.answer("/tgz", 200, "no archive");
  ASSERT_EQ(other.get().status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(tree(other.tmp_root() + "/config"), (texts{"Radio/r5/3", "Wlan/guest/1", "Zone/hq/1"}));
}

TEST_F(FailedUpdate, WithdrawsWhatWasFetchedBeforeIt) {
  element other(remote.port());
  remote.publish(first_configuration());
  ASSERT_EQ(other.get().status, ZOT_OK);
  remote.publish(second_configuration());
  remote.answer("/tgz", 200, "no archive");
  ASSERT_EQ(other.get().status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(other.get(ZOT_STAT_CACHED | every_change).status, ZOT_ERR_NO_CACHE);
}

// What a process that ended while unpacking leaves behind.
class Leftovers : public testing::TestWithParam<const char *> {
 protected:
  service remote;
  element e{remote.port()};
};

TEST_P(Leftovers, LinkInThePlaceOfADownloadIsNotFollowed) {
  write_bytes(e.dir() / "kept", "kept");
  std::filesystem::create_symlink(e.dir() / "kept", e.tmp_root() + "/" + GetParam());
  remote.publish(first_configuration());
  EXPECT_EQ(e.get().status, ZOT_OK) << e.error_text();
  EXPECT_EQ(read_bytes(e.dir() / "kept"), "kept");
}

TEST_P(Leftovers, FifoInThePlaceOfADownloadIsNoHindrance) {
  ASSERT_EQ(::mkfifo((e.tmp_root() + "/" + GetParam()).c_str(), 0600), 0);
  remote.publish(first_configuration());
  EXPECT_EQ(e.get().status, ZOT_OK) << e.error_text();
}

TEST_P(Leftovers, DirectoryInThePlaceOfADownloadIsNoHindrance) {
  write_bytes(e.tmp_root() + "/" + GetParam() + "/file", "bytes");
  remote.publish(first_configuration());
  EXPECT_EQ(e.get().status, ZOT_OK) << e.error_text();
}

INSTANTIATE_TEST_SUITE_P(Places, Leftovers,
                         testing::Values("subsys.k", "subsys.k.tmp", "subsys.checksum",
                                         "subsys.checksum.tmp", "gpb.tgz"),
                         [](const auto &tested) {
                           std::string name = tested.param;
                           std::erase(name, '.');
                           return name;
                         });

TEST_F(DownloadGpb, FindsAnArchiveThatLacksAFileCorrupted) {
  remote.publish(first_configuration().remove("Radio", "r5"));
  EXPECT_EQ(run(), ZOT_ERR_CORRUPTED);
  EXPECT_FALSE(e.log().contains("Get new GPB files on tmp: Done\n"));
}

TEST_F(DownloadGpb, RemovesFilesOfEarlierDownloads) {
  write_bytes(e.tmp_root() + "/config/Wlan/guest/0", "guest zero");
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_EQ(tree(e.tmp_root() + "/config"), (texts{"Radio/r5/3", "Wlan/guest/1", "Zone/hq/1"}));
}

TEST_F(DownloadGpb, PostsAnEmptyBodyForAnEmptyList) {
  zot_priv_free_gpb_list(e.handle(), &head.node);
  EXPECT_EQ(run(), ZOT_OK);
  ASSERT_EQ(remote.requests().size(), 1U);
  EXPECT_EQ(remote.requests()[0].body, "");
}

}  // namespace
