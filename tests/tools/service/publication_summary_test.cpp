// SPDX-License-Identifier: Apache-2.0
#include "tools/service/publication_summary.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/tools/support/status_service.hpp"

namespace zot::test {
namespace {

using PublicationSummary = status_service;

TEST_F(PublicationSummary, TellsWhatIsPublished) {
  const json_value seen = status_when_read();
  EXPECT_TRUE(seen["problem"].is_null());
  EXPECT_EQ(seen["look"]["published"].number(), 1);
  EXPECT_EQ(seen["look"]["read"].number(), 1);
  ASSERT_EQ(seen["elements"].size(), 1);
  const json_value element = seen["elements"][0];
  EXPECT_EQ(element["subsys"].text(), "AP");
  EXPECT_EQ(element["index"].text(), "001122334455");
  EXPECT_EQ(element["state"].text(), "good");
  EXPECT_TRUE(element["problem"].is_null());
  EXPECT_EQ(element["config_id"].text(), "3f2504e0-4f89-41d3-9a0c-0305e82c3301");
  EXPECT_EQ(element["cluster"].text(), "cluster-1");
  EXPECT_EQ(element["firmware"].text(), "7.1.0");
  EXPECT_EQ(element["checksum"].text() + "\n", read_bytes(publication_ + checksum_path));
  EXPECT_EQ(element["written"].text().back(), 'Z');
  EXPECT_EQ(element["entries"].number(), 3);
  EXPECT_EQ(element["bytes"].number(), 23);
}

TEST_F(PublicationSummary, CountsEntriesByCategoryOnDemand) {
  (void)status_when_read();
  const json_value element = asked("/element.json?subsys=AP&index=001122334455");
  EXPECT_EQ(element["config_id"].text(), "3f2504e0-4f89-41d3-9a0c-0305e82c3301");
  EXPECT_EQ(element["checked"].text().back(), 'Z');
  const json_value categories = element["categories"];
  ASSERT_EQ(categories.size(), 2);
  EXPECT_EQ(categories[0]["category"].text(), "Wlan");
  EXPECT_EQ(categories[0]["entries"].number(), 2);
  EXPECT_EQ(categories[0]["bytes"].number(), 13);
  EXPECT_EQ(categories[1]["category"].text(), "Zone");
  EXPECT_EQ(categories[1]["entries"].number(), 1);
  EXPECT_EQ(categories[1]["bytes"].number(), 10);
  EXPECT_EQ(get("/element.json?subsys=AP&index=none")->status, 404);
}

TEST_F(PublicationSummary, SeesANewPublication) {
  ASSERT_EQ(status_when_read()["elements"][0]["entries"].number(), 3);
  write_bytes(dir_ / "source/Vlan/v", "id=7");
  publish_source();
  const json_value seen = status_when([](const json_value &now) {
    const json_value element = now["elements"][0];
    return element["state"].text() == "good" && element["entries"].number() == 4;
  });
  EXPECT_EQ(seen["elements"][0]["entries"].number(), 4);
  EXPECT_TRUE(seen["elements"][0]["firmware"].is_null());
}

TEST_F(PublicationSummary, TellsADamagedKWithTheReasonAndWhatToDo) {
  ASSERT_EQ(status_when_read()["elements"][0]["state"].text(), "good");
  write_bytes(publication_ + k_path, read_bytes(publication_ + k_path) + " ");
  const json_value element = problem_element();
  EXPECT_EQ(element["state"].text(), "problem");
  EXPECT_TRUE(element["entries"].is_null());
  const json_value problem = element["problem"];
  EXPECT_NE(problem["reason"].text().find("checksum mismatch"), std::string::npos);
  EXPECT_EQ(problem["status"].number(), -8);
  EXPECT_EQ(problem["status_name"].text(), "ZOT_ERR_CORRUPTED");
  EXPECT_NE(problem["status_meaning"].text(), "");
  EXPECT_NE(problem["advice"].text(), "");
  EXPECT_NE(problem["command"].text().find("--index 001122334455"), std::string::npos);
}

TEST_F(PublicationSummary, TellsFilesThatAreMissingOrWrong) {
  std::filesystem::remove(publication_ + "/config/Wlan/a/1");
  write_bytes(publication_ + "/config/Wlan/b/1", "x");
  service_ = std::make_unique<serving>(publication_);
  const json_value element = problem_element();
  EXPECT_EQ(element["problem"]["reason"].text(),
            "config/Wlan/a/1 is missing; 1 other file is missing or wrong");
  EXPECT_EQ(element["problem"]["status_name"].text(), "ZOT_ERR_REMOTE_UNAVAIL");
  EXPECT_EQ(element["entries"].number(), 3);
  const json_value files = asked("/element.json?subsys=AP&index=001122334455")["files"];
  ASSERT_EQ(files.size(), 2);
  EXPECT_EQ(files[1]["path"].text(), "config/Wlan/b/1");
  EXPECT_EQ(files[1]["text"].text(), "has 1 byte instead of 7");
  publish_source();
  const json_value seen = status_when(
      [](const json_value &now) { return now["elements"][0]["state"].text() == "good"; });
  EXPECT_EQ(seen["look"]["problems"].number(), 0);
}

// The page must show the status that an element really gets.
TEST_F(PublicationSummary, ForetellsTheStatusOfAnElement) {
  struct damage {
    std::string path;
    std::string bytes;  // empty: the file is removed
  };
  for (const auto &[path, bytes] : {damage{"/config/Wlan/a/1", ""}, damage{"/config/Wlan/a/1", "x"},
                                    damage{k_path, "{}"}, damage{checksum_path, ""}}) {
    const temp_dir element;
    std::filesystem::remove(publication_ + path);
    if (!bytes.empty()) {
      write_bytes(publication_ + path, bytes);
    }
    service_ = std::make_unique<serving>(publication_);
    const std::string foretold = problem_element()["problem"]["status_name"].text();
    const finished cycle = run_zotconf({"cycle", "--index", "001122334455", "--commit", "--json"},
                                       {{"ZOT_PREFIX_CONF_ROOT", element.path()},
                                        {"ZOT_PREFIX_TMP_ROOT", element.path()},
                                        {"ZOT_REMOTE_PORT", std::to_string(service_->port())}});
    EXPECT_EQ(json_value(cycle.out)["error"]["name"].text(), foretold) << path << ' ' << bytes;
    std::filesystem::remove(publication_ + path);
    publish_source();
  }
}

TEST_F(PublicationSummary, ReadsAKAgainOnlyWhenItsFileHasChanged) {
  const std::string path = publication_ + k_path;
  const auto time = std::filesystem::last_write_time(path);
  const double up = status_when_read()["service"]["uptime_seconds"].number();
  std::fstream(path, std::ios::in | std::ios::out).write("?", 1);
  std::filesystem::last_write_time(path, time);
  const json_value seen = status_when(
      [up](const json_value &now) { return now["service"]["uptime_seconds"].number() >= up + 3; });
  EXPECT_EQ(seen["elements"][0]["state"].text(), "good");
  std::filesystem::last_write_time(path, time + 1s);
  EXPECT_NE(reason(), "");
}

TEST_F(PublicationSummary, TellsAKWithoutItsChecksum) {
  (void)status_when_read();
  std::filesystem::remove(publication_ + checksum_path);
  EXPECT_NE(reason().find("no checksum file"), std::string::npos);
}

TEST_F(PublicationSummary, ReadsNoLinkOutOfTheFolder) {
  (void)status_when_read();
  std::filesystem::rename(publication_ + k_path, dir_ / "elsewhere.k");
  std::filesystem::create_symlink(dir_ / "elsewhere.k", publication_ + k_path);
  EXPECT_NE(reason().find("K cannot be read"), std::string::npos);
  EXPECT_TRUE(problem_element()["cluster"].is_null());
}

TEST_F(PublicationSummary, TellsAnEmptyFolder) {
  std::filesystem::create_directories(dir_ / "empty");
  service_ = std::make_unique<serving>(dir_ / "empty");
  const json_value seen = status_when_read();
  EXPECT_TRUE(seen["problem"].is_null());
  EXPECT_EQ(seen["elements"].size(), 0);
  EXPECT_EQ(seen["requests"].size(), 0);
}

TEST_F(PublicationSummary, StaysQuickWithTenThousandEntries) {
  (void)status_when_read();
  std::ostringstream k;
  k << R"({"clusterId": "cluster-1", "gpbs": [)";
  for (int i = 1; i <= 10000; ++i) {
    k << (i > 1 ? "," : "") << R"({"path": "/Vlan/v)" << i << R"(/1", "size": 2, "checksum": ")"
      << std::string(64, 'a') << R"("})";
  }
  k << "]}";
  write_bytes(publication_ + k_path, k.str());
  write_bytes(publication_ + checksum_path, sha256_hex(k.str()) + "\n");
  const json_value seen = status_when([](const json_value &now) {
    return now["elements"][0]["entries"].is_null()
               ? false
               : now["elements"][0]["entries"].number() == 10000;
  });
  EXPECT_EQ(seen["elements"][0]["bytes"].number(), 20000);
  EXPECT_NE(reason().find("9999 other files are missing"), std::string::npos);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(get("/status.json"));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

}  // namespace
}  // namespace zot::test
