// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/report_upload.hpp"

#include <algorithm>
#include <array>
#include <ctime>
#include <new>
#include <stdexcept>
#include <utility>

#include "tools/output/duration.hpp"
#include "tools/relay/transfer_problem.hpp"

namespace zotconf {
namespace {

// More than that ends the transfer. The status is all that counts.
constexpr size_t most_answer_bytes = size_t{64} << 10;

bool is_taken(long status) {
  constexpr std::array<long, 3> good = {200, 201, 204};
  return std::ranges::find(good, status) != good.end();
}

void check_multi_call(CURLMcode result) {
  if (result != CURLM_OK) {
    throw std::runtime_error(std::string("libcurl: ") + curl_multi_strerror(result));
  }
}

// Removes a transfer from the handle that runs it.
class running_transfer {
 public:
  running_transfer(CURLM *multi, CURL *curl) : multi_(multi), curl_(curl) {
    check_multi_call(curl_multi_add_handle(multi_, curl_));
  }
  running_transfer(const running_transfer &) = delete;
  running_transfer &operator=(const running_transfer &) = delete;
  ~running_transfer() { curl_multi_remove_handle(multi_, curl_); }

 private:
  CURLM *multi_;
  CURL *curl_;
};

bool is_request_sent(CURL *curl) {
  curl_off_t before = 0;
  curl_easy_getinfo(curl, CURLINFO_PRETRANSFER_TIME_T, &before);
  return before > 0;
}

}  // namespace

report_upload::report_upload(const std::string &url, connection_options options,
                             std::chrono::milliseconds whole_timeout)
    : url_(url),
      options_(std::move(options)),
      whole_timeout_(whole_timeout),
      multi_(curl_multi_init()) {
  if (multi_ == nullptr) {
    throw std::bad_alloc();
  }
}

size_t report_upload::take_header(char *data, size_t size, size_t count, void *context) noexcept {
  auto &to = *static_cast<answer *>(context);
  const size_t bytes = size * count;
  to.bytes += bytes;
  if (to.bytes > most_answer_bytes) {
    return CURL_WRITEFUNC_ERROR;
  }
  to.head.take_line(std::string_view(data, bytes), std::time(nullptr));
  return bytes;
}

size_t report_upload::drop_body(char * /*data*/, size_t size, size_t count,
                                void *context) noexcept {
  auto &to = *static_cast<answer *>(context);
  to.bytes += size * count;
  return to.bytes > most_answer_bytes ? CURL_WRITEFUNC_ERROR : size * count;
}

void report_upload::set_request(CURL *curl, const std::string &path, const std::string &body,
                                const header_list &headers, answer &to) const {
  set_connection(curl, options_, url_);
  set_option(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(whole_timeout_.count()));
  // The next report is sent hours later.
  set_option(curl, CURLOPT_FORBID_REUSE, 1L);
  set_option(curl, CURLOPT_URL, url_.of(path).c_str());
  set_option(curl, CURLOPT_CUSTOMREQUEST, "PUT");
  set_option(curl, CURLOPT_POSTFIELDS, body.c_str());
  set_option(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  set_option(curl, CURLOPT_HTTPHEADER, headers.get());
  set_option(curl, CURLOPT_HEADERFUNCTION, take_header);
  set_option(curl, CURLOPT_HEADERDATA, &to);
  set_option(curl, CURLOPT_WRITEFUNCTION, drop_body);
  set_option(curl, CURLOPT_WRITEDATA, &to);
}

std::optional<CURLcode> report_upload::perform(CURL *curl) {
  const running_transfer running(multi_.get(), curl);
  while (!is_stopped_) {
    int active = 0;
    check_multi_call(curl_multi_perform(multi_.get(), &active));
    int left = 0;
    if (const CURLMsg *const message = curl_multi_info_read(multi_.get(), &left)) {
      return message->data.result;
    }
    constexpr int most_milliseconds = 1000;
    check_multi_call(curl_multi_poll(multi_.get(), nullptr, 0, most_milliseconds, nullptr));
  }
  return std::nullopt;
}

std::string report_upload::problem_of(CURL *curl, CURLcode result, const char *reason) const {
  const bool is_asked = is_request_sent(curl);
  if (result == CURLE_OPERATION_TIMEDOUT && is_asked) {
    return "no answer from " + url_.place() + " for " + duration_text(whole_timeout_);
  }
  return problem_text({.curl = curl,
                       .result = result == CURLE_OK ? CURLE_GOT_NOTHING : result,
                       .reason = reason,
                       .is_asked = is_asked,
                       .connect_timeout = options_.connect_timeout},
                      url_);
}

upload_end report_upload::put(const std::string &path, const std::string &body) {
  const header_list headers(curl_slist_append(nullptr, "Content-Type: application/json"));
  const easy_handle curl(curl_easy_init());
  if (headers == nullptr || curl == nullptr) {
    throw std::bad_alloc();
  }
  answer came;
  std::array<char, CURL_ERROR_SIZE> reason{};
  set_request(curl.get(), path, body, headers, came);
  set_option(curl.get(), CURLOPT_ERRORBUFFER, reason.data());
  const auto result = perform(curl.get());
  if (!result) {
    return {.wrong = "stopped"};
  }
  if (!came.head.is_complete) {
    return {.wrong = problem_of(curl.get(), *result, reason.data())};
  }
  if (is_taken(came.head.status)) {
    return {};
  }
  return {.wrong = path + ": " + came.head.status_text(), .retry_after = came.head.retry_after};
}

void report_upload::stop() {
  is_stopped_ = true;
  curl_multi_wakeup(multi_.get());
}

}  // namespace zotconf
