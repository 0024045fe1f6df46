// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/service_client.hpp"

#include <cstdio>
#include <new>
#include <stdexcept>
#include <utility>

#include "tools/output/console.hpp"
#include "tools/probe/stop_request.hpp"

namespace zotconf {
namespace {

constexpr long http_ok = 200;
constexpr long first_redirection = 300;
constexpr long first_refusal = 400;
constexpr uint64_t most_header_bytes = uint64_t{256} << 10;
constexpr int silence_factor = 12;

// The destination of an answer, and how much has arrived.
struct answer_sink {
  std::string *text = nullptr;
  std::FILE *file = nullptr;
  uint64_t limit = 0;
  uint64_t received = 0;
  uint64_t header_bytes = 0;
  std::string exceeded = {};  // which limit
};

size_t take_body(char *data, size_t size, size_t count, void *arg) {
  auto &sink = *static_cast<answer_sink *>(arg);
  const size_t bytes = size * count;
  if (bytes > sink.limit - sink.received) {
    sink.exceeded = "a body of more than " + human_bytes(sink.limit);
    return 0;
  }
  sink.received += bytes;
  if (sink.file != nullptr) {
    return std::fwrite(data, 1, bytes, sink.file);
  }
  sink.text->append(data, bytes);
  return bytes;
}

size_t take_header(char * /*data*/, size_t size, size_t count, void *arg) {
  auto &sink = *static_cast<answer_sink *>(arg);
  sink.header_bytes += size * count;
  if (sink.header_bytes > most_header_bytes) {
    sink.exceeded = "headers of more than " + human_bytes(most_header_bytes);
    return 0;
  }
  return size * count;
}

int end_when_stopped(void * /*unused*/, curl_off_t /*expected*/, curl_off_t /*received*/,
                     curl_off_t /*to_send*/, curl_off_t /*sent*/) {
  return stop_request::has_come() ? 1 : 0;
}

template <class Value>
void set(const curl_owner &curl, CURLoption option, Value value) {
  if (curl_easy_setopt(curl.get(), option, value) != CURLE_OK) {
    throw std::runtime_error("libcurl lacks an option that the probe needs");
  }
}

void set_sink(const curl_owner &curl, answer_sink &sink) {
  set(curl, CURLOPT_WRITEFUNCTION, take_body);
  set(curl, CURLOPT_WRITEDATA, &sink);
  set(curl, CURLOPT_HEADERFUNCTION, take_header);
  set(curl, CURLOPT_HEADERDATA, &sink);
}

std::string seconds_text(std::chrono::seconds time) {
  return std::to_string(time.count()) + " s";
}

std::string status_text(const curl_owner &curl, long status) {
  std::string text = "status " + std::to_string(status);
  char *target = nullptr;
  curl_easy_getinfo(curl.get(), CURLINFO_REDIRECT_URL, &target);
  if (status >= first_redirection && status < first_refusal && target != nullptr) {
    text += std::string(", a redirection to ") + target + ", which the library does not follow";
  }
  return text;
}

// An error response may be of any size: its status counts.
std::string problem_of(const curl_owner &curl, CURLcode result, const answer_sink &sink,
                       long status, const std::string &late) {
  if (!sink.exceeded.empty()) {
    return status >= first_refusal ? status_text(curl, status) : sink.exceeded;
  }
  if (result == CURLE_OPERATION_TIMEDOUT) {
    return late;
  }
  if (result != CURLE_OK) {
    return std::string("no complete answer: ") + curl_easy_strerror(result);
  }
  return status == http_ok ? "" : status_text(curl, status);
}

reply perform(const curl_owner &curl, const answer_sink &sink, const std::string &late) {
  const CURLcode result = curl_easy_perform(curl.get());
  stop_request::expect_none();
  reply came;
  curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &came.status);
  came.wrong = problem_of(curl, result, sink, came.status, late);
  return came;
}

}  // namespace

void raw_connection::send(std::string_view bytes) const {
  size_t sent = 0;
  const CURLcode result = curl_easy_send(curl_.get(), bytes.data(), bytes.size(), &sent);
  if (result != CURLE_OK || sent != bytes.size()) {
    throw std::runtime_error("the service has closed the other connection");
  }
}

service_client::service_client(std::string url, std::chrono::seconds timeout)
    : url_(std::move(url)), timeout_(timeout) {
  if (url_.ends_with('/')) {
    url_.pop_back();
  }
}

curl_owner service_client::prepared(const std::string &path) const {
  curl_owner curl(curl_easy_init());
  if (curl == nullptr) {
    throw std::bad_alloc();
  }
  set(curl, CURLOPT_URL, (url_ + path).c_str());
  set(curl, CURLOPT_NOSIGNAL, 1L);
  set(curl, CURLOPT_PROXY, "");
  set(curl, CURLOPT_CONNECTTIMEOUT, static_cast<long>(timeout_.count()));
  set(curl, CURLOPT_XFERINFOFUNCTION, end_when_stopped);
  set(curl, CURLOPT_NOPROGRESS, 0L);
  return curl;
}

reply service_client::get(const std::string &path, uint64_t limit) const {
  const curl_owner curl = prepared(path);
  std::string body;
  answer_sink sink{.text = &body, .limit = limit};
  set_sink(curl, sink);
  set(curl, CURLOPT_TIMEOUT, static_cast<long>(timeout_.count()));
  reply came = perform(curl, sink, "no complete answer within " + seconds_text(timeout_));
  came.body = std::move(body);
  return came;
}

reply service_client::post(const std::string &path, const post_request &request,
                           const fs::path &into) const {
  const curl_owner curl = prepared(path);
  zot::file_stream file(std::fopen(into.c_str(), "wbe"));
  if (file == nullptr) {
    throw_errno("cannot create " + into.string());
  }
  answer_sink sink{.file = file.get(), .limit = request.limit};
  set_sink(curl, sink);
  const std::unique_ptr<curl_slist, zot::releaser<curl_slist_free_all>> headers(
      request.expects_continue ? curl_slist_append(nullptr, "Expect: 100-continue") : nullptr);
  set(curl, CURLOPT_HTTPHEADER, headers.get());
  set(curl, CURLOPT_POST, 1L);
  set(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  set(curl, CURLOPT_POSTFIELDS, request.body.c_str());
  const std::chrono::seconds silence = silence_factor * timeout_;
  set(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  set(curl, CURLOPT_LOW_SPEED_TIME, static_cast<long>(silence.count()));
  reply came = perform(curl, sink, "nothing more for " + seconds_text(silence));
  if (std::fclose(file.release()) != 0) {
    throw_errno("cannot write " + into.string());
  }
  return came;
}

raw_connection service_client::connect() const {
  curl_owner curl = prepared("/");
  set(curl, CURLOPT_CONNECT_ONLY, 1L);
  const CURLcode result = curl_easy_perform(curl.get());
  stop_request::expect_none();
  if (result != CURLE_OK) {
    throw std::runtime_error(std::string("no connection: ") + curl_easy_strerror(result));
  }
  return raw_connection(std::move(curl));
}

std::string service_client::host() const {
  return url_.substr(url_.find("//") + 2);
}

}  // namespace zotconf
