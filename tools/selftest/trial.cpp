// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/trial.hpp"

#include <charconv>
#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tools/output/exit_status.hpp"
#include "tools/publication/publish.hpp"
#include "tools/service/serve.hpp"

namespace zotconf {
namespace {

using namespace std::chrono_literals;

constexpr const char *index_of_element = "001122334455";
constexpr const char *cluster = "selftest";
constexpr uint32_t timeout_seconds = 30;

std::string described(const std::string &call, const status &result) {
  std::string text = call + " ends with " + std::string(result.name());
  return result.text() == result.name() ? text : text + ": " + result.text();
}

// The standard error of a command, without its prefix.
std::string reason_of(const std::string &err) {
  constexpr std::string_view prefix = "zotconf: ";
  const std::string text = err.substr(0, err.find_last_not_of('\n') + 1);
  return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

void write_source(const fs::path &source, const configuration &content) {
  fs::remove_all(source);
  for (const auto &[name, bytes] : content) {
    fs::create_directories((source / name).parent_path());
    replace_file(source / name, bytes, durability::buffered);
  }
}

// Returns the port in "listening on 127.0.0.1:PORT"; 0 while that line is missing.
int port_in(const std::string &output) {
  constexpr std::string_view before = "listening on 127.0.0.1:";
  const size_t begin = output.find(before);
  if (begin == std::string::npos || output.find('\n', begin) == std::string::npos) {
    return 0;
  }
  int port = 0;
  std::from_chars(output.data() + begin + before.size(), output.data() + output.size(), port);
  return port;
}

}  // namespace

client::client(const fs::path &log, unsigned killed_at)
    : log_(std::fopen(log.c_str(), "ae")), killed_at_(killed_at) {
  if (log_ == nullptr) {
    throw_errno("cannot write " + log.string());
  }
  options settings{.index = index_of_element, .timeout = timeout_seconds};
  settings.log.level = ZOT_LOG_DEBUG;
  settings.log.function = [this](const log_line &line) { take(line); };
  std::string reason;
  handle_ = handle::create(std::move(settings), &reason);
  if (!handle_) {
    throw std::runtime_error("no handle: " + reason);
  }
}

void client::take(const log_line &line) {
  std::fwrite(line.text.data(), 1, line.text.size(), log_.get());
  // The library logs each step of a call at this level.
  if (commits_ && line.level <= ZOT_LOG_INFO && ++messages_ == killed_at_) {
    std::fflush(log_.get());
    std::raise(SIGKILL);
  }
}

entries client::get(change wanted, int expected) {
  entries list = handle_->get(category_set::all(), wanted);
  if (list.result() != expected) {
    throw std::runtime_error(described("get", list.result()) + ", expected " +
                             std::string(status(expected).name()));
  }
  return list;
}

void client::commit() {
  commits_ = true;
  const status done = handle_->commit();
  commits_ = false;
  if (done != ZOT_OK) {
    throw std::runtime_error(described("commit", done));
  }
}

void client::roll_back() {
  const status done = handle_->roll_back();
  if (done != ZOT_OK) {
    throw std::runtime_error(described("roll-back", done));
  }
}

void trial::make_folder() {
  folder_.emplace(below_);
}

void trial::keep_folder() {
  if (folder_) {
    folder_->keep();
  }
}

environment_variables trial::variables() const {
  const std::string element = folder() / "element";
  return {{"ZOT_DEV_PATH", ""},
          {"ZOT_PREFIX_CONF_ROOT", element},
          {"ZOT_PREFIX_TMP_ROOT", element},
          {"ZOT_REMOTE_PORT", std::to_string(port_)}};
}

std::string trial::run(const child_process::work &todo) {
  return run_apart(wake_, variables(), todo);
}

bool trial::run_to_kill(const child_process::work &todo) {
  return child_process(variables(), todo).wait(wake_).has_value();
}

void trial::publish(const configuration &content) {
  run([&] {
    write_source(folder() / "source", content);
    std::ostringstream out;
    std::ostringstream err;
    publish_options options;
    options.source = folder() / "source";
    options.publication = folder() / "publication";
    options.who = {.subsys = "AP", .index = index_of_element};
    options.cluster = cluster;
    if (run_publish(options, console(out, err)) != exit_success) {
      throw std::runtime_error(reason_of(err.str()));
    }
    return "";
  });
}

int trial::start_service() {
  const fs::path log = folder() / "service.log";
  service_ = std::make_unique<child_process>(variables(), [&] {
    std::ofstream out(log);
    if (run_serve({.publication = folder() / "publication", .port = 0}, console(out, out)) !=
        exit_success) {
      out.close();
      throw std::runtime_error(reason_of(read_file_text(log)));
    }
    return "";
  });
  const auto end = wake_up::clock::now() + longest_child;
  int port = 0;
  while ((port = is_there(log) ? port_in(read_file_text(log)) : 0) == 0) {
    if (wake_.stop_signal() != 0) {
      throw interrupted();
    }
    if (service_->has_ended()) {
      service_->wait(wake_);
      throw std::runtime_error("the service has ended");
    }
    if (wake_up::clock::now() >= end) {
      throw std::runtime_error("the service does not listen");
    }
    wake_.wait_until(wake_up::clock::now() + 10ms);
  }
  port_ = port;
  return port;
}

void trial::stop_service() {
  if (service_ == nullptr) {
    throw std::runtime_error("no service runs");
  }
  service_->send(SIGTERM);
  const bool ended_by_itself = service_->wait(wake_).has_value();
  service_.reset();
  if (!ended_by_itself) {
    throw std::runtime_error("the service was killed");
  }
}

void trial::expect_in_force(const configuration &expected, const std::string &when) {
  run([&] {
    client element = start_client();
    if (!is_in_force(element.get(change::cached, ZOT_OK), expected)) {
      throw std::runtime_error("another configuration is in force " + when);
    }
    return "";
  });
}

}  // namespace zotconf
