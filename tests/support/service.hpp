// SPDX-License-Identifier: Apache-2.0
// The configuration service on the loopback host, which can misbehave on request.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/publication.hpp"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace zot::test {

struct request {
  std::string method;
  std::string path;
  std::string body;
};

// Answers GET /file/knowledge/<sub-system>/<index>/latest/<index>.k and .checksum and POST /tgz
// from a publication, and anything else with 404. An override applies to every path that ends in
// its suffix, even to paths that are not served otherwise. The latest matching one counts.
class service {
 public:
  // Last-Modified of every answer, as seconds since the epoch.
  static constexpr std::int32_t file_time = 1700000000;

  // Port 0 picks a free one. Throws if the port is in use.
  explicit service(std::uint16_t port = 0);
  service(const service &) = delete;
  service &operator=(const service &) = delete;
  ~service();

  [[nodiscard]] std::uint16_t port() const { return port_; }
  // "127.0.0.1:<port>"
  [[nodiscard]] std::string host() const;
  [[nodiscard]] std::string url(std::string_view path) const;

  void publish(publication published);
  // Stops listening; further requests are refused.
  void stop();

  [[nodiscard]] std::vector<request> requests() const;
  // The requests whose path ends in a suffix.
  [[nodiscard]] std::size_t request_count(std::string_view suffix) const;
  void clear_requests();

  void answer(std::string suffix, int status, std::string body);
  void delay(std::string suffix, std::chrono::milliseconds time);
  void delay(std::string suffix, int milliseconds);
  // Closes the connection after this many bytes of the body.
  void break_off(std::string suffix, std::size_t bytes);
  void clear_overrides();

 private:
  struct fixed_answer {
    int status;
    std::string body;
  };
  struct override_rule {
    std::string suffix;
    std::optional<fixed_answer> fixed;
    std::optional<std::chrono::milliseconds> delay;
    std::optional<std::size_t> break_off;
  };

  void respond(const httplib::Request &asked, const std::string &body, httplib::Response &answer);
  [[nodiscard]] fixed_answer published_answer(const request &asked) const;
  [[nodiscard]] override_rule rules_for(const std::string &path) const;
  void add_rule(override_rule rule);
  void wait(std::unique_lock<std::mutex> &lock, std::chrono::milliseconds time);

  mutable std::mutex mutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
  std::optional<publication> published_;
  std::vector<request> requests_;
  std::vector<override_rule> rules_;
  std::unique_ptr<httplib::Server> server_;
  std::uint16_t port_ = 0;
  std::thread thread_;
};

// A port of the loopback host on which nothing listens.
[[nodiscard]] std::uint16_t closed_port();

}  // namespace zot::test
