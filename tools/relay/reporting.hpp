// SPDX-License-Identifier: Apache-2.0
// The reports of a relay: what it collects for them, and what is told of them.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "tools/output/console.hpp"
#include "tools/relay/element_source.hpp"
#include "tools/relay/relay_report.hpp"
#include "tools/relay/relay_state.hpp"
#include "tools/relay/report_sender.hpp"
#include "tools/relay/upstream.hpp"

namespace zotconf {

struct report_options {
  std::string url = {};   // of the folder of reports; empty: no reports
  fs::path element = {};  // the file of `zotconf watch --state`; empty: the cache is read
};

class reporting {
 public:
  // Certificates and trusted authorities are those of `server`. Board and reporter must outlive the
  // object.
  reporting(const report_options &options, const upstream_options &server, relay_board &board,
            relay_reporter &reporter, const console &where, const report_times &times = {});

  // Reports what has changed. Before the first round has ended, there is nothing to report. Call it
  // in one thread.
  void collect();

  // Waits until the report was sent. Prints a warning if it was not.
  void finish(std::chrono::milliseconds limit, const std::function<bool()> &stopped);

 private:
  void note(const report_status &status);
  void warn_of_unknown_element();

  relay_board &board_;
  relay_reporter &reporter_;
  const console &where_;
  element_source source_;
  bool is_unknown_ = false;
  bool is_failing_ = false;  // used under the lock of the sender
  report_sender sender_;
};

}  // namespace zotconf
