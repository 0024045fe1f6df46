// SPDX-License-Identifier: Apache-2.0
// Runs the transfers of an upstream's client, several at a time, on connections that are kept.
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/relay/http_transfer.hpp"
#include "tools/relay/traffic.hpp"
#include "tools/relay/upstream_url.hpp"

namespace zotconf {

class http_engine {
 public:
  http_engine(const upstream_url &url, connection_options options,
              std::chrono::milliseconds silence);

  // Whether another transfer may start: there are not too many, and the rate is kept.
  [[nodiscard]] bool has_room() const;
  // Starts a transfer. The sink stays valid until the transfer has ended.
  void start(const transfer_request &request, response_sink &sink);

  struct ended {
    response_sink *sink = nullptr;
    transfer_end how = {};
  };
  // Waits up to a quarter of a second for transfers to end. Returns those that have ended.
  [[nodiscard]] std::vector<ended> wait();
  // Ends all transfers. Connections on which no transfer was in progress are kept.
  void cancel();

  [[nodiscard]] uint64_t received() const { return received_; }

 private:
  using transfer_owner = std::unique_ptr<http_transfer>;

  // Whether more has arrived than the rate allows.
  [[nodiscard]] bool is_ahead() const;
  void set(CURLMoption option, long value) const;
  [[nodiscard]] transfer_owner idle_transfer();
  transfer_owner remove(const http_transfer *transfer);
  void keep(transfer_owner transfer);
  void collect(std::vector<ended> &all);
  void keep_to_rate();
  void run(std::vector<ended> &all);
  void resume(std::vector<ended> &all);
  void end_silent(std::vector<ended> &all);

  curl_library library_;
  const upstream_url &url_;
  connection_options options_;
  std::chrono::milliseconds silence_;
  traffic traffic_;
  traffic::clock::time_point last_wait_ = traffic::clock::now();
  uint64_t received_ = 0;
  bool is_http2_ = false;
  std::unique_ptr<CURLM, zot::releaser<curl_multi_cleanup>> multi_;
  std::vector<transfer_owner> active_;
  std::vector<transfer_owner> idle_;
};

}  // namespace zotconf
