// SPDX-License-Identifier: Apache-2.0
// The steps of fetching a K: one file into memory, failed transfers, the copy of a cached K.
#include <cjson/cJSON.h>
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/service.hpp"
#include "tests/unit/zot_priv/storage/storage_records.hpp"
#include "utilities/owner.hpp"

namespace {

using namespace zot::test;
using lines = std::vector<std::string>;

constexpr const char *into_mem = "zot_priv_get_k_into_mem";
constexpr const char *checksum_path =
    "/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.checksum";
constexpr const char *k_path = "/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.k";
constexpr int kind_k = 0;
constexpr int kind_checksum = 1;

struct transfer {
  explicit transfer(element_options options = {}) : tested(std::move(options)) {
    remote.publish(published);
    tested.log().clear();
    mark_status(tested.handle());
  }
  transfer(const transfer &) = delete;
  transfer &operator=(const transfer &) = delete;
  ~transfer() { std::free(memory.data); }

  int run(int kind) {
    return zot_priv_get_k_into_mem(tested.handle(), remote.host().c_str(), &memory, kind);
  }
  // The whole fetch of a new K.
  int run_fetch() {
    return zot_priv_get_new_k_by_host(tested.handle(), k.get(), remote.host().c_str());
  }

  [[nodiscard]] std::string bytes() const {
    return memory.data != nullptr ? std::string(memory.data, memory.size) : "(none)";
  }

