// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_state.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace zotconf {
namespace {

constexpr std::array storage_errors = {ENOSPC, EDQUOT, EROFS, EIO, EACCES, EPERM};

bool has_text(const std::string &text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

// A status was received, so the connection works. The text may name a file with any name.
bool is_status(const std::string &text) {
  return has_text(text, "status ");
}

// It may end with any error of the system.
bool is_connection(const std::string &text) {
  return has_text(text, "cannot connect to ");
}

bool is_storage(const std::string &text) {
  return has_text(text, "no space left") || std::ranges::any_of(storage_errors, [&text](int error) {
           return has_text(text, std::generic_category().message(error));
         });
}

bool is_handshake(const std::string &text) {
  static constexpr std::array<std::string_view, 4> words = {"certificate", "SSL", "TLS", "x509"};
  return std::ranges::any_of(words,
                             [&text](std::string_view word) { return has_text(text, word); });
}

}  // namespace

relay_problem problem_of(const relay_state &state) {
  const std::string &text = state.problem;
  if (text.empty()) {
    return relay_problem::none;
  }
  if (state.is_refused) {
    return relay_problem::publication;
  }
  if (is_status(text)) {
    return relay_problem::server;
  }
  if (is_storage(text) && !is_connection(text)) {
    return relay_problem::storage;
  }
  return is_handshake(text) ? relay_problem::certificate : relay_problem::server;
}

const char *name_of(relay_problem problem) {
  static constexpr std::array<const char *, 5> names = {"none", "server", "certificate",
                                                        "publication", "storage"};
  return names.at(static_cast<size_t>(problem));
}

relay_health health_of(const relay_state &state, std::time_t now) {
  if (!state.has_publication) {
    return relay_health::nothing;
  }
  const bool is_good = state.problem.empty() && !is_stale(state, now);
  return is_good ? relay_health::good : relay_health::problem;
}

const char *name_of(relay_health health) {
  static constexpr std::array<const char *, 3> names = {"good", "problem", "nothing"};
  return names.at(static_cast<size_t>(health));
}

std::chrono::seconds age_of(std::time_t when, std::time_t now) {
  return std::chrono::seconds(std::max<std::time_t>(now - when, 0));
}

bool is_stale(const relay_state &state, std::time_t now) {
  const std::time_t since = state.last_contact != 0 ? state.last_contact : state.started;
  return state.max_age.count() > 0 && age_of(since, now) > state.max_age;
}

void relay_board::change(const std::function<void(relay_state &)> &how) {
  const std::scoped_lock guard(mutex_);
  how(state_);
}

relay_state relay_board::read() const {
  const std::scoped_lock guard(mutex_);
  return state_;
}

}  // namespace zotconf
