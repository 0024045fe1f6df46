// SPDX-License-Identifier: Apache-2.0
// Sends requests as the library sends them: HTTP without TLS, a new connection for each request, no
// proxy, no credentials, no encoding of the body, redirections not followed.
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tools/files/file_io.hpp"

namespace zotconf {

// What came in answer to a request.
struct reply {
  long status = 0;
  std::string body;  // empty when it went into a file
  std::string
      wrong;  // why the library does not accept it; empty: a complete answer with status 200
};

struct curl_closer {
  void operator()(CURL *curl) const { curl_easy_cleanup(curl); }
};
using curl_owner = std::unique_ptr<CURL, curl_closer>;

// A connection on which bytes are sent as they are. Its end closes it.
class raw_connection {
 public:
  explicit raw_connection(curl_owner curl) : curl_(std::move(curl)) {}

  // Throws std::runtime_error when the service has closed the connection.
  void send(std::string_view bytes) const;

 private:
  curl_owner curl_;
};

class service_client {
 public:
  // `timeout` limits a GET. The library has no limit for a POST; here it ends after twelve times as
  // long without a byte.
  service_client(std::string url, std::chrono::seconds timeout);

  // Each ends a body that is longer than `limit`. They throw stopped_by_signal.
  [[nodiscard]] reply get(const std::string &path, uint64_t limit) const;
  struct post_request {
    std::string body;
    uint64_t limit = 0;
    bool expects_continue = false;  // sends "Expect: 100-continue"
  };
  // Writes the body of the answer to `into`.
  [[nodiscard]] reply post(const std::string &path, const post_request &request,
                           const fs::path &into) const;

  // Throws std::runtime_error when there is no connection in time.
  [[nodiscard]] raw_connection connect() const;
  // HOST:PORT, as a Host header names it.
  [[nodiscard]] std::string host() const;
  [[nodiscard]] std::chrono::seconds timeout() const { return timeout_; }

 private:
  [[nodiscard]] curl_owner prepared(const std::string &path) const;

  std::string url_;
  std::chrono::seconds timeout_;
};

}  // namespace zotconf
