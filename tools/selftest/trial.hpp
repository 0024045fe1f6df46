// SPDX-License-Identifier: Apache-2.0
// The test environment of the self-test: a folder, a publication, a service, a cache.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/element/wake_up.hpp"
#include "tools/files/file_io.hpp"
#include "tools/selftest/configuration.hpp"
#include "tools/selftest/processes.hpp"

namespace zotconf {

// A process that links the library, started in a child.
class client {
 public:
  // Logs to a file. If killed_at is above 0, the log message of the commit with that number kills
  // this process with SIGKILL, which gives it as little time as a power cut.
  explicit client(const fs::path &log, unsigned killed_at = 0);
  client(const client &) = delete;
  client &operator=(const client &) = delete;
  ~client() = default;

  // Throws std::runtime_error if the get returns another status.
  entries get(change wanted, int expected);
  // Commits or rolls back. Throws std::runtime_error on failure.
  void commit();
  void roll_back();
  [[nodiscard]] bool is_new() const { return handle_->is_new(); }

 private:
  void take(const log_line &line);

  zot::file_stream log_;
  unsigned killed_at_;
  unsigned messages_ = 0;
  bool commits_ = false;
  std::optional<handle> handle_;
};

class trial {
 public:
  // make_folder() will create its folder in `below`.
  explicit trial(fs::path below) : below_(std::move(below)) {}

  // Throws std::system_error.
  void make_folder();
  [[nodiscard]] bool has_folder() const { return folder_.has_value(); }
  [[nodiscard]] const fs::path &folder() const { return folder_.value().path(); }
  // Keeps the folder when the trial ends.
  void keep_folder();

  [[nodiscard]] fs::path cache() const { return folder() / "element/writable/zot"; }
  [[nodiscard]] fs::path scratch() const { return folder() / "element/tmp"; }

  // Each of these works in a child. They throw std::runtime_error on failure, and `interrupted`.
  std::string run(const child_process::work &todo);
  // Returns false if the child was killed.
  bool run_to_kill(const child_process::work &todo);
  void publish(const configuration &content);
  // Returns the port.
  int start_service();
  void stop_service();
  // Starts a process and throws if it finds another configuration in force.
  void expect_in_force(const configuration &expected, const std::string &when);

  [[nodiscard]] client start_client(unsigned killed_at = 0) const {
    return client(folder() / "library.log", killed_at);
  }

  const configurations published;

 private:
  [[nodiscard]] environment_variables variables() const;

  fs::path below_;
  wake_up wake_;
  std::optional<temporary_folder> folder_;
  std::unique_ptr<child_process> service_;
  int port_ = 1;
};

}  // namespace zotconf
