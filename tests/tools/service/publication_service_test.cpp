// SPDX-License-Identifier: Apache-2.0
#include "tools/service/publication_service.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <stop_token>
#include <thread>

#include "tests/support/files.hpp"
#include "tests/tools/support/process.hpp"
#include "tests/tools/support/raw_client.hpp"
#include "tools/files/archive_reader.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/service/http_server.hpp"
#include "tools/service/listener.hpp"

namespace zot::test {
namespace {

constexpr size_t large = size_t{4} << 20;
const std::string both_files = R"({"files": ["/config//Vlan/large/1", "/config//Wlan/a/1"]})";

// A publication folder that counts what is opened.
class counted_files : public zotconf::served_files {
 public:
  explicit counted_files(const std::string &folder) : store_(folder) {}

  [[nodiscard]] zot::descriptor open_member(const std::vector<std::string> &parts) const override {
    ++opened;
    return store_.open_member(parts);
  }
  [[nodiscard]] std::optional<std::string> read_checksum(
      const zotconf::element &who) const override {
    return store_.read_checksum(who);
  }

  mutable std::atomic<int> opened = 0;

 private:
  zotconf::publication_store store_;
};

class PublicationService : public testing::Test, public zotconf::http_service {
 protected:
  PublicationService() {
    write_bytes(dir_ / "pub/config/Vlan/large/1", bytes_);
    write_bytes(dir_ / "pub/config/Wlan/a/1", "ssid=a");
  }

  [[nodiscard]] zotconf::http_work work_of(const zotconf::http_request &request) const override {
    return zotconf::publication_service::is_for_archive(request) ? zotconf::http_work::heavy
                                                                 : zotconf::http_work::quick;
  }
  [[nodiscard]] zotconf::http_answer answer(const zotconf::http_request &request,
                                            const std::stop_token &stop) override {
    return service_.answer(request, stop);
  }
  void failed(const std::exception &error) override { ADD_FAILURE() << error.what(); }
  void finished(const zotconf::http_exchange & /*exchange*/) override {}

  [[nodiscard]] zotconf::http_answer post(const std::string &body) {
    zotconf::http_request request;
    request.method = "POST";
    request.path = "/tgz";
    request.body = body;
    return service_.answer(request, {});
  }
  // Whether an archive has both files and nothing else.
  [[nodiscard]] bool is_right(const std::string &archive) const {
    write_bytes(dir_ / "archive", archive);
    zotconf::unpack(dir_ / "archive",
                    {{"config/Vlan/large/1", {.to = dir_ / "large", .longest = large}},
                     {"config/Wlan/a/1", {.to = dir_ / "a", .longest = 100}}});
    return zotconf::members_of(dir_ / "archive", large).size() == 2 &&
           read_bytes(dir_ / "large") == bytes_ && read_bytes(dir_ / "a") == "ssid=a";
  }

  temp_dir dir_;
  std::string bytes_ = "short";
  counted_files files_{dir_ / "pub"};
  zotconf::element_log elements_;
  zotconf::archive_cache archives_{files_, 0};
  zotconf::publication_service service_{files_, elements_, archives_};
};

// Reads the header of a response. Returns the length of the body.
size_t length_in_header(raw_client &client) {
  static const std::string name = "Content-Length: ";
  const std::string header = client.read_until("\r\n\r\n");
  const size_t at = header.find(name);
  return at == std::string::npos ? 0 : std::stoul(header.substr(at + name.size()));
}

TEST_F(PublicationService, SendsAKeptArchiveToSlowClientsAtTheSameTime) {
  bytes_ = noise(large);
  write_bytes(dir_ / "pub/config/Vlan/large/1", bytes_);
  zotconf::listener listening = zotconf::listen_on("127.0.0.1", 0);
  const auto port = static_cast<std::uint16_t>(listening.port);
  const zotconf::http_server server(std::move(listening.socket), *this);
  std::vector<raw_client> clients;
  for (int i = 0; i < 3; ++i) {
    clients.emplace_back(port);
    clients.back().send("POST /tgz HTTP/1.1\r\nHost: x\r\nContent-Length: " +
                        std::to_string(both_files.size()) + "\r\n\r\n" + both_files);
  }
  std::vector<std::string> bodies(clients.size());
  std::vector<size_t> lengths;
  for (raw_client &client : clients) {
    lengths.push_back(length_in_header(client));
    ASSERT_GT(lengths.back(), large);
  }
  for (bool is_over = false; !is_over;) {
    is_over = true;
    for (size_t i = 0; i < clients.size(); ++i) {
      const size_t left = lengths[i] - bodies[i].size();
      // Each has its own pace, so each is at another place of the file.
      bodies[i] += clients[i].read(std::min(left, (size_t{1} << 20) * (i + 1)));
      is_over = is_over && left == 0;
    }
  }
  for (const std::string &body : bodies) {
    EXPECT_TRUE(is_right(body));
  }
  EXPECT_EQ(files_.opened, 2) << "the archive was made once";
}

TEST_F(PublicationService, KeepsAnArchiveForTheSameFilesOnly) {
  const std::string one_file = R"({"files": ["/config//Wlan/a/1"]})";
  EXPECT_EQ(post(one_file).result, "sent 1 file");
  EXPECT_EQ(post(one_file).result, "sent 1 file");
  EXPECT_EQ(post(R"({"files": ["config/Wlan/a/1", "/config/Wlan/a/1"]})").result, "sent 1 file");
  EXPECT_EQ(files_.opened, 1);
  EXPECT_EQ(post(both_files).result, "sent 2 files");
  EXPECT_EQ(files_.opened, 3);
}

TEST_F(PublicationService, NamesAMissingFileAsTheClientWroteIt) {
  for (int i = 0; i < 2; ++i) {
    const auto answer = post(R"({"files": ["/config//Wlan/a/1", "/config//Wlan/a/2"]})");
    EXPECT_EQ(answer.status, 404);
    EXPECT_EQ(answer.result, "no such file: /config//Wlan/a/2");
  }
  write_bytes(dir_ / "pub/config/Wlan/a/2", "now it is there");
  EXPECT_EQ(post(R"({"files": ["/config//Wlan/a/1", "/config//Wlan/a/2"]})").status, 200);
}

TEST_F(PublicationService, CompressesAsTheCacheSays) {
  write_bytes(dir_ / "pub/config/Wlan/a/1", std::string(1'000'000, 'a'));
  const std::string body = R"({"files": ["/config//Wlan/a/1"]})";
  zotconf::archive_cache smallest(files_, 9);
  const zotconf::publication_service compressing(files_, elements_, smallest);
  zotconf::http_request request;
  request.method = "POST";
  request.path = "/tgz";
  request.body = body;
  EXPECT_GT(post(body).size(), 1'000'000U);
  EXPECT_LT(compressing.answer(request, {}).size(), 10'000U);
}

}  // namespace
}  // namespace zot::test
