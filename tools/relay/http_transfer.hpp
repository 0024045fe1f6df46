// SPDX-License-Identifier: Apache-2.0
// One HTTP transfer of an upstream's client: what is requested, what comes, and why it ends.
#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tools/relay/connection.hpp"
#include "tools/relay/response_head.hpp"
#include "tools/relay/traffic.hpp"
#include "tools/relay/upstream_url.hpp"

namespace zotconf {

struct transfer_request {
  std::string path;       // below the URL, not encoded
  std::string etag = {};  // send the body only if the file has another one
  uint64_t from = 0;      // send the bytes from here on
  bool bypasses_caches = false;
  bool may_be_gzip = false;  // the body may travel compressed; it is decoded as it comes
};

// Where the body of a response goes. What these functions throw ends the transfer, and its text is
// the reason.
class response_sink {
 public:
  response_sink() = default;
  response_sink(const response_sink &) = delete;
  response_sink &operator=(const response_sink &) = delete;
  virtual ~response_sink() = default;

  // Called once the head is complete; `length` is that of the body, -1 if it is not stated. Returns
  // whether the body is wanted.
  virtual bool begin(const response_head &head, int64_t length) = 0;
  virtual void take(std::string_view bytes) = 0;
};

struct transfer_end {
  std::string wrong = {};  // why the response is not complete; empty: it is, or it is not wanted
  bool is_broken = false;  // the connection ended early, so another attempt may succeed
  response_head head = {};
};

class http_transfer {
 public:
  // The objects outlive the transfer.
  http_transfer(const connection_options &options, const upstream_url &url, traffic &count,
                uint64_t &received);

  void prepare(const transfer_request &request, response_sink &sink);
  [[nodiscard]] CURL *handle() const { return curl_.get(); }
  [[nodiscard]] response_sink *sink() const { return sink_; }
  // Whether the request was sent, so that the server is to answer.
  [[nodiscard]] bool is_asked() const { return is_asked_; }
  [[nodiscard]] bool has_head() const { return head_.is_complete; }

  // Continues with what was left unread because of the rate.
  [[nodiscard]] CURLcode resume();
  // Ends the transfer: what came of it.
  [[nodiscard]] transfer_end finish(CURLcode result);

 private:
  using header_list = std::unique_ptr<curl_slist, zot::releaser<curl_slist_free_all>>;

  void set_flow(uint64_t limit_rate);
  void set_callbacks();
  void add_header(const std::string &line);
  template <class Value>
  void set(CURLoption option, Value value) const;

  static size_t take_header(char *data, size_t size, size_t count, void *self) noexcept;
  static size_t take_body(char *data, size_t size, size_t count, void *self) noexcept;
  static int note_request(void *self, char *server_ip, char *own_ip, int server_port,
                          int own_port) noexcept;
  bool take_line(std::string_view line);
  void count_as_received();
  bool take(std::string_view bytes);
  void begin();

  const upstream_url &url_;
  traffic &traffic_;
  uint64_t &received_;
  std::chrono::milliseconds connect_timeout_;
  std::array<char, CURL_ERROR_SIZE> reason_{};
  header_list headers_;
  std::unique_ptr<CURL, zot::releaser<curl_easy_cleanup>> curl_;

  // Of the current request.
  response_sink *sink_ = nullptr;
  response_head head_;
  uint64_t head_bytes_ = 0;
  uint64_t body_bytes_ = 0;
  bool is_asked_ = false;
  bool is_decoded_ = false;
  bool has_begun_ = false;
  bool is_wanted_ = false;
  bool is_paused_ = false;
  std::string wrong_;  // the reason why a callback has ended the transfer
};

}  // namespace zotconf
