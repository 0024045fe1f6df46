// SPDX-License-Identifier: Apache-2.0
// A relay whose rounds are those that a trial asks for.
#pragma once

#include <chrono>
#include <optional>
#include <sstream>
#include <string>

#include "tests/faults/relay/offer.hpp"
#include "tools/relay/relay_loop.hpp"
#include "tools/relay/relay_store.hpp"

namespace zot::test {

struct relay_folders {
  std::string store;
  std::string url;
  std::string keyring = {};  // empty: K need not be signed
  std::string ca = {};
  std::string certificate = {};  // of the client
  std::string key = {};
  std::chrono::milliseconds silence{5000};
};

class polled_relay {
 public:
  explicit polled_relay(const relay_folders &folders);

  [[nodiscard]] zotconf::sync_round poll() { return loop_.once(); }
  void run(zotconf::schedule &when, zotconf::relay_clock &time) { loop_.run(when, time); }
  // The lines that were printed since the last call.
  [[nodiscard]] std::string told();
  [[nodiscard]] zotconf::relay_state state() const { return board_.read(); }
  [[nodiscard]] const zotconf::relay_store &store() const { return store_; }

 private:
  std::ostringstream out_;
  zotconf::console where_{out_, out_};
  zotconf::notifier manager_;
  std::optional<zotconf::keyring> trusted_;
  zotconf::relay_store store_;
  zotconf::upstream server_;
  zotconf::synchroniser syncing_;
  zotconf::relay_board board_;
  zotconf::relay_reporter reporter_{where_, manager_};
  zotconf::relay_loop loop_;
};

// Compares every file that a store serves with those of a generation. Returns what differs; empty
// when it serves that generation, complete.
[[nodiscard]] std::string compare_served(const zotconf::served_files &store, const offer &expected);

}  // namespace zot::test
