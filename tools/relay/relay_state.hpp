// SPDX-License-Identifier: Apache-2.0
// What a relay knows about itself: written by its loop, read by its status page.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "tools/model/names.hpp"

namespace zotconf {

// What a relay knows about the reports that it sends.
struct report_status {
  std::string url = {};       // of the receiver, without credentials
  std::time_t last_sent = 0;  // 0: none yet
  std::string problem = {};   // why the last attempt has failed; empty: it has not
  bool is_pending = false;    // a report has not been sent yet
};

struct relay_state {
  std::string upstream;  // URL without credentials
  element who;
  bool must_be_signed = false;
  std::time_t started = 0;
  std::chrono::seconds max_age{0};

  // The publication in service.
  bool has_publication = false;
  std::string k_digest;
  uint64_t sequence = 0;  // 0: not stated
  std::string config_id;
  std::string signer;         // empty: not signed
  std::time_t signed_at = 0;  // 0: not stated
  uint64_t files = 0;
  uint64_t bytes = 0;
  std::time_t last_news = 0;  // when it was put into service; 0: not known

  // The upstream server.
  std::time_t last_attempt = 0;  // 0: none yet
  std::time_t last_contact = 0;  // the last round that ended well; 0: none yet
  std::string problem;           // why the last round did not end well; empty: it did
  bool is_refused = false;       // the problem is what was published, not how it was reached
  std::string refused_digest;    // SHA-256 of the K that is not accepted; empty: none
  std::time_t problem_since = 0;
  std::time_t next_attempt = 0;

  // Since the start of this process.
  uint64_t rounds = 0;
  uint64_t failures = 0;
  uint64_t updates = 0;
  uint64_t bytes_received = 0;
  uint64_t bytes_saved = 0;  // of the files of new publications that were in the store already

  std::optional<report_status> report;  // nullopt: it sends none
};

// What a problem of a relay comes from, which determines the advice.
enum class relay_problem {
  none,
  server,       // it does not answer, or answers with an error
  certificate,  // the TLS handshake failed
  publication,  // what was published is not accepted
  storage,      // the store cannot be written
};

relay_problem problem_of(const relay_state &state);
const char *name_of(relay_problem problem);

// How a relay does its work.
enum class relay_health {
  good,     // a publication is in service, and there is no problem
  problem,  // a publication is in service, but a newer one may not reach the element
  nothing,  // no publication is in service
};

relay_health health_of(const relay_state &state, std::time_t now);
const char *name_of(relay_health health);

// How long ago something was; 0 if the clock was set back since.
std::chrono::seconds age_of(std::time_t when, std::time_t now);

// Whether the last contact is longer ago than max_age. Before the first contact the start counts.
// A max_age of 0 is no limit.
bool is_stale(const relay_state &state, std::time_t now);

// One state that several threads share.
class relay_board {
 public:
  explicit relay_board(relay_state first) : state_(std::move(first)) {}

  void change(const std::function<void(relay_state &)> &how);
  [[nodiscard]] relay_state read() const;

 private:
  mutable std::mutex mutex_;
  relay_state state_;
};

}  // namespace zotconf
