// SPDX-License-Identifier: Apache-2.0
#include "tools/service/serve.hpp"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <regex>
#include <thread>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;

const std::string k_url = "/file/knowledge/AP/001122334455/latest/001122334455.k";
const std::string checksum_url = "/file/knowledge/AP/001122334455/latest/001122334455.checksum";

class Serve : public testing::Test {
 protected:
  Serve() {
    write_bytes(dir_ / "source/Wlan/a", "ssid=a");
    write_bytes(dir_ / "source/Wlan/b", "ssid=b");
    write_bytes(dir_ / "source/Zone/z", "country=DE");
    if (publish(dir_ / "source", publication_).status != 0) {
      throw std::runtime_error("publish failed");
    }
    service_ = std::make_unique<serving>(publication_);
  }

  [[nodiscard]] httplib::Client client() const {
    return httplib::Client("127.0.0.1", service_->port());
  }
  [[nodiscard]] httplib::Result get(const std::string &path) const { return client().Get(path); }
  [[nodiscard]] httplib::Result post(const std::string &body) const {
    return client().Post("/tgz", body, "application/json");
  }
  // Unpacks with the tar of the system. Returns the names in the folder "unpacked".
  [[nodiscard]] std::vector<std::string> unpack(const std::string &archive) const {
    write_bytes(dir_ / "gpb.tgz", archive);
    std::filesystem::create_directories(dir_ / "unpacked");
    const std::string command =
        "tar xzf '" + (dir_ / "gpb.tgz") + "' -C '" + (dir_ / "unpacked") + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return tree(dir_ / "unpacked");
  }

  temp_dir dir_;
  std::string publication_ = dir_ / "pub";
  std::unique_ptr<serving> service_;
};

std::string json_text(const std::string &text, const char *name) {
  const zot::json_tree root(cJSON_Parse(text.c_str()));
  const char *const value = cJSON_GetStringValue(cJSON_GetObjectItem(root.get(), name));
  return value != nullptr ? value : "";
}

TEST_F(Serve, AnswersKAsItWasPublished) {
  const auto answer = get(k_url);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_EQ(answer->body, read_bytes(publication_ + k_url));
}

TEST_F(Serve, AnswersTheChecksumAsItWasPublished) {
  const auto answer = get(checksum_url);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_EQ(answer->body, read_bytes(publication_ + checksum_url));
}

TEST_F(Serve, AnswersTheSignatureAsItWasPublished) {
  const std::string signature_url = k_url + ".p7s";
  EXPECT_EQ(get(signature_url)->status, 404) << "not signed yet";
  write_bytes(publication_ + signature_url, std::string("a\0signature", 11));
  const auto answer = get(signature_url);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_EQ(answer->get_header_value("Content-Type"), "application/pkcs7-signature");
  EXPECT_EQ(answer->body, std::string("a\0signature", 11));
  EXPECT_EQ(get("/file/knowledge/AP/001122334455/latest/other.k.p7s")->status, 404);
}

TEST_F(Serve, SeesANewPublicationAtOnce) {
  write_bytes(dir_ / "source/Wlan/a", "ssid=other");
  ASSERT_EQ(publish(dir_ / "source", publication_).status, 0);
  EXPECT_EQ(get(k_url)->body, read_bytes(publication_ + k_url));
}

TEST_F(Serve, AnswersNothingElseThanKChecksumAndSignature) {
  write_bytes(dir_ / "secret.k", "secret");
  write_bytes(publication_ + "/file/knowledge/AP/latest/x.k", "x");
  for (const std::string path :
       {"/.lock", "/config/Wlan/a/1", "/tgz", "/file/knowledge/AP/unknown/latest/unknown.k",
        "/file/knowledge/CP/001122334455/latest/001122334455.k",
        "/file/knowledge/AP/001122334455/latest/other.k",
        "/file/knowledge/AP/001122334455/latest/001122334455.json",
        "/file/knowledge/AP/../latest/...k", "/file/knowledge/AP/%2e%2e/latest/%2e%2e.k",
        "/../secret.k", "/file/../../secret.k", "/file/knowledge/AP/..%2f..%2f/latest/x.k"}) {
    const auto answer = get(path);
    ASSERT_TRUE(answer) << path;
    EXPECT_EQ(answer->status, 404) << path;
    EXPECT_NE(json_text(answer->body, "error"), "") << path;
  }
}

