// SPDX-License-Identifier: Apache-2.0
#include "tests/support/service.hpp"

#include <httplib.h>

#include <algorithm>
#include <regex>
#include <stdexcept>
#include <utility>

#include "tests/support/archive.hpp"

namespace zot::test {
namespace {

constexpr const char *loopback = "127.0.0.1";
constexpr const char *file_time_text = "Tue, 14 Nov 2023 22:13:20 GMT";
constexpr const char *content_type = "application/octet-stream";
constexpr std::size_t worker_count = 4;

// Does not set SO_REUSEPORT, with which two services could share one port unnoticed.
void allow_quick_restart(socket_t socket) {
  const int yes = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

// "k" or "checksum" if the path names a knowledge file, otherwise empty.
std::string knowledge_kind(const std::string &path) {
  static const std::regex form(R"(/file/knowledge/[^/]+/([^/]+)/latest/([^/]+)\.(k|checksum))");
  std::smatch match;
  if (!std::regex_match(path, match, form) || match[1] != match[2]) {
    return {};
  }
  return match[3];
}

// Announces more bytes than it sends, so that the body is incomplete when the connection ends.
void set_broken_body(httplib::Response &answer, const std::string &body, std::size_t bytes) {
  const std::string sent = body.substr(0, bytes);
  const std::size_t announced = std::max(body.size(), sent.size() + 1);
  answer.set_content_provider(announced, content_type,
                              [sent](std::size_t offset, std::size_t, httplib::DataSink &sink) {
                                if (offset < sent.size()) {
                                  sink.write(sent.data() + offset, sent.size() - offset);
                                  return true;
                                }
                                return false;
                              });
}

}  // namespace

service::service(std::uint16_t port) : server_(std::make_unique<httplib::Server>()) {
  server_->set_socket_options(allow_quick_restart);
  server_->set_keep_alive_max_count(1);
  server_->new_task_queue = [] { return new httplib::ThreadPool(worker_count); };
  server_->Get(".*", [this](const httplib::Request &asked, httplib::Response &answer) {
    respond(asked, {}, answer);
  });
  // The body is read here, because the server limits the size of a form, and a plain POST is
  // declared as one.
  server_->Post(".*", [this](const httplib::Request &asked, httplib::Response &answer,
                             const httplib::ContentReader &read) {
    std::string body;
    read([&body](const char *data, std::size_t size) {
      body.append(data, size);
      return true;
    });
    respond(asked, body, answer);
  });
  const int bound = port == 0                               ? server_->bind_to_any_port(loopback)
                    : server_->bind_to_port(loopback, port) ? port
                                                            : -1;
  if (bound <= 0) {
    throw std::runtime_error("cannot listen on port " + std::to_string(port));
  }
  port_ = static_cast<std::uint16_t>(bound);
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  while (!server_->is_running()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

service::~service() {
  stop();
}

void service::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stopped_.notify_all();
  server_->stop();
  if (thread_.joinable()) {
    thread_.join();
  }
}

std::string service::host() const {
  return std::string(loopback) + ":" + std::to_string(port_);
}

std::string service::url(std::string_view path) const {
  return "http://" + host() + std::string(path);
}

void service::publish(publication published) {
  const std::lock_guard lock(mutex_);
  published_ = std::move(published);
}

std::vector<request> service::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::size_t service::request_count(std::string_view suffix) const {
  const std::lock_guard lock(mutex_);
  const auto count = std::ranges::count_if(
      requests_, [&](const request &made) { return made.path.ends_with(suffix); });
  return static_cast<std::size_t>(count);
}

void service::clear_requests() {
  const std::lock_guard lock(mutex_);
  requests_.clear();
}

void service::answer(std::string suffix, int status, std::string body) {
  add_rule({.suffix = std::move(suffix),
            .fixed = fixed_answer{status, std::move(body)},
            .delay = {},
            .break_off = {}});
}

void service::delay(std::string suffix, std::chrono::milliseconds time) {
  add_rule({.suffix = std::move(suffix), .fixed = {}, .delay = time, .break_off = {}});
}

void service::delay(std::string suffix, int milliseconds) {
  delay(std::move(suffix), std::chrono::milliseconds(milliseconds));
}

void service::break_off(std::string suffix, std::size_t bytes) {
  add_rule({.suffix = std::move(suffix), .fixed = {}, .delay = {}, .break_off = bytes});
}

void service::clear_overrides() {
  const std::lock_guard lock(mutex_);
  rules_.clear();
}

void service::add_rule(override_rule rule) {
  const std::lock_guard lock(mutex_);
  rules_.push_back(std::move(rule));
}

service::override_rule service::rules_for(const std::string &path) const {
  override_rule all{};
  for (const override_rule &rule : rules_) {
    if (!path.ends_with(rule.suffix)) {
      continue;
    }
    all.fixed = rule.fixed.has_value() ? rule.fixed : all.fixed;
    all.delay = rule.delay.has_value() ? rule.delay : all.delay;
    all.break_off = rule.break_off.has_value() ? rule.break_off : all.break_off;
  }
  return all;
}

service::fixed_answer service::published_answer(const request &asked) const {
  const std::string kind = knowledge_kind(asked.path);
  if (published_.has_value() && asked.method == "GET" && !kind.empty()) {
    return {200, kind == "k" ? published_->k_text() : published_->checksum_text()};
  }
  if (published_.has_value() && asked.method == "POST" && asked.path == "/tgz") {
    try {
      return {200, archive_of(*published_, requested_names(asked.body))};
    } catch (const std::invalid_argument &refused) {
      return {400, refused.what()};
    }
  }
  return {404, "not found\n"};
}

void service::wait(std::unique_lock<std::mutex> &lock, std::chrono::milliseconds time) {
  stopped_.wait_for(lock, time, [this] { return stopping_; });
}

void service::respond(const httplib::Request &asked, const std::string &body,
                      httplib::Response &answer) {
  std::unique_lock lock(mutex_);
  const request made{asked.method, asked.path, body};
  requests_.push_back(made);
  const override_rule rule = rules_for(made.path);
  if (rule.delay.has_value()) {
    wait(lock, *rule.delay);
  }
  const fixed_answer found = rule.fixed.has_value() ? *rule.fixed : published_answer(made);
  answer.status = found.status;
  answer.set_header("Last-Modified", file_time_text);
  if (rule.break_off.has_value()) {
    set_broken_body(answer, found.body, *rule.break_off);
  } else {
    answer.set_content(found.body, content_type);
  }
}

std::uint16_t closed_port() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *generic = reinterpret_cast<sockaddr *>(&address);
  const bool known =
      ::bind(socket, generic, size) == 0 && ::getsockname(socket, generic, &size) == 0;
  ::close(socket);
  if (!known) {
    throw std::runtime_error("no free port");
  }
  return ntohs(address.sin_port);
}

}  // namespace zot::test
