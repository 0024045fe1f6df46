// SPDX-License-Identifier: Apache-2.0
// Configurations and checks that the cycle tests share.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/element.hpp"
#include "tests/support/files.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/publication.hpp"
#include "zot_conf.h"

namespace zot::test {

inline constexpr std::uint32_t k_file_topics = ZOT_TOPIC_K | ZOT_TOPIC_FILE;
inline constexpr std::uint32_t k_topics = ZOT_TOPIC_K | ZOT_TOPIC_GENERAL;
inline constexpr std::uint32_t gpb_file_topics = ZOT_TOPIC_GPB | ZOT_TOPIC_FILE;
inline constexpr std::uint32_t gpb_topics = ZOT_TOPIC_GPB | ZOT_TOPIC_GENERAL;

// Three objects; the second configuration changes one, drops one, adds one and keeps one.
inline publication first_configuration() {
  publication made;
  made.put("Wlan", "guest", 1, "guest one");
  made.put("Zone", "hq", 1, "hq one");
  made.put("Radio", "r5", 3, "radio");
  made.config_id("00000000-0000-0000-0000-000000000001");
  return made;
}

inline publication second_configuration() {
  publication made = first_configuration();
  made.put("Wlan", "guest", 2, "guest two");
  made.put("Wlan", "staff", 1, "staff one");
  made.remove("Zone", "hq");
  made.config_id("00000000-0000-0000-0000-000000000002");
  return made;
}

inline publication third_configuration() {
  publication made = second_configuration();
  made.put("Wlan", "guest", 3, "guest three");
  made.config_id("00000000-0000-0000-0000-000000000003");
  return made;
}

// An expected message: level, topics, operation, and text with its newline.
struct log_line {
  std::uint32_t level;
  std::uint32_t mask;
  std::string func;
  std::string text;
};

inline testing::AssertionResult logged(const log_capture &log, const log_line &want) {
  const log_record *const found = log.find(want.text);
  if (found == nullptr) {
    return testing::AssertionFailure() << "not logged: " << want.text << "in\n" << log.dump();
  }
  if (found->level != want.level || found->mask != want.mask || found->func != want.func) {
    return testing::AssertionFailure()
           << want.text << "was logged with level " << found->level << ", mask " << found->mask
           << " by " << found->func << " instead of level " << want.level << ", mask " << want.mask
           << " by " << want.func;
  }
  return testing::AssertionSuccess();
}

// All messages in that order; others may come between them.
inline testing::AssertionResult logged_in_order(const log_capture &log,
                                                const std::vector<log_line> &wanted) {
  std::size_t from = 0;
  for (const log_line &want : wanted) {
    if (const auto result = logged(log, want); !result) {
      return result;
    }
    while (from < log.lines().size() && log.lines()[from].text != want.text) {
      ++from;
    }
    if (from == log.lines().size()) {
      return testing::AssertionFailure() << "out of order: " << want.text << "in\n" << log.dump();
    }
  }
  return testing::AssertionSuccess();
}

// Every file below a directory with its bytes.
inline std::map<std::string, std::string> contents(const std::string &directory) {
  std::map<std::string, std::string> found;
  for (const std::string &name : tree(directory)) {
    found.emplace(name, read_bytes(directory + "/" + name));
  }
  return found;
}

// Whether the cache has a configuration in force.
inline testing::AssertionResult is_in_force_on_disk(const std::string &conf_root,
                                                    const publication &published) {
  const auto found = contents(conf_root);
  std::map<std::string, std::string> wanted = {
      {"knowledge/subsys.k", published.k_text()},
      {"knowledge/subsys.checksum", published.checksum_text()}};
  for (const auto &[path, bytes] : published.files()) {
    wanted.emplace("config" + path, bytes);
  }
  for (const auto &[path, bytes] : wanted) {
    if (const auto at = found.find(path); at == found.end() || at->second != bytes) {
      return testing::AssertionFailure()
             << path << (at == found.end() ? " is missing" : " holds other bytes");
    }
  }
  for (const auto &[path, bytes] : found) {
    if (path.starts_with("config/") && !wanted.contains(path)) {
      return testing::AssertionFailure() << path << " belongs to another configuration";
    }
  }
  return testing::AssertionSuccess();
}

// "Category/key=stat" in the order of the list.
inline std::vector<std::string> marks_of(const returned_list &list) {
  std::vector<std::string> marks;
  for (const returned_entry &entry : list.entries) {
    marks.push_back(std::string(zot_util_cat2str(entry.category)) + "/" + entry.key + "=" +
                    std::to_string(entry.stat));
  }
  return marks;
}

inline std::string knowledge_of(const element &under_test) {
  return under_test.conf_root() + "knowledge";
}

// Installs the configuration in force and the one before it, as an earlier process left them.
inline void install_current(const element &under_test, const publication &published) {
  published.install_cache(under_test.conf_root());
}
inline void install_last(const element &under_test, const publication &published) {
  published.install_k(knowledge_of(under_test), "prev_subsys.k", "prev_subsys.checksum");
}
inline void install_corrupted(const element &under_test, const publication &published) {
  published.install_k(knowledge_of(under_test), "corrupted.k", "corrupted.checksum");
}

inline std::string text_of(const zot_k *k) {
  return k != nullptr && k->data != nullptr ? std::string(k->data, k->data_len) : std::string();
}

inline const zot_slot &slot_of(const element &under_test, std::uint32_t slot) {
  return under_test.handle()->slot[slot];
}

inline std::uint32_t state_of(const element &under_test) {
  return under_test.handle()->stat.state;
}

}  // namespace zot::test
