// SPDX-License-Identifier: Apache-2.0
#include "tools/service/pid_file.hpp"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace zotconf {
namespace {

// The number in a pid file; 0 for an empty file, -1 for any other text.
pid_t pid_in(std::string_view text) {
  while (!text.empty() && text.back() == '\n') {
    text.remove_suffix(1);
  }
  if (text.empty()) {
    return 0;
  }
  pid_t pid = 0;
  const char *const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, pid);
  return error == std::errc() && stop == end && pid > 0 ? pid : -1;
}

// After a restart of a container, this process may have the process ID of the previous one.
bool is_other_process(pid_t pid) {
  return pid > 0 && pid != ::getpid() && (::kill(pid, 0) == 0 || errno == EPERM);
}

}  // namespace

pid_file::pid_file(fs::path path) : path_(std::move(path)) {
  if (!is_there(path_)) {
    return;
  }
  const pid_t pid = pid_in(read_file_text(path_));
  if (pid < 0) {
    throw std::runtime_error(path_.string() + ": not a pid file, so it is not overwritten");
  }
  if (is_other_process(pid)) {
    throw std::runtime_error(path_.string() + " names the running process " + std::to_string(pid) +
                             "; stop it with: kill " + std::to_string(pid));
  }
}

pid_file::~pid_file() {
  try {
    if (!written_.empty() && is_there(path_) && read_file_text(path_) == written_) {
      fs::remove(path_);
    }
  } catch (const std::exception &) {
    // The file stays; the next start treats it as stale.
  }
}

void pid_file::write() {
  const std::string text = std::to_string(::getpid()) + "\n";
  replace_file(path_, text, durability::buffered);
  written_ = text;
}

}  // namespace zotconf
