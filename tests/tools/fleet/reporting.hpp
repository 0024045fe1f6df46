// SPDX-License-Identifier: Apache-2.0
// A publication of several elements and a folder with their reports.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/process.hpp"
#include "tools/model/manifest.hpp"
#include "tools/output/json.hpp"

namespace zot::test {

inline const std::string some_id = "3f2504e0-4f89-41d3-9a0c-0305e82c3301";
inline const std::string other_id = "3f2504e0-4f89-41d3-9a0c-0305e82c3302";
inline const std::string older_digest(64, 'a');

// What a report says.
struct report_words {
  std::optional<std::string> in_force = std::nullopt;
  std::optional<std::string> refused = std::nullopt;
  std::optional<std::string> reason = std::nullopt;
  std::optional<std::string> problem = std::nullopt;
  std::optional<std::string> relay_problem = std::nullopt;
  std::optional<std::string> offered = std::nullopt;
  std::optional<std::string> relay_refused = std::nullopt;
  bool undo = false;
  std::string subsys = "AP";
  std::string index = "0A";
  std::string time = "2026-11-23T11:00:00Z";
};

inline void set_digest(zotconf::json_node root, const char *name,
                       const std::optional<std::string> &digest) {
  if (digest) {
    root.object(name).set("digest", *digest).set("config_id", some_id);
  } else {
    root.set(name, digest);
  }
}

inline std::string report_text(const report_words &words) {
  zotconf::json_document document;
  zotconf::json_node root = document.root();
  root.set("format", 1)
      .set("time", words.time)
      .set("subsys", words.subsys)
      .set("index", words.index)
      .set("element_known", true);
  root.object("relay")
      .set("state", words.relay_problem ? "problem" : "good")
      .set("problem", words.relay_problem)
      .set("refused", words.relay_refused.has_value())
      .set("refused_digest", words.relay_refused);
  set_digest(root, "offered", words.offered);
  set_digest(root, "in_force", words.in_force);
  if (words.refused) {
    root.object("refused").set("digest", *words.refused).set("reason", words.reason);
  }
  if (words.undo) {
    root.object("undo").set("digest", older_digest).set("time", words.time);
  }
  if (words.problem) {
    root.object("problem").set("text", *words.problem).set("since", words.time);
  }
  return document.text();
}

class Reporting : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(reports_); }

  [[nodiscard]] std::string k_file(const std::string &index, const std::string &suffix) const {
    return publication_ + "/file/knowledge/AP/" + index + "/latest/" + index + suffix;
  }
  [[nodiscard]] static std::string k_text(const std::string &index, const std::string &config_id,
                                          uint64_t sequence) {
    return zotconf::render_manifest({.cluster = "c",
                                     .config_id = config_id,
                                     .firmware = "",
                                     .who = {.subsys = "AP", .index = index},
                                     .sequence = sequence,
                                     .files = {}});
  }
  // Returns the SHA-256 of K.
  std::string put_k(const std::string &index, const std::string &config_id = some_id,
                    uint64_t sequence = 1) const {
    const std::string k = k_text(index, config_id, sequence);
    write_bytes(k_file(index, ".k"), k);
    write_bytes(k_file(index, ".checksum"), sha256_hex(k) + "\n");
    return sha256_hex(k);
  }
  [[nodiscard]] std::string report_file(const std::string &index) const {
    return reports_ + "/AP/" + index + ".json";
  }
  void put_report(const std::string &index, report_words words, std::time_t received = 0) const {
    words.index = index;
    write_bytes(report_file(index), report_text(words));
    if (received != 0) {
      set_time(report_file(index), received);
    }
  }
  static void set_time(const std::string &path, std::time_t when) {
    const std::array<timespec, 2> times = {timespec{.tv_sec = when, .tv_nsec = 0},
                                           timespec{.tv_sec = when, .tv_nsec = 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
  }
  // An element that reports that it has its K in force.
  void put_good(const std::string &index, const std::string &config_id = some_id) const {
    put_report(index, {.in_force = put_k(index, config_id)});
  }
  void put_refusing(const std::string &index, const std::string &config_id = some_id) const {
    put_report(index, {.refused = put_k(index, config_id), .reason = "apply: exit status 1"});
  }
  [[nodiscard]] finished fleet(const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"fleet", publication_, reports_};
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args);
  }

  temp_dir dir_;
  std::string publication_ = dir_ / "pub";
  std::string reports_ = dir_ / "reports";
};

}  // namespace zot::test
