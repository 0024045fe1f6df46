// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/report_document.hpp"

#include <cstdint>

#include "tools/output/figures.hpp"
#include "tools/output/version.hpp"

namespace zotconf {
namespace {

constexpr int report_format = 1;

void describe_work(json_node into, const report_facts &facts) {
  const relay_state &state = facts.relay;
  const bool is_failing = !state.problem.empty();
  into.set("state", name_of(facts.health))
      .set("problem", stated(short_text(state.problem)))
      .set("kind", name_of(problem_of(state)))
      .set("refused", state.is_refused && is_failing)
      .set("refused_digest", stated(state.refused_digest))
      .set("since", is_failing && state.problem_since != 0 ? stated(iso_time(state.problem_since))
                                                           : std::nullopt);
}

void describe_offer(json_node into, const relay_state &state) {
  if (!state.has_publication) {
    into.set("offered", std::optional<std::string>());
    return;
  }
  const bool is_numbered = state.sequence != 0;
  into.object("offered")
      .set("digest", state.k_digest)
      .set("sequence", is_numbered ? std::optional<uint64_t>(state.sequence) : std::nullopt)
      .set("config_id", stated(short_text(state.config_id)));
}

}  // namespace

std::string report_path(const element &who) {
  return who.subsys + "/" + who.index + ".json";
}

std::string report_text(const report_facts &facts, const std::string &time) {
  json_document document;
  json_node root = document.root();
  root.set("format", report_format)
      .set("time", time)
      .set("subsys", facts.relay.who.subsys)
      .set("index", facts.relay.who.index);
  root.object("versions")
      .set("relay", version)
      .set("element", facts.element ? stated(facts.element->version) : std::nullopt);
  describe_work(root.object("relay"), facts);
  describe_offer(root, facts.relay);
  describe_configurations(root, facts.element);
  root.set("element_known", facts.element.has_value());
  return document.text();
}

}  // namespace zotconf
