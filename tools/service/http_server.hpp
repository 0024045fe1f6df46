// SPDX-License-Identifier: Apache-2.0
// An HTTP server. One thread serves all connections, so an idle or slow client costs only its
// memory and a descriptor. A few worker threads do the work that takes time.
#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <stop_token>
#include <string>

#include "tools/service/http_types.hpp"

namespace zotconf {

// How much work a response is, which selects the thread that makes it.
enum class http_work {
  quick,  // in the connection thread, which must never wait
  slow,   // in the one thread for slow work
  heavy,  // in one of several worker threads
};

// A completed request.
struct http_exchange {
  const http_request &request;
  int status;
  uint64_t bytes;  // of the response body, also for HEAD, which does not send it
  std::chrono::microseconds duration;
  std::string result;
};

// Makes the responses of a server.
class http_service {
 public:
  http_service() = default;
  http_service(const http_service &) = delete;
  http_service &operator=(const http_service &) = delete;
  virtual ~http_service() = default;

  [[nodiscard]] virtual http_work work_of(const http_request &request) const = 0;
  // Called by several threads at once. Long work throws when a stop is requested.
  [[nodiscard]] virtual http_answer answer(const http_request &request,
                                           const std::stop_token &stop) = 0;
  // answer() has thrown. Called by several threads at once.
  virtual void failed(const std::exception &error) = 0;
  // Called once for each request, always by the same thread.
  virtual void finished(const http_exchange &exchange) = 0;
};

class http_server {
 public:
  // Serves the clients of a listening socket until it is destroyed. Throws if it cannot start.
  http_server(zot::descriptor socket, http_service &service);
  http_server(const http_server &) = delete;
  http_server &operator=(const http_server &) = delete;
  // Closes all connections at once and abandons archives that are being made.
  ~http_server();

 private:
  class engine;
  std::unique_ptr<engine> engine_;
};

}  // namespace zotconf
