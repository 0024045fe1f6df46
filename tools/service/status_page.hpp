// SPDX-License-Identifier: Apache-2.0
// The status page at `/` and its data: `/status.json`, requested every two seconds, and
// `/element.json`, the details of one element on demand.
#pragma once

#include <chrono>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "tools/files/file_io.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/service/element_log.hpp"
#include "tools/service/http_types.hpp"
#include "tools/service/publication_view.hpp"
#include "tools/service/request_log.hpp"
#include "tools/service/status_query.hpp"

namespace zotconf {

extern const std::string_view status_html;

class status_page {
 public:
  // Starts to read the folder in a separate thread.
  status_page(const fs::path &folder, const publication_store &store, const request_log &requests,
              const element_log &elements)
      : folder_(fs::absolute(folder).lexically_normal()),
        view_(folder_, store),
        requests_(requests),
        elements_(elements) {}

  // Returns nullopt if the request is not one of the page. Safe to call from several threads; never
  // waits for a file.
  [[nodiscard]] std::optional<http_answer> answer(const http_request &request);
  // True for a request of the page or its data, which is not logged.
  [[nodiscard]] static bool is_asked(const http_request &request);

  // Sets the address shown on the page. Must be called before the first request.
  void set_address(const std::string &host, int port);

 private:
  [[nodiscard]] http_answer status_answer(const http_request &request);
  [[nodiscard]] http_answer element_answer(const http_request &request);

  fs::path folder_;
  publication_view view_;
  const request_log &requests_;
  const element_log &elements_;
  std::string host_;
  int port_ = 0;
  std::time_t started_ = std::time(nullptr);
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace zotconf
