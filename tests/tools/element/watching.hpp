// SPDX-License-Identifier: Apache-2.0
// An element that `zotconf watch` keeps up to date, and its service.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/tools/support/process.hpp"

namespace zot::test {

namespace fs = std::filesystem;

inline constexpr int ok = 0;
inline constexpr int failed = 1;
inline constexpr int usage = 2;

inline const std::string committed = "new configuration applied and committed: ";

inline bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

inline std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

class Watch : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_ / "tmp");
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    publish_source();
    service_ = std::make_unique<serving>(dir_ / "pub");
    variables_ = {{"ZOT_DEV_PATH", ""},
                  {"ZOT_PREFIX_CONF_ROOT", dir_ / "device"},
                  {"ZOT_PREFIX_TMP_ROOT", dir_ / "device"},
                  {"ZOT_REMOTE_PORT", std::to_string(service_->port())},
                  {"TMPDIR", dir_ / "tmp"},
                  {"PROBE", dir_ / "probe"},
                  {"SCRATCH", dir_ / "device/tmp/zot"}};
  }

  void put(const std::string &name, const std::string &bytes) const {
    write_bytes(dir_ / "source/" + name, bytes);
  }
  void publish_source(const std::vector<std::string> &more = {}) const {
    ASSERT_EQ(publish(dir_ / "source", dir_ / "pub", more).status, 0);
  }
  // Publishes a configuration that deletes Zone/z, modifies Wlan/a and adds Ap/x.
  void publish_changes() const {
    put("Wlan/a", "ssid=other");
    put("Ap/x", "model=x");
    fs::remove(dir_ / "source/Zone/z");
    publish_source();
  }
  // Hides and restores all that is published for the element.
  void hide_publication() const { fs::rename(dir_ / "pub/file/knowledge", dir_ / "pub/hidden"); }
  void show_publication() const { fs::rename(dir_ / "pub/hidden", dir_ / "pub/file/knowledge"); }

  [[nodiscard]] std::unique_ptr<background> watch(const std::string &command,
                                                  const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"watch",   "--index", "001122334455",  "--backoff-min", "20ms",
                                     "--apply", command,   "--backoff-max", "100ms"};
    args.insert(args.end(), more.begin(), more.end());
    if (std::ranges::find(more, "--every") == more.end()) {
      args.insert(args.end(), {"--every", "20ms"});
    }
    return std::make_unique<background>(args, variables_);
  }
  // Waits until `count` more gets have reached the service.
  void wait_for_gets(size_t count) const {
    const auto gets = [this] { return count_of(".checksum", service_->output()); };
    const size_t wanted = gets() + count;
    wait_until([&] { return gets() >= wanted; }, "gets");
  }
  [[nodiscard]] std::string in_force(const std::string &name) const {
    return read_bytes(dir_ / "device/writable/zot/config/" + name);
  }
  [[nodiscard]] std::string probe() const {
    wait_until([this] { return exists(dir_ / "probe") && has(read_bytes(dir_ / "probe"), "\n"); },
               "the probe");
    std::string text = read_bytes(dir_ / "probe");
    return text.substr(0, text.find('\n'));
  }

  temp_dir dir_;
  std::unique_ptr<serving> service_;
  environment variables_;
};

}  // namespace zot::test
