// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_loop.hpp"

#include <algorithm>
#include <ctime>
#include <exception>
#include <string>
#include <utility>

#include "tools/output/console.hpp"
#include "tools/output/figures.hpp"

namespace zotconf {
namespace {

using std::chrono::milliseconds;

uint64_t size_of(const manifest &content) {
  uint64_t bytes = 0;
  for (const published_file &file : content.files) {
    bytes += file.size;
  }
  return bytes;
}

std::string fetched_text(const sync_round &round) {
  return std::to_string(round.fetched_files) + " fetched (" + human_bytes(round.fetched_bytes) +
         ")";
}

}  // namespace

void relay_loop::describe_publication() {
  const auto current = parts_.store.current();
  if (current == nullptr) {
    return;
  }
  parts_.board.change([&](relay_state &state) {
    state.has_publication = true;
    state.k_digest = current->digest;
    state.sequence = current->content.sequence;
    state.config_id = current->content.config_id;
    state.signer = parts_.syncing.signer();
    state.signed_at = parts_.syncing.signed_at();
    state.files = current->content.files.size();
    state.bytes = size_of(current->content);
    state.last_news = current->kept_since;
  });
}

sync_round relay_loop::synchronise() {
  try {
    return parts_.syncing.run();
  } catch (const std::exception &error) {
    return {.result = round_result::failed, .wrong = error.what()};
  }
}

void relay_loop::note(const sync_round &round) {
  if (round.result == round_result::updated) {
    describe_publication();
  }
  parts_.board.change([&](relay_state &state) {
    const std::time_t now = std::time(nullptr);
    ++state.rounds;
    state.last_attempt = now;
    state.bytes_received = parts_.server.received();
    if (is_good(round)) {
      state.last_contact = now;
    } else {
      ++state.failures;
    }
    if (round.result == round_result::updated) {
      ++state.updates;
      state.bytes_saved += state.bytes - std::min(state.bytes, round.fetched_bytes);
    }
    if (state.problem != round.wrong) {
      state.problem = round.wrong;
      state.problem_since = round.wrong.empty() ? 0 : now;
    }
    state.is_refused = round.result == round_result::refused;
    state.refused_digest = round.refused_digest;
  });
}

relay_report relay_loop::update_report(const sync_round &round) const {
  const relay_state state = parts_.board.read();
  relay_report news{.what = relay_event::updated,
                    .text = counted(state.files, "file", "files") + ", " + fetched_text(round)};
  if (state.sequence != 0) {
    news.sequence = state.sequence;
    news.text = "sequence " + std::to_string(state.sequence) + ", " + news.text;
  }
  if (!state.signer.empty()) {
    news.text += ", signed by " + state.signer;
  }
  return news;
}

void relay_loop::tell(const sync_round &round, std::optional<milliseconds> retry) {
  const bool is_first = std::exchange(is_first_, false);
  if (!is_good(round)) {
    is_failing_ = true;
    const relay_event what =
        round.result == round_result::refused ? relay_event::refused : relay_event::failing;
    return parts_.reporter.tell_change({.what = what, .text = round.wrong, .retry = retry});
  }
  if (std::exchange(is_failing_, false)) {
    parts_.reporter.tell({.what = relay_event::recovered});
  }
  if (round.result == round_result::updated) {
    return parts_.reporter.tell(update_report(round));
  }
  if (round.result == round_result::repaired) {
    return parts_.reporter.tell({.what = relay_event::repaired, .text = fetched_text(round)});
  }
  if (is_first) {
    parts_.reporter.tell({.what = relay_event::unchanged});
  }
}

sync_round relay_loop::once() {
  sync_round round = synchronise();
  note(round);
  tell(round, std::nullopt);
  return round;
}

void relay_loop::run(schedule &when, relay_clock &time) {
  milliseconds pause = when.first();
  while (!time.is_stopped()) {
    const relay_clock::clock::time_point end = time.now() + pause;
    parts_.board.change([&](relay_state &state) {
      const auto seconds = std::chrono::ceil<std::chrono::seconds>(pause).count();
      state.next_attempt = std::time(nullptr) + static_cast<std::time_t>(seconds);
    });
    while (!time.is_stopped() && time.now() < end) {
      time.wait_until(end);
    }
    if (time.is_stopped()) {
      return;
    }
    const sync_round round = synchronise();
    // A round that a stop has ended is no failure of the server.
    if (time.is_stopped() && !is_good(round)) {
      return;
    }
    note(round);
    pause = when.after(round);
    tell(round, is_good(round) ? std::nullopt : std::optional(pause));
  }
}

}  // namespace zotconf
