// SPDX-License-Identifier: Apache-2.0
// The support code on which all other tests rely.
#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <stdlib.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/archive.hpp"
#include "tests/support/env.hpp"
#include "tests/support/files.hpp"
#include "tests/support/publication.hpp"
#include "tests/support/service.hpp"
#include "utilities/owner.hpp"

namespace {
using namespace zot::test;

constexpr const char *k_path = "/file/knowledge/AP/AABB/latest/AABB.k";
constexpr const char *checksum_path = "/file/knowledge/AP/AABB/latest/AABB.checksum";

publication one_wlan() {
  publication published;
  published.put("Wlan", "guest", 1, "bytes");
  return published;
}

std::vector<std::string> listing_of(const std::string &tar_gz) {
  const std::unique_ptr<archive, zot::releaser<archive_read_free>> reader(archive_read_new());
  archive_read_support_filter_gzip(reader.get());
  archive_read_support_format_tar(reader.get());
  archive_read_open_memory(reader.get(), tar_gz.data(), tar_gz.size());
  std::vector<std::string> names;
  archive_entry *entry = nullptr;
  while (archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK) {
    names.emplace_back(archive_entry_pathname(entry));
  }
  return names;
}

TEST(Sha256Hex, IsTheDigestOfTheStandardExample) {
  EXPECT_EQ(sha256_hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(TempDir, IsRemovedAtTheEndWithReadOnlyFolders) {
  std::string path;
  {
    const temp_dir dir;
    path = dir.path();
    write_bytes(dir / "a/b/file", "x");
    std::filesystem::permissions(dir / "a/b", std::filesystem::perms::none);
  }
  EXPECT_FALSE(exists(path));
}

TEST(EnvGuard, BringsAnUnsetVariableBackToUnset) {
  { const env_guard guard("ZOT_SUPPORT_TEST", "value"); }
  EXPECT_EQ(::getenv("ZOT_SUPPORT_TEST"), nullptr);
}

TEST(Publication, WritesTheFilesOfACache) {
  const temp_dir dir;
  one_wlan().install_cache(dir.path());
  const std::vector<std::string> expected = {"config/Wlan/guest/1", "knowledge/subsys.checksum",
                                             "knowledge/subsys.k"};
  EXPECT_EQ(tree(dir.path()), expected);
}

TEST(Publication, StatesTheChecksumOfItsK) {
  const publication published = one_wlan();
  EXPECT_EQ(published.checksum_text(), sha256_hex(published.k_text()) + "\n");
}

TEST(Publication, KeepsOneVersionOfAnObject) {
  publication published = one_wlan();
  published.put("Wlan", "guest", "0x10", "new");
  const std::map<std::string, std::string> expected = {{"/Wlan/guest/0x10", "new"}};
  EXPECT_EQ(published.files(), expected);
}

TEST(Archive, HoldsTheRequestedFilesThatArePublished) {
  const std::string bytes = archive_of(one_wlan(), {"/config//Wlan/guest/1", "/config//Wlan/x/1"});
  EXPECT_EQ(listing_of(bytes), std::vector<std::string>{"config/Wlan/guest/1"});
}

TEST(Archive, KeepsNamesThatLeaveTheDirectory) {
  const std::vector<std::string> expected = {"../outside", "/absolute", "link", "pipe", "null"};
  const std::string bytes =
      make_tar_gz({{.path = "../outside"},
                   {.path = "/absolute"},
                   {.path = "link", .type = member_type::symlink, .target = "/etc"},
                   {.path = "pipe", .type = member_type::fifo},
                   {.path = "null", .type = member_type::chardev}});
  EXPECT_EQ(listing_of(bytes), expected);
}

TEST(Service, ServesKAndChecksumOfAnyElement) {
  service served;
  served.publish(one_wlan());
  httplib::Client client("127.0.0.1", served.port());
  EXPECT_EQ(client.Get(k_path)->body, one_wlan().k_text());
  EXPECT_EQ(client.Get(checksum_path)->body, one_wlan().checksum_text());
  EXPECT_EQ(client.Get("/file/knowledge/AP/AABB/latest/OTHER.k")->status, 404);
}

TEST(Service, AnswersALargeFormWithTheArchive) {
  service served;
  served.publish(one_wlan());
  httplib::Client client("127.0.0.1", served.port());
  const std::string padding(20000, ' ');
  const std::string body = padding + R"({"files":["/config//Wlan/guest/1"]})";
  const httplib::Result result = client.Post("/tgz", body, "application/x-www-form-urlencoded");
  ASSERT_TRUE(result);
  EXPECT_EQ(listing_of(result->body), std::vector<std::string>{"config/Wlan/guest/1"});
  ASSERT_EQ(served.requests().size(), 1U);
  EXPECT_EQ(served.requests()[0].body, body);
}

TEST(Service, AnswersAsToldUntilTheOverridesAreCleared) {
  service served;
  served.publish(one_wlan());
  served.answer(".k", 500, "broken");
  httplib::Client client("127.0.0.1", served.port());
  EXPECT_EQ(client.Get(k_path)->status, 500);
  served.clear_overrides();
  EXPECT_EQ(client.Get(k_path)->status, 200);
}

TEST(Service, BreaksOffWithinTheBody) {
  service served;
  served.publish(one_wlan());
  served.break_off(".k", 10);
  httplib::Client client("127.0.0.1", served.port());
  std::string received;
  const httplib::Result result = client.Get(k_path, [&](const char *data, std::size_t size) {
    received.append(data, size);
    return true;
  });
  EXPECT_FALSE(result);
  EXPECT_EQ(received, one_wlan().k_text().substr(0, 10));
}

TEST(Service, StopsWhileAnAnswerIsDelayed) {
  const auto start = std::chrono::steady_clock::now();
  {
    service served;
    served.delay(".k", 60000);
    httplib::Client client("127.0.0.1", served.port());
    client.set_read_timeout(std::chrono::milliseconds(100));
    EXPECT_FALSE(client.Get(k_path));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(Service, RefusesAPortThatIsTaken) {
  const service served;
  EXPECT_THROW(const service second(served.port()), std::runtime_error);
}

}  // namespace
