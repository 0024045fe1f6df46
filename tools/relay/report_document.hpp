// SPDX-License-Identifier: Apache-2.0
// The report that a relay sends about its element, as JSON. docs/formats.md lists the members.
#pragma once

#include <optional>
#include <string>

#include "tools/element/element_state.hpp"
#include "tools/relay/relay_state.hpp"

namespace zotconf {

// What is reported.
struct report_facts {
  relay_state relay;
  relay_health health = relay_health::nothing;
  std::optional<element_state> element = {};  // nullopt: not known
};

// Below the URL of the receiver.
std::string report_path(const element &who);

// At most 64 KiB, whatever the facts are. Two reports that differ only in their time say the same.
std::string report_text(const report_facts &facts, const std::string &time);

}  // namespace zotconf