  publication published = small_publication();
  service remote;
  element tested;
  zot_file_mem memory{};
  zot::k_owner k = zot::make_k();
};

TEST(GetKIntoMem, MissingHandleIsRefused) {
  zot_file_mem memory{};
  EXPECT_EQ(zot_priv_get_k_into_mem(nullptr, "127.0.0.1:1", &memory, kind_k), ZOT_ERR_NULL_INPUT);
}

TEST(GetKIntoMem, MissingFileMemoryIsWrongInput) {
  const transfer fetched;
  EXPECT_EQ(zot_priv_get_k_into_mem(fetched.tested.handle(), "127.0.0.1:1", nullptr, kind_k),
            ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(fetched.tested.error_text(), "Null input for file memory.");
}

TEST(GetKIntoMem, OtherKindFetchesNothing) {
  transfer fetched;
  EXPECT_NE(fetched.run(2), ZOT_OK);
  EXPECT_NE(fetched.run(-1), ZOT_OK);
  EXPECT_TRUE(fetched.remote.requests().empty());
}

TEST(GetKIntoMem, KComesIntoMemoryAndIntoTheScratchDirectory) {
  transfer fetched;
  ASSERT_EQ(fetched.run(kind_k), ZOT_OK) << fetched.tested.error_text();
  EXPECT_EQ(fetched.bytes(), fetched.published.k_text());
  EXPECT_EQ(read_bytes(fetched.tested.tmp_root() + "/subsys.k"), fetched.published.k_text());
}

TEST(GetKIntoMem, ChecksumComesIntoMemoryAndIntoTheScratchDirectory) {
  transfer fetched;
  ASSERT_EQ(fetched.run(kind_checksum), ZOT_OK) << fetched.tested.error_text();
  EXPECT_EQ(fetched.bytes(), fetched.published.checksum_text());
  EXPECT_EQ(read_bytes(fetched.tested.tmp_root() + "/subsys.checksum"),
            fetched.published.checksum_text());
}

TEST(GetKIntoMem, SubSystemAndUpperCaseIndexNameTheFile) {
  transfer fetched({.subsys_id = "DP", .sub_idx = "node-a"});
  ASSERT_EQ(fetched.run(kind_k), ZOT_OK) << fetched.tested.error_text();
  EXPECT_EQ(fetched.remote.requests().at(0).path, "/file/knowledge/DP/NODE-A/latest/NODE-A.k");
}

TEST(GetKIntoMem, TransferOfKIsLogged) {
  transfer fetched({.timeout = 4});
  ASSERT_EQ(fetched.run(kind_k), ZOT_OK);
  const std::string url = fetched.remote.url(k_path);
  const lines expected = {
      "2 4 Query with URL = " + url + ", timeout = 4\n",
      std::string("3 4 Target file: ") + fetched.tested.handle()->tmp_root + "/subsys.k\n",
      "2 12 Download " + url + " for \"K\": Done\n"};
  EXPECT_EQ(lines_of(fetched.tested.log(), into_mem), expected);
}

TEST(GetKIntoMem, TransferOfTheChecksumIsLogged) {
  transfer fetched({.timeout = 4});
  ASSERT_EQ(fetched.run(kind_checksum), ZOT_OK);
  const std::string url = fetched.remote.url(checksum_path);
  const lines expected = {
      "2 4 Query with URL = " + url + ", timeout = 4\n",
      std::string("3 4 Target file: ") + fetched.tested.handle()->tmp_root + "/subsys.checksum\n",
      "2 12 Download " + url + " for \"K.checksum\": Done\n"};
  EXPECT_EQ(lines_of(fetched.tested.log(), into_mem), expected);
}

TEST(GetKIntoMem, WrittenBytesCountTheDownload) {
  transfer fetched;
  const uint64_t before = fetched.tested.handle()->stat.bytes_written;
  ASSERT_EQ(fetched.run(kind_k), ZOT_OK);
  EXPECT_EQ(fetched.tested.handle()->stat.bytes_written - before,
            fetched.published.k_text().size());
}

TEST(GetKIntoMem, FailureLeavesTheMemoryEmpty) {
  transfer fetched;
  fetched.remote.answer(".k", 404, "not here");
  ASSERT_EQ(fetched.run(kind_k), ZOT_ERR_NOT_FOUND);
  EXPECT_EQ(fetched.memory.data, nullptr);
  EXPECT_EQ(fetched.memory.size, 0U);
}

TEST(GetKIntoMem, FailureCountsNoBytes) {
  transfer fetched;
  fetched.remote.answer(".k", 404, "not here");
  const uint64_t before = fetched.tested.handle()->stat.bytes_written;
  ASSERT_EQ(fetched.run(kind_k), ZOT_ERR_NOT_FOUND);
  EXPECT_EQ(fetched.tested.handle()->stat.bytes_written, before);
}

struct error_case {
  const char *name;
  int result;
  int http_code;
  int status;
  std::string text;
};

void PrintTo(const error_case &tested, std::ostream *out) {
  *out << tested.name;
}

class FetchError : public testing::TestWithParam<error_case> {};

TEST_P(FetchError, BecomesAStatusAndAText) {
  const element tested;
  remote_file_stat stat{};
  stat.http_code = GetParam().http_code;
  EXPECT_EQ(
      zot_priv_fmt_get_k_curl_error(tested.handle(), GetParam().result, stat, "http://h/k", "K", 7),
      GetParam().status);
  EXPECT_EQ(tested.handle()->err, GetParam().status);
  EXPECT_EQ(tested.error_text(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Results, FetchError,
    testing::Values(error_case{"Timeout", 28, 0, ZOT_ERR_TIMEOUT,
                               R"(curl error get K from "http://h/k": timeout(7))"},
                    error_case{"Refused", CURLE_COULDNT_CONNECT, 0, ZOT_ERR_REMOTE_UNAVAIL,
                               std::string(R"(curl error get K from "http://h/k": )") +
                                   curl_easy_strerror(CURLE_COULDNT_CONNECT)},
                    error_case{"Unsupported", CURLE_UNSUPPORTED_PROTOCOL, 0, ZOT_ERR_REMOTE_UNAVAIL,
                               std::string(R"(curl error get K from "http://h/k": )") +
                                   curl_easy_strerror(CURLE_UNSUPPORTED_PROTOCOL)},
                    error_case{"Broken", CURLE_PARTIAL_FILE, 200, ZOT_ERR_REMOTE_UNAVAIL,
                               std::string(R"(curl error get K from "http://h/k": )") +
                                   curl_easy_strerror(CURLE_PARTIAL_FILE)},
                    error_case{"NotFound", -1, 404, ZOT_ERR_NOT_FOUND,
                               R"(unable to get K from "http://h/k", http return code = 404)"},
                    error_case{"ServerError", -1, 500, ZOT_ERR_GENERIC,
                               R"(unable to get K from "http://h/k", http return code = 500)"},
                    error_case{"NoAnswer", -1, 0, ZOT_ERR_GENERIC,
                               R"(unable to get K from "http://h/k", http return code = 0)"}),
    [](const auto &tested) { return tested.param.name; });

TEST(FetchErrorText, SuccessRecordsNothing) {
  const element tested;
  mark_status(tested.handle());
  EXPECT_EQ(zot_priv_fmt_get_k_curl_error(tested.handle(), 0, remote_file_stat{}, "u", "K", 7),
            ZOT_OK);
  EXPECT_TRUE(has_marked_status(tested.handle()));
}

TEST(FetchOfTheChecksum, SlowServiceIsATimeoutThatTellsTheLimit) {
  transfer fetched({.timeout = 1});
  fetched.remote.delay(".checksum", 1500);
  EXPECT_EQ(fetched.run_fetch(), ZOT_ERR_TIMEOUT);
  EXPECT_EQ(fetched.tested.error_text(), "curl error get K.checksum from \"" +
                                             fetched.remote.url(checksum_path) + "\": timeout(1)");
}

TEST(FetchOfTheChecksum, UnknownFileIsNotFound) {
  transfer fetched;
  fetched.remote.answer(".checksum", 404, "not here");
  EXPECT_EQ(fetched.run_fetch(), -16);
  EXPECT_EQ(fetched.tested.error_text(), "unable to get K.checksum from \"" +
                                             fetched.remote.url(checksum_path) +
                                             "\", http return code = 404");
}

TEST(FetchOfTheChecksum, OtherAnswerIsGeneric) {
  transfer fetched;
  fetched.remote.answer(".checksum", 500, "broken");
  EXPECT_EQ(fetched.run_fetch(), ZOT_ERR_GENERIC);
  EXPECT_EQ(fetched.tested.error_text(), "unable to get K.checksum from \"" +
                                             fetched.remote.url(checksum_path) +
                                             "\", http return code = 500");
}

TEST(FetchOfTheChecksum, UnreachableHostIsUnavailable) {
  transfer fetched;
  const std::string host = "127.0.0.1:" + std::to_string(closed_port());
  EXPECT_EQ(zot_priv_get_new_k_by_host(fetched.tested.handle(), fetched.k.get(), host.c_str()),
            ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(fetched.tested.error_text(), "curl error get K.checksum from \"http://" + host +
                                             checksum_path +
                                             "\": " + curl_easy_strerror(CURLE_COULDNT_CONNECT));
}

TEST(FetchOfTheChecksum, BrokenTransferIsUnavailable) {
  transfer fetched;
  fetched.remote.break_off(".checksum", 10);
  EXPECT_EQ(fetched.run_fetch(), ZOT_ERR_REMOTE_UNAVAIL);
}

TEST(FetchOfTheChecksum, FailureTakesTheDataOfTheRecord) {
  transfer fetched;
  fill_data(fetched.k.get(), "earlier bytes");
  fetched.remote.answer(".checksum", 404, "not here");
  ASSERT_EQ(fetched.run_fetch(), ZOT_ERR_NOT_FOUND);
  EXPECT_EQ(fetched.k->data, nullptr);
  EXPECT_EQ(fetched.k->data_len, 0U);
}

TEST(FetchOfK, SlowServiceIsATimeoutThatTellsTheLimit) {
  transfer fetched({.timeout = 1});
  fetched.remote.delay(".k", 1500);
  EXPECT_EQ(fetched.run_fetch(), ZOT_ERR_TIMEOUT);
  EXPECT_EQ(fetched.tested.error_text(),
            "curl error get K from \"" + fetched.remote.url(k_path) + "\": timeout(1)");
}

TEST(FetchOfK, UnknownFileIsNotFound) {
  transfer fetched;
  fetched.remote.answer(".k", 404, "not here");
  EXPECT_EQ(fetched.run_fetch(), ZOT_ERR_NOT_FOUND);
  EXPECT_EQ(fetched.tested.error_text(),
            "unable to get K from \"" + fetched.remote.url(k_path) + "\", http return code = 404");
}

TEST(FetchOfK, BrokenTransferIsUnavailable) {
  transfer fetched;
  fetched.remote.break_off(".k", 10);
  EXPECT_EQ(fetched.run_fetch(), ZOT_ERR_REMOTE_UNAVAIL);
}

TEST(FetchOfK, FailureLeavesTheDataInTheRecord) {
  transfer fetched;
  fill_data(fetched.k.get(), "earlier bytes");
  fetched.remote.answer(".k", 404, "not here");
  ASSERT_EQ(fetched.run_fetch(), ZOT_ERR_NOT_FOUND);
  EXPECT_EQ(data_of(*fetched.k), "earlier bytes");
}

struct comparison {
  explicit comparison(std::string downloaded) : text(std::move(downloaded)) {
    set_text(cached->checksum, std::string(64, 'a'));
    memory.data = text.data();
    memory.size = static_cast<uint32_t>(text.size());
    tested.log().clear();
    mark_status(tested.handle());
  }

  int run() { return zot_priv_is_chk_dup(tested.handle(), &memory, cached.get(), "some K"); }

  std::string text;
  element tested;
  zot::k_owner cached = zot::make_k();
  zot_file_mem memory{};
};

TEST(IsChkDup, MissingArgumentIsNoComparison) {
  comparison compared(std::string(64, 'a'));
  zot_ctx *const handle = compared.tested.handle();
  const zot_file_mem empty{};
  EXPECT_EQ(zot_priv_is_chk_dup(nullptr, &compared.memory, compared.cached.get(), "l"), -1);
  EXPECT_EQ(zot_priv_is_chk_dup(handle, nullptr, compared.cached.get(), "l"), -1);
  EXPECT_EQ(zot_priv_is_chk_dup(handle, &empty, compared.cached.get(), "l"), -1);
  EXPECT_EQ(zot_priv_is_chk_dup(handle, &compared.memory, nullptr, "l"), -1);
  EXPECT_EQ(zot_priv_is_chk_dup(handle, &compared.memory, compared.cached.get(), nullptr), -1);
}

TEST(IsChkDup, EqualTextIsADuplicate) {
  comparison compared(std::string(64, 'a'));
  EXPECT_EQ(compared.run(), 0);
  EXPECT_EQ(lines_of(compared.tested.log(), "zot_priv_is_chk_dup"),
            lines{"2 8 New checksum of K is as same as some K\n"});
}

TEST(IsChkDup, OnlyTheFirst64BytesCount) {
  comparison compared(std::string(64, 'a') + "\nand more");
  EXPECT_EQ(compared.run(), 0);
}

TEST(IsChkDup, LastOfThe64BytesCounts) {
  comparison compared(std::string(63, 'a') + "b");
  EXPECT_EQ(compared.run(), 1);
}

TEST(IsChkDup, OtherTextIsLoggedWithBoth) {
  comparison compared(std::string(64, 'b'));
  EXPECT_EQ(compared.run(), 1);
  EXPECT_EQ(lines_of(compared.tested.log(), "zot_priv_is_chk_dup"),
            lines{"3 8 some K/new checksum = " + std::string(64, 'a') + "/" + std::string(64, 'b') +
                  "\n"});
}

// A K that was just fetched has only zeros in place of a checksum.
TEST(IsChkDup, ZeroAmongThe64BytesIsNoDuplicate) {
  comparison zeros(std::string(64, '\0'));
  std::memset(zeros.cached->checksum, 0, sizeof zeros.cached->checksum);
  EXPECT_EQ(zeros.run(), 1);
  comparison begun(std::string(64, 'a').replace(0, 1, 1, '\0'));
  begun.cached->checksum[0] = '\0';
  EXPECT_EQ(begun.run(), 1);
  comparison ended(std::string(64, 'a').replace(63, 1, 1, '\0'));
  ended.cached->checksum[63] = '\0';
  EXPECT_EQ(ended.run(), 1);
}

TEST(IsChkDup, FewerBytesAreNoDuplicate) {
  comparison compared(std::string(64, 'a'));
  compared.memory.size = 63;
  EXPECT_EQ(compared.run(), 1);
}

TEST(IsChkDup, CachedKWithoutAChecksumIsNoDuplicate) {
  comparison compared(std::string(64, 'a'));
  compared.cached->checksum[0] = '\0';
  EXPECT_EQ(compared.run(), 1);
}

TEST(IsChkDup, StatusIsLeftAlone) {
  comparison compared(std::string(64, 'a'));
  compared.run();
  EXPECT_TRUE(has_marked_status(compared.tested.handle()));
}

struct duplication {
  duplication() {
    tested.log().clear();
    mark_status(tested.handle());
  }

  int run() { return zot_priv_hd_dup_k(tested.handle(), cached.get(), copy.get(), "some K"); }
  // As a later get does, after the time of files has moved on.
  int run_again() {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    copy = zot::make_k();
    return run();
  }
  [[nodiscard]] std::string target() const { return tested.tmp_root() + "/subsys.k"; }

  publication published = small_publication();
  element tested;
  zot::k_owner cached = make_k_of(tested, published);
  zot::k_owner copy = zot::make_k();
};

TEST(HdDupK, MissingHandleIsRefused) {
  const duplication duplicated;
  EXPECT_EQ(zot_priv_hd_dup_k(nullptr, duplicated.cached.get(), duplicated.copy.get(), "some K"),
            ZOT_ERR_NULL_INPUT);
}

TEST(HdDupK, CopyHoldsTheBytesAndTheChecksum) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK) << duplicated.tested.error_text();
  EXPECT_EQ(data_of(*duplicated.copy), duplicated.published.k_text());
  EXPECT_STREQ(duplicated.copy->checksum, duplicated.cached->checksum);
  EXPECT_NE(duplicated.copy->data, duplicated.cached->data);
}

TEST(HdDupK, CopyHoldsTheMetadata) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  EXPECT_STREQ(duplicated.copy->meta.config_id, "config-1");
  EXPECT_STREQ(duplicated.copy->meta.cluster_id, "cluster-1");
  EXPECT_STREQ(duplicated.copy->meta.firmware_version, "1.0.0");
}

TEST(HdDupK, CopySharesTheParsedContent) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  EXPECT_EQ(duplicated.copy->json, duplicated.cached->json);
  EXPECT_EQ(duplicated.copy->gpbs, duplicated.cached->gpbs);
}

// A tree that a client made may be anything. Each record frees its own.
TEST(HdDupK, TreeOfAClientIsCopied) {
  for (const char *const text : {"[]", "7", R"({"gpbs":[]})"}) {
    duplication duplicated;
    zot_ctx *const handle = duplicated.tested.handle();
    zot_priv_free_k(handle, duplicated.cached.get());
    duplicated.cached->data = ::strdup(text);
    duplicated.cached->data_len = static_cast<uint32_t>(std::strlen(text));
    duplicated.cached->json = cJSON_Parse(text);
    ASSERT_EQ(duplicated.run(), ZOT_OK);
    EXPECT_NE(duplicated.copy->json, duplicated.cached->json);
    EXPECT_EQ(zot_priv_free_k(handle, duplicated.cached.get()), ZOT_OK);
    const zot::c_text copied(cJSON_PrintUnformatted(duplicated.copy->json));
    EXPECT_STREQ(copied.get(), text);
    EXPECT_EQ(zot_priv_free_k(handle, duplicated.copy.get()), ZOT_OK);
  }
}

TEST(HdDupK, CopyCanBeUsedWhenTheCachedKIsGone) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  duplicated.cached.reset();
  const zot::gpb_list_owner gpbs = make_list_of(duplicated.tested.handle(), duplicated.copy.get());
  EXPECT_EQ(length_of(gpbs.get()), 2U);
}

TEST(HdDupK, CachedKCanBeUsedWhenTheCopyIsGone) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  duplicated.copy.reset();
  const zot::gpb_list_owner gpbs =
      make_list_of(duplicated.tested.handle(), duplicated.cached.get());
  EXPECT_EQ(length_of(gpbs.get()), 2U);
}

TEST(HdDupK, CopyCarriesTheFixedPathAndTheScratchRoot) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  EXPECT_EQ(text_of(duplicated.copy->path), "/tmp/zot/subsys.k");
  EXPECT_EQ(text_of(duplicated.copy->root), duplicated.tested.handle()->tmp_root);
}

TEST(HdDupK, LongerFileInTheScratchDirectoryIsReplaced) {
  duplication duplicated;
  write_bytes(duplicated.target(), duplicated.published.k_text() + "rest of a longer K");
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  EXPECT_EQ(read_bytes(duplicated.target()), duplicated.published.k_text());
}

TEST(HdDupK, SuccessIsLoggedAndRecorded) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  const lines expected = {"2 8 K is as same as some K\n", "3 1 Success\n"};
  EXPECT_EQ(lines_of(duplicated.tested.log(), "zot_priv_hd_dup_k"), expected);
  EXPECT_EQ(duplicated.tested.error_text(), "Success");
}

TEST(HdDupK, WrittenBytesCountTheCopy) {
  duplication duplicated;
  const uint64_t before = duplicated.tested.handle()->stat.bytes_written;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  EXPECT_EQ(duplicated.tested.handle()->stat.bytes_written - before,
            duplicated.published.k_text().size());
}

TEST(HdDupK, FileOfAnEarlierCallIsNotWrittenAgain) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  struct stat before {};
  ASSERT_EQ(::stat(duplicated.target().c_str(), &before), 0);
  const uint64_t written = duplicated.tested.handle()->stat.bytes_written;
  ASSERT_EQ(duplicated.run_again(), ZOT_OK);
  struct stat after {};
  ASSERT_EQ(::stat(duplicated.target().c_str(), &after), 0);
  EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
  EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
  EXPECT_EQ(duplicated.tested.handle()->stat.bytes_written, written);
}

TEST(HdDupK, FileThatWasRemovedOrReplacedSinceIsWrittenAgain) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  std::filesystem::remove(duplicated.target());
  ASSERT_EQ(duplicated.run_again(), ZOT_OK);
  EXPECT_EQ(read_bytes(duplicated.target()), duplicated.published.k_text());
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  write_bytes(duplicated.target(), std::string(duplicated.published.k_text().size(), 'x'));
  ASSERT_EQ(duplicated.run_again(), ZOT_OK);
  EXPECT_EQ(read_bytes(duplicated.target()), duplicated.published.k_text());
}

TEST(HdDupK, AnotherKReplacesTheFileOfAnEarlierCall) {
  duplication duplicated;
  ASSERT_EQ(duplicated.run(), ZOT_OK);
  zot_k &cached = *duplicated.cached;
  cached.data[0] = ' ';
  cached.checksum[0] = cached.checksum[0] == '0' ? '1' : '0';
  ASSERT_EQ(duplicated.run_again(), ZOT_OK);
  EXPECT_EQ(read_bytes(duplicated.target()), std::string(cached.data, cached.data_len));
}

TEST(HdDupK, FailedCopyIsLoggedWithItsStatus) {
  duplication duplicated;
  duplicated.copy = std::move(duplicated.cached);
  EXPECT_EQ(zot_priv_hd_dup_k(duplicated.tested.handle(), duplicated.copy.get(),
                              duplicated.copy.get(), "some K"),
            ZOT_ERR_WRONG_INPUT);
  const lines expected = {"2 8 K is as same as some K\n", "0 8 Unable to copy some K: -5\n"};
  EXPECT_EQ(lines_of(duplicated.tested.log(), "zot_priv_hd_dup_k"), expected);
}

TEST(HdDupK, FailedWriteIsRecordedWithANewlineInTheText) {
  duplication duplicated;
  std::filesystem::create_directories(duplicated.target());
  EXPECT_EQ(duplicated.run(), ZOT_ERR_GENERIC);
  EXPECT_EQ(duplicated.tested.error_text(),
            std::string("Unable to duplicate K into tmp root: ") + std::strerror(EISDIR) + "\n");
}

TEST(HdDupK, FailedWriteIsLoggedWithThePath) {
  duplication duplicated;
  std::filesystem::create_directories(duplicated.target());
  duplicated.run();
  const std::string expected = std::string("3 10 Unable to duplicate K into ") +
                               duplicated.tested.handle()->tmp_root +
                               "/subsys.k: " + std::strerror(EISDIR) + "\n";
  EXPECT_EQ(lines_of(duplicated.tested.log(), "zot_priv_hd_dup_k").at(1), expected);
}

}  // namespace