TEST_F(Serve, FollowsNoLinkOutOfTheFolder) {
  write_bytes(dir_ / "outside/LINK/latest/LINK.k", "secret");
  std::filesystem::create_symlink(dir_ / "outside/LINK", publication_ + "/file/knowledge/AP/LINK");
  EXPECT_EQ(get("/file/knowledge/AP/LINK/latest/LINK.k")->status, 404);
}

TEST_F(Serve, SendsJustTheFilesNamed) {
  const auto answer = post(R"({"files": ["/config//Wlan/a/1", "/config//Zone/z/1"]})");
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->status, 200);
  EXPECT_EQ(unpack(answer->body), (std::vector<std::string>{"config/Wlan/a/1", "config/Zone/z/1"}));
  EXPECT_EQ(read_bytes(dir_ / "unpacked/config/Wlan/a/1"), "ssid=a");
  EXPECT_EQ(read_bytes(dir_ / "unpacked/config/Zone/z/1"), "country=DE");
}

TEST_F(Serve, TakesABodyThatIsDeclaredAsAForm) {
  std::string body = R"({"files": ["/config/Wlan/a/1")";
  for (int i = 0; i < 1000; ++i) {
    body += R"(, "/config/Wlan/b/1")";
  }
  const auto answer = client().Post("/tgz", body + "]}", "application/x-www-form-urlencoded");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
}

TEST_F(Serve, SendsAnEmptyArchiveToAClientThatNamesNothing) {
  const auto answer = post("");
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->status, 200);
  EXPECT_TRUE(unpack(answer->body).empty());
}

TEST_F(Serve, NamesTheFileThatIsMissing) {
  const auto answer = post(R"({"files": ["/config/Wlan/a/1", "/config//Wlan/a/99"]})");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 404);
  EXPECT_EQ(json_text(answer->body, "file"), "/config//Wlan/a/99");
  EXPECT_NE(json_text(answer->body, "error"), "");
}

TEST_F(Serve, PacksNoLinkAndNoFolder) {
  std::filesystem::create_symlink(dir_ / "source/Wlan/a", publication_ + "/config/Wlan/a/2");
  std::filesystem::create_directories(publication_ + "/config/Wlan/a/3");
  EXPECT_EQ(post(R"({"files": ["/config/Wlan/a/2"]})")->status, 404);
  EXPECT_EQ(post(R"({"files": ["/config/Wlan/a/3"]})")->status, 404);
}

TEST_F(Serve, RefusesABodyThatIsNoRequest) {
  for (const std::string body :
       {"files", "{", "{}", "[]", R"({"files": "/config/Wlan/a/1"})", R"({"files": [1]})",
        R"({"files": []} and more)", R"({"file": ["/config/Wlan/a/1"]})"}) {
    const auto answer = post(body);
    ASSERT_TRUE(answer) << body;
    EXPECT_EQ(answer->status, 400) << body;
    EXPECT_NE(json_text(answer->body, "error"), "") << body;
  }
}

TEST_F(Serve, AnswersInUtf8WhateverIsAskedFor) {
  const auto refused = post("{\"files\": [\"/config/Wlan/\xff/1\"]}");
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 404);
  EXPECT_EQ(refused->body, "{\"error\":\"no such file\",\"file\":\"/config/Wlan/?/1\"}\n");
}

TEST_F(Serve, RefusesANameThatLeavesTheFolder) {
  for (const std::string name : {"/config/../secret/1", "/config/Wlan/../1", "../../etc/passwd",
                                 "/etc/passwd", "/config/Wlan/a/..", "/config/Wlan/./1"}) {
    const auto answer = post(R"({"files": [")" + name + R"("]})");
    ASSERT_TRUE(answer) << name;
    EXPECT_EQ(answer->status, 400) << name;
    EXPECT_EQ(json_text(answer->body, "file"), name);
  }
}

TEST_F(Serve, PacksTenThousandFiles) {
  std::string body = R"({"files": [)";
  for (int i = 1; i <= 10000; ++i) {
    std::string bytes = "version " + std::to_string(i) + " ";
    bytes.resize(4096, 'x');
    write_bytes(publication_ + "/config/Vlan/v/" + std::to_string(i), bytes);
    body += (i > 1 ? "," : "") + ("\"/config//Vlan/v/" + std::to_string(i) + "\"");
  }
  auto caller = client();
  caller.set_read_timeout(60s);
  const auto answer = caller.Post("/tgz", body + "]}", "application/json");
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->status, 200);
  write_bytes(dir_ / "gpb.tgz", answer->body);
  const std::string command = "cd '" + dir_.path() +
                              "' && tar tzf gpb.tgz >names && "
                              "tar xzOf gpb.tgz config/Vlan/v/9999 >one";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(std::ranges::count(read_bytes(dir_ / "names"), '\n'), 10000);
  EXPECT_TRUE(read_bytes(dir_ / "one").starts_with("version 9999 x"));
}

