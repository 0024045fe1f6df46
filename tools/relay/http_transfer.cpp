// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/http_transfer.hpp"

#include <algorithm>
#include <ctime>
#include <exception>
#include <new>
#include <utility>

#include "tools/relay/transfer_problem.hpp"

namespace zotconf {
namespace {

constexpr uint64_t most_head_bytes = uint64_t{64} << 10;
// The rest of a body that is not wanted is read up to here, so that the connection can be kept.
constexpr uint64_t most_unwanted_bytes = uint64_t{64} << 10;
constexpr uint64_t largest_buffer = uint64_t{16} << 10;
constexpr uint64_t smallest_buffer = 1024;
// With a rate, so often a second a buffer may be read.
constexpr uint64_t reads_per_second = 32;

long buffer_size(uint64_t limit_rate) {
  const uint64_t size = limit_rate == 0 ? largest_buffer : limit_rate / reads_per_second;
  return static_cast<long>(std::clamp(size, smallest_buffer, largest_buffer));
}

// Not every libcurl can decode.
bool can_decode_gzip() {
  return (curl_version_info(CURLVERSION_NOW)->features & CURL_VERSION_LIBZ) != 0;
}

}  // namespace

template <class Value>
void http_transfer::set(CURLoption option, Value value) const {
  set_option(curl_.get(), option, value);
}

http_transfer::http_transfer(const connection_options &options, const upstream_url &url,
                             traffic &count, uint64_t &received)
    : url_(url),
      traffic_(count),
      received_(received),
      connect_timeout_(options.connect_timeout),
      curl_(curl_easy_init()) {
  if (curl_ == nullptr) {
    throw std::bad_alloc();
  }
  set_connection(curl_.get(), options, url_);
  set_flow(options.limit_rate);
  set_callbacks();
}

void http_transfer::set_flow(uint64_t limit_rate) {
  // Waits until it is known whether a new connection can be shared. Without TLS it cannot.
  set(CURLOPT_PIPEWAIT, url_.is_secure() ? 1L : 0L);
  set(CURLOPT_BUFFERSIZE, buffer_size(limit_rate));
}

void http_transfer::set_callbacks() {
  set(CURLOPT_ERRORBUFFER, reason_.data());
  set(CURLOPT_HEADERFUNCTION, take_header);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, take_body);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_PREREQFUNCTION, note_request);
  set(CURLOPT_PREREQDATA, this);
  set(CURLOPT_PRIVATE, this);
}

void http_transfer::add_header(const std::string &line) {
  curl_slist *const all = curl_slist_append(headers_.get(), line.c_str());
  if (all == nullptr) {
    throw std::bad_alloc();
  }
  static_cast<void>(headers_.release());
  headers_.reset(all);
}

void http_transfer::prepare(const transfer_request &request, response_sink &sink) {
  set(CURLOPT_URL, url_.of(request.path).c_str());
  const std::string range = std::to_string(request.from) + "-";
  set(CURLOPT_RANGE, request.from == 0 ? nullptr : range.c_str());
  is_decoded_ = request.may_be_gzip && can_decode_gzip();
  set(CURLOPT_ACCEPT_ENCODING, is_decoded_ ? "gzip" : nullptr);
  set(CURLOPT_HTTP_CONTENT_DECODING, is_decoded_ ? 1L : 0L);
  headers_.reset();
  if (is_etag(request.etag)) {
    add_header("If-None-Match: " + request.etag);
  }
  if (request.bypasses_caches) {
    add_header("Cache-Control: no-cache");
  }
  set(CURLOPT_HTTPHEADER, headers_.get());
  sink_ = &sink;
  head_ = {};
  head_bytes_ = 0;
  body_bytes_ = 0;
  is_asked_ = false;
  has_begun_ = false;
  is_wanted_ = false;
  is_paused_ = false;
  wrong_.clear();
  reason_.front() = '\0';
}

size_t http_transfer::take_header(char *data, size_t size, size_t count, void *self) noexcept {
  auto &transfer = *static_cast<http_transfer *>(self);
  const size_t bytes = size * count;
  return transfer.take_line(std::string_view(data, bytes)) ? bytes : CURL_WRITEFUNC_ERROR;
}

size_t http_transfer::take_body(char *data, size_t size, size_t count, void *self) noexcept {
  auto &transfer = *static_cast<http_transfer *>(self);
  const size_t bytes = size * count;
  if (transfer.traffic_.ahead(traffic::clock::now()) > traffic::clock::duration::zero()) {
    transfer.is_paused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  return transfer.take(std::string_view(data, bytes)) ? bytes : CURL_WRITEFUNC_ERROR;
}

int http_transfer::note_request(void *self, char * /*server_ip*/, char * /*own_ip*/,
                                int /*server_port*/, int /*own_port*/) noexcept {
  auto &transfer = *static_cast<http_transfer *>(self);
  transfer.is_asked_ = true;
  transfer.traffic_.restart_wait(traffic::clock::now());
  return CURL_PREREQFUNC_OK;
}

bool http_transfer::take_line(std::string_view line) {
  traffic_.count(line.size(), traffic::clock::now());
  head_bytes_ += line.size();
  if (head_bytes_ > most_head_bytes) {
    wrong_ = "headers of more than " + std::to_string(most_head_bytes) + " bytes";
    return false;
  }
  head_.take_line(line, std::time(nullptr));
  return true;
}

bool http_transfer::take(std::string_view bytes) {
  traffic_.count(bytes.size(), traffic::clock::now());
  received_ += bytes.size();
  body_bytes_ += bytes.size();
  try {
    begin();
    if (!is_wanted_) {
      return body_bytes_ <= most_unwanted_bytes;
    }
    sink_->take(bytes);
    return true;
  } catch (const std::exception &error) {
    wrong_ = error.what();
    return false;
  }
}

void http_transfer::begin() {
  if (has_begun_) {
    return;
  }
  has_begun_ = true;
  curl_off_t length = -1;
  curl_easy_getinfo(curl_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  is_wanted_ = sink_->begin(head_, length);
}

CURLcode http_transfer::resume() {
  return std::exchange(is_paused_, false) ? curl_easy_pause(curl_.get(), CURLPAUSE_CONT) : CURLE_OK;
}

// Until here, the bytes of a decoded body were counted after decoding.
void http_transfer::count_as_received() {
  curl_off_t bytes = 0;
  curl_easy_getinfo(curl_.get(), CURLINFO_SIZE_DOWNLOAD_T, &bytes);
  received_ -= body_bytes_;
  body_bytes_ = static_cast<uint64_t>(bytes);
  received_ += body_bytes_;
}

transfer_end http_transfer::finish(CURLcode result) {
  if (is_decoded_) {
    count_as_received();
  }
  if (head_.is_complete && wrong_.empty()) {
    try {
      begin();
    } catch (const std::exception &error) {
      wrong_ = error.what();
    }
  }
  if (!wrong_.empty()) {
    return {.wrong = wrong_, .head = head_};
  }
  if (head_.is_complete && !is_wanted_) {
    return {.head = head_};
  }
  if (result == CURLE_OK && !head_.is_complete) {
    result = CURLE_GOT_NOTHING;
  }
  if (result == CURLE_OK) {
    return {.head = head_};
  }
  const failed_transfer failed{.curl = curl_.get(),
                               .result = result,
                               .reason = reason_.data(),
                               .is_asked = is_asked_,
                               .has_head = head_.is_complete,
                               .body_bytes = body_bytes_,
                               .connect_timeout = connect_timeout_};
  return {.wrong = problem_text(failed, url_), .is_broken = is_broken(failed), .head = head_};
}

}  // namespace zotconf
