// SPDX-License-Identifier: Apache-2.0
// Fetches from a server of static files, over HTTP or HTTPS. Connections are kept; HTTP/2 is used
// where the server offers it. Redirections are not followed: a name has one place. Proxies of the
// environment are not used. Nothing that the server sends is trusted: lengths are limited and
// checked, texts in messages are printable.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/relay/upstream_url.hpp"

namespace zotconf {

struct upstream_options {
  std::string url;            // http:// or https://, with or without a path and a final slash
  fs::path ca = {};           // trusted certificates in PEM; empty: those of the system
  fs::path certificate = {};  // of this client, in PEM; empty: none
  fs::path key = {};          // empty: in the file of the certificate
  uint64_t limit_rate = 0;    // bytes per second of all transfers together; 0: no limit
  // The time at which certificates of the server are judged, which the clock of an element may not
  // know; empty: the clock.
  std::function<std::time_t()> certificate_time = {};
  std::chrono::milliseconds connect_timeout{10000};
  // Transfers end when all of them together bring less than 1 KiB/s for so long.
  std::chrono::milliseconds silence{30000};
};

// What came in answer to a request.
struct upstream_reply {
  long status = 0;        // 0: no complete response
  std::string body = {};  // of a response with status 200
  std::string etag = {};  // as sent, with quotes, at most 256 bytes; empty: none
  std::optional<std::chrono::seconds> retry_after = {};  // at most 24 hours
  // Why there is no complete response, or where a redirection leads. "stopped" if it was stopped.
  // Empty: there is a response, whose status tells the rest.
  std::string wrong = {};
};

// A file to fetch. `to` keeps what has arrived, so that the next call continues there.
struct wanted_file {
  std::string path;  // below the URL, not encoded: config/Category/key/version
  fs::path to;
  uint64_t size = 0;
  bool bypasses_caches = false;  // because a cache may have a damaged copy
};

// How a fetch of several files ended.
struct fetch_end {
  std::string wrong = {};  // the first failure, with the path, or "stopped"; empty: all is there
  long status = 0;         // of that failure; 0: none was received
  std::optional<std::chrono::seconds> retry_after = {};
};

class upstream {
 public:
  using is_stopped = std::function<bool()>;

  // Throws std::runtime_error if the URL or a certificate cannot be used. Long transfers end early
  // once `stopped` returns true; it is called at least four times a second.
  upstream(const upstream_options &options, is_stopped stopped);
  upstream(const upstream &) = delete;
  upstream &operator=(const upstream &) = delete;
  ~upstream();

  // Fetches a small file. Its body may travel compressed, and is decoded; more than `limit` bytes
  // after that end the transfer. With an `etag`, the server is asked to send the body only if it
  // has another one (status 304 otherwise).
  [[nodiscard]] upstream_reply get(const std::string &path, uint64_t limit,
                                   const std::string &etag = "");

  // Fetches several files at a time. `arrived` is called in this thread for each file as soon as it
  // has the stated size and is closed; it must not call this object. A transfer that breaks is
  // continued up to three times, and three times more whenever it has brought 1 KiB. After a
  // failure no further transfer starts, and those in progress end. A file never gets more than
  // `size` bytes.
  [[nodiscard]] fetch_end fetch(const std::vector<wanted_file> &files,
                                const std::function<void(size_t)> &arrived);

  // Bytes of all bodies received so far.
  [[nodiscard]] uint64_t received() const;

 private:
  class engine;
  std::unique_ptr<engine> engine_;
};

}  // namespace zotconf
