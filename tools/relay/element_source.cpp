// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/element_source.hpp"

#include <exception>
#include <stdexcept>
#include <utility>

namespace zotconf {

element_source::element_source(fs::path file, element who)
    : file_(std::move(file)), who_(std::move(who)), kept_(find_cache()) {}

std::optional<element_state> element_source::read() {
  try {
    wrong_.clear();
    return file_.empty() ? state_of_cache() : state_of_file();
  } catch (const std::exception &error) {
    wrong_ = error.what();
    return std::nullopt;
  }
}

element_state element_source::state_of_file() const {
  element_state state = read_element_state(file_);
  if (state.who.subsys != who_.subsys || upper_case(state.who.index) != who_.index) {
    throw std::runtime_error(file_.string() + ": the state of " + state.who.subsys + " " +
                             state.who.index);
  }
  return state;
}

element_state element_source::state_of_cache() {
  const named_configurations &now = kept_.read();
  element_state state;
  state.who = who_;
  state.in_force = now.in_force;
  if (now.refused) {
    state.refused.emplace().which = *now.refused;
  }
  return state;
}

}  // namespace zotconf
