// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/http_engine.hpp"

#include <algorithm>
#include <functional>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tools/output/duration.hpp"

namespace zotconf {
namespace {

constexpr size_t kept_connections = 8;
// Transfers that share one connection with HTTP/2. A server allows about a hundred.
constexpr size_t most_streams = 100;
constexpr std::chrono::milliseconds shortest_pause{10};
constexpr std::chrono::milliseconds longest_wait{250};

void check_multi(CURLMcode result) {
  if (result != CURLM_OK) {
    throw std::runtime_error(std::string("libcurl: ") + curl_multi_strerror(result));
  }
}

std::string silence_text(const http_transfer &transfer, uint64_t bytes,
                         std::chrono::milliseconds time) {
  if (!transfer.has_head()) {
    return "no answer for " + duration_text(time);
  }
  return (bytes == 0 ? "nothing more for " : "less than 1 KiB/s for ") + duration_text(time);
}

}  // namespace

http_engine::http_engine(const upstream_url &url, connection_options options,
                         std::chrono::milliseconds silence)
    : url_(url),
      options_(std::move(options)),
      silence_(silence),
      traffic_(options_.limit_rate, silence),
      multi_(curl_multi_init()) {
  if (multi_ == nullptr) {
    throw std::bad_alloc();
  }
  set(CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
  set(CURLMOPT_MAX_HOST_CONNECTIONS, static_cast<long>(kept_connections));
  set(CURLMOPT_MAXCONNECTS, static_cast<long>(kept_connections));
  // A libcurl without an option that the relay needs is found now.
  keep(idle_transfer());
}

void http_engine::set(CURLMoption option, long value) const {
  check_multi(curl_multi_setopt(multi_.get(), option, value));
}

bool http_engine::has_room() const {
  const size_t most = is_http2_ ? most_streams : kept_connections;
  return active_.size() < most && !is_ahead();
}

bool http_engine::is_ahead() const {
  return traffic_.ahead(traffic::clock::now()) > traffic::clock::duration::zero();
}

http_engine::transfer_owner http_engine::idle_transfer() {
  if (idle_.empty()) {
    return std::make_unique<http_transfer>(options_, url_, traffic_, received_);
  }
  transfer_owner transfer = std::move(idle_.back());
  idle_.pop_back();
  return transfer;
}

void http_engine::start(const transfer_request &request, response_sink &sink) {
  transfer_owner transfer = idle_transfer();
  transfer->prepare(request, sink);
  active_.reserve(active_.size() + 1);
  check_multi(curl_multi_add_handle(multi_.get(), transfer->handle()));
  active_.push_back(std::move(transfer));
}

http_engine::transfer_owner http_engine::remove(const http_transfer *transfer) {
  const auto found = std::ranges::find(active_, transfer, &transfer_owner::get);
  transfer_owner owner = std::move(*found);
  active_.erase(found);
  curl_multi_remove_handle(multi_.get(), owner->handle());
  return owner;
}

// Each handle has a buffer, so only a few are kept.
void http_engine::keep(transfer_owner transfer) {
  if (idle_.size() < kept_connections) {
    idle_.push_back(std::move(transfer));
  }
}

void http_engine::collect(std::vector<ended> &all) {
  int left = 0;
  while (const CURLMsg *const message = curl_multi_info_read(multi_.get(), &left)) {
    const CURLcode result = message->data.result;
    http_transfer *done = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &done);
    long version = CURL_HTTP_VERSION_NONE;
    curl_easy_getinfo(message->easy_handle, CURLINFO_HTTP_VERSION, &version);
    if (version != CURL_HTTP_VERSION_NONE) {
      is_http2_ = version == CURL_HTTP_VERSION_2_0;
    }
    all.push_back({.sink = done->sink(), .how = done->finish(result)});
    keep(remove(done));
    traffic_.restart_wait(traffic::clock::now());
  }
}

// The transfers take turns. One that fails here is not reported by libcurl.
void http_engine::resume(std::vector<ended> &all) {
  for (size_t left = active_.size(); left > 0 && !is_ahead(); --left) {
    std::rotate(active_.begin(), active_.begin() + 1, active_.end());
    http_transfer &last = *active_.back();
    if (const CURLcode result = last.resume(); result != CURLE_OK) {
      all.push_back({.sink = last.sink(), .how = last.finish(result)});
      keep(remove(&last));
    }
  }
}

void http_engine::end_silent(std::vector<ended> &all) {
  const auto is_asked = [](const transfer_owner &each) { return each->is_asked(); };
  if (std::ranges::none_of(active_, is_asked)) {
    traffic_.restart_wait(traffic::clock::now());
    return;
  }
  if (!traffic_.is_too_slow(traffic::clock::now())) {
    return;
  }
  const auto first = std::stable_partition(active_.begin(), active_.end(), std::not_fn(is_asked));
  for (auto each = first; each != active_.end(); ++each) {
    const std::string text = silence_text(**each, traffic_.bytes_of_wait(), silence_);
    all.push_back({.sink = (*each)->sink(), .how = {.wrong = text}});
    curl_multi_remove_handle(multi_.get(), (*each)->handle());
  }
  active_.erase(first, active_.end());
}

std::vector<http_engine::ended> http_engine::wait() {
  // What the caller did meanwhile is not the server's delay.
  traffic_.exclude_from_wait(traffic::clock::now() - last_wait_);
  std::vector<ended> all;
  if (is_ahead()) {
    keep_to_rate();
  } else {
    run(all);
  }
  last_wait_ = traffic::clock::now();
  return all;
}

// What is not read waits at the server.
void http_engine::keep_to_rate() {
  const auto begin = traffic::clock::now();
  const auto ahead = traffic_.ahead(begin);
  const auto pause = std::clamp<traffic::clock::duration>(ahead, shortest_pause, longest_wait);
  std::this_thread::sleep_for(pause);
  // A busy machine may wake this thread late.
  traffic_.exclude_from_wait(traffic::clock::now() - begin);
}

void http_engine::run(std::vector<ended> &all) {
  resume(all);
  int running = 0;
  check_multi(curl_multi_perform(multi_.get(), &running));
  collect(all);
  end_silent(all);
  if (all.empty() && !is_ahead()) {
    constexpr int wait = static_cast<int>(longest_wait.count());
    check_multi(curl_multi_poll(multi_.get(), nullptr, 0, wait, nullptr));
  }
}

void http_engine::cancel() {
  for (transfer_owner &each : active_) {
    curl_multi_remove_handle(multi_.get(), each->handle());
    keep(std::move(each));
  }
  active_.clear();
}

}  // namespace zotconf
