// SPDX-License-Identifier: Apache-2.0
// An HTTP server. One thread waits for all connections, so that an idle or slow client costs its
// memory and a descriptor and nothing else; what takes its time is done by a few threads beside it.
#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <stop_token>
#include <string>

#include "tools/service/http_types.hpp"

namespace zotconf {

// What an answer takes, and so where it is made.
enum class http_work {
  quick,  // by the thread of all connections, which must never wait
  slow,   // beside it, by a thread for all of this kind
  heavy,  // beside it, by one of a few threads
};

// A request that has come to its end.
struct http_exchange {
  const http_request &request;
  int status;
  uint64_t bytes;  // of the answer's body, also where a HEAD leaves it out
  std::chrono::microseconds duration;
  std::string result;
};

// What a server's requests are for.
class http_service {
 public:
  http_service() = default;
  http_service(const http_service &) = delete;
  http_service &operator=(const http_service &) = delete;
  virtual ~http_service() = default;

  [[nodiscard]] virtual http_work work_of(const http_request &request) const = 0;
  // Called by several threads at once. Long work ends with an exception when a stop is asked for.
  [[nodiscard]] virtual http_answer answer(const http_request &request,
                                           const std::stop_token &stop) = 0;
  // An answer ended with an exception. Called by several threads at once.
  virtual void failed(const std::exception &error) = 0;
  // Called by one thread, once for each request.
  virtual void finished(const http_exchange &exchange) = 0;
};

class http_server {
 public:
  // Serves the clients of a listening socket until it is destroyed. Throws when it cannot start.
  http_server(zot::descriptor socket, http_service &service);
  http_server(const http_server &) = delete;
  http_server &operator=(const http_server &) = delete;
  // Ends all connections at once; archives that are being made are given up.
  ~http_server();

 private:
  class engine;
  std::unique_ptr<engine> engine_;
};

}  // namespace zotconf
