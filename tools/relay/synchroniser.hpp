// SPDX-License-Identifier: Apache-2.0
// Brings the store of a relay up to date with its upstream server, one round at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "tools/relay/acceptance.hpp"
#include "tools/relay/relay_store.hpp"
#include "tools/relay/upstream.hpp"

namespace zotconf {

enum class round_result {
  unchanged,  // what upstream publishes is in service
  updated,    // a new publication is in service
  repaired,   // missing or damaged files of the publication in service were fetched again
  failed,     // upstream or the storage failed
  refused     // upstream publishes what may not come into service
};

// How a round ended.
struct sync_round {
  round_result result = round_result::unchanged;
  std::string wrong = {};                                // why it failed or was refused
  std::string refused_digest = {};                       // SHA-256 of the K that was refused
  std::optional<std::chrono::seconds> retry_after = {};  // as the server asked
  bool has_progressed = false;  // files have arrived, so the next round has less to do
  // Of an update or a repair, in all rounds that it took.
  uint64_t fetched_files = 0;
  uint64_t fetched_bytes = 0;
};

inline bool is_good(const sync_round &round) {
  return round.result != round_result::failed && round.result != round_result::refused;
}

class synchroniser {
 public:
  // `keep` is how many publications stay in the store.
  synchroniser(acceptance rules, size_t keep, upstream &server, relay_store &store);

  // Throws std::system_error if the storage fails.
  [[nodiscard]] sync_round run();

  // Of the publication in service; empty and 0 if it is not signed.
  [[nodiscard]] const std::string &signer() const { return signer_; }
  [[nodiscard]] std::time_t signed_at() const { return signed_at_; }

 private:
  // A K that was fetched and is not in service. It is not fetched again while it is announced.
  struct pending_k {
    std::string digest;
    std::string k;
    uint64_t fetched_files = 0;
    uint64_t fetched_bytes = 0;
    std::set<std::string> damaged = {};  // SHA-256 of files that came with other bytes
  };

  void verify_current();
  [[nodiscard]] bool is_in_service(const std::string &digest) const;
  [[nodiscard]] sync_round bring_in(const std::string &digest);
  [[nodiscard]] sync_round update(const std::string &digest);
  [[nodiscard]] sync_round repair(const kept_publication &current);
  [[nodiscard]] std::optional<sync_round> fetch_k(const std::string &digest);
  [[nodiscard]] std::optional<sync_round> fetch_signature(std::optional<std::string> &signature);
  [[nodiscard]] std::optional<sync_round> fetch_files(const manifest &content, sync_round &round);
  [[nodiscard]] uint64_t left_to_fetch(const std::vector<published_file> &files) const;
  [[nodiscard]] std::string why_no_room(const std::vector<published_file> &files,
                                        const manifest &content);
  [[nodiscard]] sync_round put_into_service(const std::optional<std::string> &signature,
                                            manifest content, sync_round round);

  acceptance rules_;
  size_t keep_;
  upstream &server_;
  relay_store &store_;
  std::string etag_;       // of the checksum of the publication in service; empty: not known
  std::string announced_;  // that checksum
  unsigned conditional_rounds_ = 0;  // since the checksum itself was received
  std::optional<pending_k> pending_;
  bool is_verified_ = true;  // the publication in service was judged by these rules
  std::string signer_;
  std::time_t signed_at_ = 0;
};

}  // namespace zotconf
