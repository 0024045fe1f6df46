// SPDX-License-Identifier: Apache-2.0
// Which element requested what, and when. Only the last request of each kind is kept, in memory.
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
  never,       // no request
  asked,       // requested the checksum, never K
  older,       // its last K is not the one published now
  up_to_date,  // its last K is the one published now
};

// What was sent to an element.
struct element_fetches {
  std::optional<std::time_t> checksum_sent;  // the last time
  std::optional<std::time_t> k_sent;         // the last time; nullopt: never
  std::string k_checksum;                    // of that K, from its checksum file
  std::string k_config_id;                   // of that K; empty: none before the list of files
  std::string client;                        // address of the last request
};

// An element that requested a K that is not published.
struct refused_element {
  element who;
  std::time_t asked = 0;  // the last time
  std::string client;
};

// Safe to use from several threads.
class element_log {
 public:
  struct limits {
    size_t elements = 100'000;
    // A separate limit: a client can invent names, and these must not displace elements that were
    // served.
    size_t refused = 1'000;
  };

  element_log() : element_log(limits{}) {}
  explicit element_log(const limits &kept) : kept_(kept) {}

  void add_checksum(const element &who, const std::string &client);
  // Records a K that was sent. `announced` is the text of its checksum file. Reads the beginning of
  // the K file.
  void add_k(const element &who, const std::string &client, int k_file,
             const std::optional<std::string> &announced);
  // Records a request of an element for which nothing is published.
  void add_refused(const element &who, const std::string &client);

  [[nodiscard]] std::optional<element_fetches> fetches_of(const element &who) const;
  // Compares what the element fetched with the published K, given by its checksum; an empty
  // checksum matches no K.
  [[nodiscard]] fetch_state state_of(const element &who, std::string_view checksum) const;
  // The elements that asked at `since` or later, latest first.
  [[nodiscard]] std::vector<refused_element> refused(std::time_t since) const;

  struct extent {
    std::time_t since = 0;   // requests count from this time on
    uint64_t forgotten = 0;  // elements dropped because the limit was reached
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