// The service logs after it has sent the response, so the client may continue before the line is
// written.
std::string wait_for_lines(const serving &service, long lines) {
  std::string output = service.output();
  for (int tries = 0; tries < 400 && std::ranges::count(output, '\n') < lines; ++tries) {
    std::this_thread::sleep_for(5ms);
    output = service.output();
  }
  return output;
}

TEST_F(Serve, LogsOneLineARequest) {
  ASSERT_TRUE(get(checksum_url));
  EXPECT_EQ(std::ranges::count(wait_for_lines(*service_, 2), '\n'), 2);
  ASSERT_TRUE(post("nonsense"));
  const std::string output = wait_for_lines(*service_, 3);
  const std::string time = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ )";
  EXPECT_TRUE(std::regex_match(
      output, std::regex("listening on 127\\.0\\.0\\.1:\\d+\n" + time + "GET " + checksum_url +
                         " 200 65\n" + time + "POST /tgz 400 [1-9]\\d*\n")))
      << output;
}

TEST_F(Serve, LogsAnArchiveWithItsSize) {
  const auto answer = post(R"({"files": ["/config/Wlan/a/1"]})");
  ASSERT_TRUE(answer);
  const std::string output = wait_for_lines(*service_, 2);
  EXPECT_TRUE(output.ends_with("POST /tgz 200 " + std::to_string(answer->body.size()) + "\n"))
      << output;
}

TEST_F(Serve, KeepsALogLineALineWhateverThePathHolds) {
  ASSERT_TRUE(get("/a%0ab%20c"));
  EXPECT_NE(wait_for_lines(*service_, 2).find("GET /a?b?c 404 "), std::string::npos);
}

TEST_F(Serve, LogsNoRequestOfItsStatusPage) {
  ASSERT_TRUE(get("/"));
  ASSERT_TRUE(get("/status.json"));
  ASSERT_TRUE(get("/status.json/more"));
  const std::string output = wait_for_lines(*service_, 2);
  EXPECT_EQ(std::ranges::count(output, '\n'), 2) << output;
  EXPECT_NE(output.find("GET /status.json/more 404 "), std::string::npos) << output;
}

TEST_F(Serve, LogsAJsonObjectARequestWhenAsked) {
  const serving service(publication_, {"--json"});
  httplib::Client caller("127.0.0.1", service.port());
  ASSERT_TRUE(caller.Get("/a%20\"%ff%00"));
  const std::string output = wait_for_lines(service, 2);
  const size_t first_end = output.find('\n');
  const json_value listening(output.substr(0, first_end));
  EXPECT_EQ(listening["listening"]["host"].text(), "127.0.0.1");
  EXPECT_EQ(listening["listening"]["port"].number(), service.port());
  const json_value request(output.substr(first_end + 1, output.size() - first_end - 2));
  EXPECT_TRUE(std::regex_match(request["time"].text(), std::regex(R"(\d{4}-\d\d-\d\dT[\d:]{8}Z)")));
  EXPECT_EQ(request["client"].text(), "127.0.0.1");
  EXPECT_EQ(request["method"].text(), "GET");
  EXPECT_EQ(request["path"].text(), "/a?\"??");
  EXPECT_EQ(request["status"].number(), 404);
  EXPECT_EQ(request["bytes"].number(), std::string("{\"error\":\"not found\"}\n").size());
  EXPECT_GT(request["duration_us"].number(), 0);
  EXPECT_EQ(request["result"].text(), "not found");
}

TEST_F(Serve, StopsCleanlyOnInterrupt) {
  EXPECT_EQ(service_->stop(SIGINT), 0);
}

TEST_F(Serve, StopsCleanlyOnTerminate) {
  EXPECT_EQ(service_->stop(SIGTERM), 0);
}

