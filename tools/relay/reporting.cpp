// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/reporting.hpp"

#include <ctime>
#include <optional>
#include <utility>

#include "tools/output/error_text.hpp"
#include "tools/relay/trusted_time.hpp"

namespace zotconf {
namespace {

// Certificates of the receiver are judged at the same time as those of the server.
connection_options connection_to_receiver(const upstream_options &server, const relay_board &board,
                                          const report_times &times) {
  return {.ca = server.ca,
          .certificate = server.certificate,
          .key = server.key,
          .connect_timeout = times.connect_timeout,
          .certificate_time = [&board] {
            return trusted_time(std::time(nullptr), board.read().signed_at);
          }};
}

}  // namespace

reporting::reporting(const report_options &options, const upstream_options &server,
                     relay_board &board, relay_reporter &reporter, const console &where,
                     const report_times &times)
    : board_(board),
      reporter_(reporter),
      where_(where),
      source_(options.element, board.read().who),
      sender_(options.url, connection_to_receiver(server, board, times), times,
              [this](const report_status &status) { note(status); }) {}

void reporting::collect() {
  relay_state state = board_.read();
  if (state.rounds == 0) {
    return;
  }
  const relay_health health = health_of(state, std::time(nullptr));
  auto found = source_.read();
  warn_of_unknown_element();
  sender_.offer({.relay = std::move(state), .health = health, .element = std::move(found)});
}

void reporting::warn_of_unknown_element() {
  const bool is_unknown = !source_.wrong().empty();
  if (is_unknown && !is_unknown_) {
    tell_warning(where_.err(),
                 "reports do not tell what the element has in force: " + source_.wrong());
  }
  is_unknown_ = is_unknown;
}

void reporting::note(const report_status &status) {
  board_.change([&](relay_state &state) { state.report = status; });
  const bool is_failing = !status.problem.empty();
  if (std::exchange(is_failing_, is_failing) == is_failing) {
    return;
  }
  reporter_.tell_aside(
      {.what = is_failing ? relay_event::reports_failing : relay_event::reports_recovered,
       .text = status.problem});
}

void reporting::finish(std::chrono::milliseconds limit, const std::function<bool()> &stopped) {
  const std::string wrong = sender_.wait(limit, stopped);
  if (!wrong.empty()) {
    tell_warning(where_.err(), "the report was not sent: " + wrong);
  }
}

}  // namespace zotconf
