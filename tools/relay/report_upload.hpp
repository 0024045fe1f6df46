// SPDX-License-Identifier: Apache-2.0
// Puts a document on a web server, one at a time. A server that stalls ends nothing but the
// request.
#pragma once

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "tools/relay/connection.hpp"
#include "tools/relay/response_head.hpp"
#include "tools/relay/upstream_url.hpp"

namespace zotconf {

struct upload_end {
  std::string wrong = {};                                // empty: the server has taken the document
  std::optional<std::chrono::seconds> retry_after = {};  // at most 24 hours
};

class report_upload {
 public:
  // Throws std::runtime_error if the URL cannot be used.
  report_upload(const std::string &url, connection_options options,
                std::chrono::milliseconds whole_timeout);

  // `path` is below the URL, not encoded. Redirections are not followed. After stop(), the document
  // is not sent.
  [[nodiscard]] upload_end put(const std::string &path, const std::string &body);
  // Ends a transfer at once. Any thread may call it.
  void stop();

 private:
  using easy_handle = std::unique_ptr<CURL, zot::releaser<curl_easy_cleanup>>;
  using header_list = std::unique_ptr<curl_slist, zot::releaser<curl_slist_free_all>>;
  // Of the current request.
  struct answer {
    response_head head;
    size_t bytes = 0;
  };

  static size_t take_header(char *data, size_t size, size_t count, void *context) noexcept;
  static size_t drop_body(char *data, size_t size, size_t count, void *context) noexcept;
  void set_request(CURL *curl, const std::string &path, const std::string &body,
                   const header_list &headers, answer &to) const;
  // Nullopt if it was stopped.
  [[nodiscard]] std::optional<CURLcode> perform(CURL *curl);
  [[nodiscard]] std::string problem_of(CURL *curl, CURLcode result, const char *reason) const;

  curl_library library_;
  upstream_url url_;
  connection_options options_;
  std::chrono::milliseconds whole_timeout_;
  std::atomic<bool> is_stopped_ = false;
  std::unique_ptr<CURLM, zot::releaser<curl_multi_cleanup>> multi_;
};

}  // namespace zotconf
