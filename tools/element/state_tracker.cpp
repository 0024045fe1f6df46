// SPDX-License-Identifier: Apache-2.0
#include "tools/element/state_tracker.hpp"

#include <ctime>
#include <exception>
#include <ostream>
#include <system_error>
#include <utility>

#include "tools/cache/open_commit.hpp"
#include "tools/output/error_text.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/version.hpp"

namespace zotconf {
namespace {

std::string time_now() {
  return iso_time(std::time(nullptr));
}

}  // namespace

state_tracker::state_tracker(fs::path file, const element &who, std::ostream &err)
    : file_(std::move(file)), err_(err), cache_(find_cache()), kept_(cache_) {
  if (file_.empty()) {
    return;
  }
  state_.version = version;
  state_.who = {.subsys = who.subsys, .index = upper_case(who.index)};
  is_undo_due_ = find_open_commit(cache_).is_interrupted();
  try {
    recall(read_element_state(file_));
  } catch (const std::exception &) {
    // There is none yet, or not a whole one. It is written anew.
  }
}

void state_tracker::recall(element_state previous) {
  if (previous.who.subsys != state_.who.subsys || previous.who.index != state_.who.index) {
    return;
  }
  state_.refused = std::move(previous.refused);
  state_.undo = std::move(previous.undo);
  state_.problem = std::move(previous.problem);
}

void state_tracker::started() {
  update();
}

void state_tracker::succeeded(const std::string &refusal) {
  state_.problem.reset();
  if (!refusal.empty()) {
    // The cache tells which one it was.
    state_.refused = {.which = {}, .reason = short_text(refusal), .time = time_now()};
  }
  update();
}

void state_tracker::failed(const std::string &why) {
  const std::string since = state_.problem ? state_.problem->since : time_now();
  state_.problem = {.text = short_text(why), .since = since};
  update();
}

// The library undoes it when a handle is created, or later if that fails.
void state_tracker::note_undo() {
  if (is_undo_due_ && !find_open_commit(cache_).is_interrupted()) {
    is_undo_due_ = false;
    state_.undo = {.digest = state_.in_force ? state_.in_force->digest : "", .time = time_now()};
  }
}

void state_tracker::note_configurations() {
  // Where no handle could be created, there may be no cache.
  if (!is_there(cache_.conf_root)) {
    return;
  }
  const named_configurations &now = kept_.read();
  state_.in_force = now.in_force;
  if (!now.refused) {
    state_.refused.reset();
    return;
  }
  const bool is_new = state_.refused && state_.refused->which.digest.empty();
  const bool is_known = is_new || (state_.refused && state_.refused->which == *now.refused);
  if (!is_known) {
    state_.refused.emplace();
  }
  state_.refused->which = *now.refused;
}

// The reason why an element fails must not be lost with its cache.
void state_tracker::note_cache() {
  try {
    note_configurations();
    note_undo();
  } catch (const std::system_error &) {
    if (!state_.problem) {
      throw;
    }
    state_.in_force.reset();
  }
}

void state_tracker::update() {
  if (file_.empty()) {
    return;
  }
  try {
    note_cache();
    write_change();
    is_failing_ = false;
  } catch (const std::exception &error) {
    if (!std::exchange(is_failing_, true)) {
      tell_warning(err_, "the state of this element is not written: " + std::string(error.what()));
    }
  }
}

void state_tracker::write_change() {
  std::string text = element_state_text(state_, "");
  if (text == written_ && is_there(file_)) {
    return;
  }
  write_element_state(file_, element_state_text(state_, time_now()));
  written_ = std::move(text);
}

}  // namespace zotconf