TEST_F(Serve, StopsWhileAClientIdles) {
  auto idle = client();
  idle.set_keep_alive(true);
  ASSERT_TRUE(idle.Get(checksum_url));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(service_->stop(SIGTERM), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
}

TEST_F(Serve, StartsAgainAtOnceOnThePortThatItHad) {
  const std::string port = std::to_string(service_->port());
  ASSERT_TRUE(get(checksum_url));
  ASSERT_EQ(service_->stop(SIGTERM), 0);
  const background again({"serve", publication_, "--port", port}, {});
  again.wait_for("listening on 127.0.0.1:" + port);
}

TEST_F(Serve, ListensOnAnIpv6Address) {
  background service({"serve", publication_, "--port", "0", "--bind", "::1"}, {});
  service.wait_for("listening on [::1]:");
  const int port = std::stoi(service.out().substr(std::string("listening on [::1]:").size()));
  const auto answer = httplib::Client("::1", port).Get(checksum_url);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
}

TEST_F(Serve, FailsOnAPortThatIsTakenAndSaysWhatHelps) {
  const std::string port = std::to_string(service_->port());
  const finished second = run_zotconf({"serve", publication_, "--port", port});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "zotconf: cannot listen on 127.0.0.1:" + port +
                            ": Address already in use (another program uses this port; --port 0 "
                            "picks a free one)\n");
}

TEST_F(Serve, FailsOnAnAddressThatIsNotOfThisMachine) {
  for (const std::string address : {"no such address", "192.0.2.1"}) {
    const finished failed = run_zotconf({"serve", publication_, "--bind", address, "--port", "0"});
    EXPECT_EQ(failed.status, 1) << address;
    EXPECT_TRUE(failed.err.starts_with("zotconf: cannot listen on " + address + ":0: "))
        << failed.err;
    EXPECT_NE(failed.err.find("--bind needs an address of this machine"), std::string::npos)
        << failed.err;
  }
}

TEST_F(Serve, AppendsTheLinesOfRequestsToALog) {
  const serving service(publication_, {"--log", dir_ / "serve.log"});
  ASSERT_TRUE(httplib::Client("127.0.0.1", service.port()).Get("/asked"));
  const auto is_logged = [&] {
    return count_of("GET /asked 404 ", read_bytes(dir_ / "serve.log")) == 1;
  };
  wait_until(is_logged, "a line of the log");
  EXPECT_EQ(count_of("\n", service.output()), 1U);
}

TEST(ServeFolder, MayBeEmptyAndIsSaidToBe) {
  const temp_dir dir;
  for (const std::string name : {"empty", "locked"}) {
    std::filesystem::create_directories(dir / name);
  }
  write_bytes(dir / "locked/.lock", "");
  for (const std::string name : {"empty", "locked"}) {
    const background service({"serve", dir / name, "--port", "0"}, {});
    service.wait_for("listening on ");
    EXPECT_NE(service.err().find("nothing is published in " + (dir / name)), std::string::npos);
    EXPECT_NE(service.err().find("zotconf publish SRC"), std::string::npos);
  }
}

TEST(ServeFolder, MayHoldMoreThanAPublication) {
  const temp_dir dir;
  write_bytes(dir / "README", "");
  std::filesystem::create_directories(dir / "file/knowledge");
  const background service({"serve", dir.path(), "--port", "0"}, {});
  service.wait_for("listening on ");
  EXPECT_EQ(service.err(), "");
}

TEST(ServeFolder, IsRefusedWhenItIsNoPublication) {
  const temp_dir dir;
  write_bytes(dir / "other/passwd", "");
  write_bytes(dir / "site/Wlan/guest", "");
  write_bytes(dir / "program/config/settings", "");
  write_bytes(dir / "program/main", "");
  for (const std::string name : {"other", "site", "program"}) {
    const finished failed = run_zotconf({"serve", dir / name, "--port", "0"});
    EXPECT_EQ(failed.status, 1) << name;
    EXPECT_EQ(failed.out, "") << name;
    EXPECT_NE(failed.err.find("not a publication folder"), std::string::npos) << failed.err;
    EXPECT_NE(failed.err.find("zotconf publish"), std::string::npos) << failed.err;
  }
}

TEST(ServeUsage, RefusesAFolderThatIsNotThere) {
  EXPECT_EQ(run_zotconf({"serve", "/nonexistent"}).status, 2);
}

TEST(ServeUsage, RefusesAPortOutOfRange) {
  const temp_dir dir;
  EXPECT_EQ(run_zotconf({"serve", dir.path(), "--port", "65536"}).status, 2);
}

}  // namespace
}  // namespace zot::test
