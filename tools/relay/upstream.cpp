// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/upstream.hpp"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/relay/file_fetch.hpp"
#include "tools/relay/http_engine.hpp"
#include "tools/relay/tls_files.hpp"

namespace zotconf {
namespace {

// The body of a small file, in memory.
class small_body : public response_sink {
 public:
  explicit small_body(uint64_t limit) : limit_(limit) {}

  bool begin(const response_head &head, int64_t length) override {
    if (head.status == status_ok && length > 0) {
      check(static_cast<uint64_t>(length));
    }
    return head.status == status_ok;
  }
  void take(std::string_view bytes) override {
    const uint64_t size = bytes_.size() + bytes.size();
    check(size);
    if (size > bytes_.capacity() && size > most_copied) {
      bytes_.reserve(static_cast<size_t>(limit_));
    }
    bytes_.append(bytes);
  }
  [[nodiscard]] std::string release() { return std::move(bytes_); }

 private:
  void check(uint64_t size) const {
    if (size > limit_) {
      throw std::runtime_error("more than " + std::to_string(limit_) + " bytes");
    }
  }

  // A buffer that grows exists twice for a moment. A long body gets the whole one at once, which
  // takes memory only as far as it is filled.
  static constexpr uint64_t most_copied = uint64_t{1} << 20;

  uint64_t limit_;
  std::string bytes_;
};

connection_options checked_connection(const upstream_options &options) {
  if (!options.ca.empty()) {
    check_trusted_certificates(options.ca);
  }
  if (!options.certificate.empty()) {
    check_client_certificate(options.certificate,
                             options.key.empty() ? options.certificate : options.key);
  }
  return {.ca = options.ca,
          .certificate = options.certificate,
          .key = options.key,
          .connect_timeout = options.connect_timeout,
          .limit_rate = options.limit_rate,
          .certificate_time = options.certificate_time};
}

upstream_reply small_reply(const transfer_end &how, small_body &body) {
  if (!how.wrong.empty()) {
    return {.wrong = how.wrong};
  }
  upstream_reply reply{.status = how.head.status,
                       .body = body.release(),
                       .etag = how.head.etag,
                       .retry_after = how.head.retry_after};
  if (how.head.is_redirection()) {
    reply.wrong = how.head.status_text();
  }
  return reply;
}

// Ends the transfer of a sink before the sink goes.
class end_of_transfers {
 public:
  explicit end_of_transfers(http_engine &http) : http_(http) {}
  end_of_transfers(const end_of_transfers &) = delete;
  end_of_transfers &operator=(const end_of_transfers &) = delete;
  ~end_of_transfers() { http_.cancel(); }

 private:
  http_engine &http_;
};

}  // namespace

class upstream::engine {
 public:
  engine(const upstream_options &options, is_stopped stopped)
      : url_(options.url),
        http_(url_, checked_connection(options), options.silence),
        stopped_(std::move(stopped)) {}

  upstream_reply get(const transfer_request &request, uint64_t limit) {
    small_body body(limit);
    const end_of_transfers at_the_end(http_);
    http_.start(request, body);
    while (!stopped_()) {
      const std::vector<http_engine::ended> all = http_.wait();
      if (!all.empty()) {
        return small_reply(all.front().how, body);
      }
    }
    return {.wrong = "stopped"};
  }

  fetch_end fetch(const std::vector<wanted_file> &files,
                  const std::function<void(size_t)> &arrived) {
    return file_fetch(http_, files, arrived, stopped_).run();
  }

  [[nodiscard]] uint64_t received() const { return http_.received(); }

 private:
  upstream_url url_;
  http_engine http_;
  is_stopped stopped_;
};

upstream::upstream(const upstream_options &options, is_stopped stopped)
    : engine_(std::make_unique<engine>(options, std::move(stopped))) {}

upstream::~upstream() = default;

upstream_reply upstream::get(const std::string &path, uint64_t limit, const std::string &etag) {
  return engine_->get({.path = path, .etag = etag, .may_be_gzip = true}, limit);
}

fetch_end upstream::fetch(const std::vector<wanted_file> &files,
                          const std::function<void(size_t)> &arrived) {
  return engine_->fetch(files, arrived);
}

uint64_t upstream::received() const {
  return engine_->received();
}

}  // namespace zotconf
