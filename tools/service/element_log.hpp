// SPDX-License-Identifier: Apache-2.0
// Which element asked for what, and when: the last request of each kind, in memory alone.
#pragma once

#include <cstdint>
#include <ctime>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/model/names.hpp"

namespace zotconf {

enum class fetch_state {
  never,       // asked for nothing
  asked,       // asked for the checksum, and never for K
  older,       // its last K is not the published one
  up_to_date,  // its last K is the published one
};

// What an element was sent.
struct element_fetches {
  std::optional<std::time_t> checksum_sent;  // the last time
  std::optional<std::time_t> k_sent;         // the last time; nothing: never
  std::string k_checksum;                    // of that K, as its checksum file announced it
  std::string k_config_id;                   // of that K; empty: it states none ahead of its list
  std::string client;                        // address of the last request
};

// An element that asked for what is not published.
struct refused_element {
  element who;
  std::time_t asked = 0;  // the last time
  std::string client;
};

// May be used by several threads at once.
class element_log {
 public:
  struct limits {
    size_t elements = 100'000;
    // Names that anybody can make up displace no element that was sent something.
    size_t refused = 1'000;
  };

  element_log() : element_log(limits{}) {}
  explicit element_log(const limits &kept) : kept_(kept) {}

  void add_checksum(const element &who, const std::string &client);
  // The K that `announced`, the text of its checksum file, belongs to. Reads the begin of the file.
  void add_k(const element &who, const std::string &client, int k_file,
             const std::optional<std::string> &announced);
  // Nothing is published for it.
  void add_refused(const element &who, const std::string &client);

  [[nodiscard]] std::optional<element_fetches> fetches_of(const element &who) const;
  // What there is to say of an element for which a K with this checksum is published; an empty one
  // is that of no K.
  [[nodiscard]] fetch_state state_of(const element &who, std::string_view checksum) const;
  // Those that asked at `since` or later, the latest first.
  [[nodiscard]] std::vector<refused_element> refused(std::time_t since) const;

  struct extent {
    std::time_t since = 0;   // every request from then on counts
    uint64_t forgotten = 0;  // elements, the limit being reached
  };
  [[nodiscard]] extent counted() const;

 private:
  struct sent_element {
    std::string name;
    std::time_t asked = 0;
    element_fetches fetches;
  };

  element_fetches &touch(const std::string &name, const std::string &client);

  limits kept_;
  mutable std::mutex mutex_;
  std::list<sent_element> sent_;  // the latest first
  std::unordered_map<std::string, std::list<sent_element>::iterator> sent_by_name_;
  std::list<refused_element> refused_;  // the latest first
  extent counted_{.since = std::time(nullptr), .forgotten = 0};
};

}  // namespace zotconf
