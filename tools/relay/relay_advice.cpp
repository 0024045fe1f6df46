// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_advice.hpp"

#include "tools/output/duration.hpp"

namespace zotconf {
namespace {

std::string advice_for(relay_problem problem, const element &who) {
  switch (problem) {
    case relay_problem::none:
      return "";
    case relay_problem::server:
      return "Check the network of this element, the server, and the address of --upstream. The "
             "relay tries again.";
    case relay_problem::certificate:
      return "Check the clock of this element and the validity of the certificates. Check that the "
             "server's certificate names the host of --upstream, that --ca has the authority that "
             "issued it, and that the server accepts the certificate of --cert.";
    case relay_problem::publication:
      return "Check what the server has for " + who.subsys + " " + who.index +
             ", publish it again, and sign it with a certificate that --keyring trusts. The relay "
             "tries again.";
    case relay_problem::storage:
      return "Free space on the file system of --store, and check that the user of the relay can "
             "write to it. The relay tries again.";
  }
  return "";
}

relay_note nothing_in_service(const relay_state &state) {
  return {.text = "no publication is in service",
          .advice =
              "Processes of this element get no update until the relay has received a complete "
              "publication. What they committed before stays in force.",
          .since = state.started};
}

relay_note no_contact(const relay_state &state, std::time_t now) {
  const std::time_t since = state.last_contact != 0 ? state.last_contact : state.started;
  return {.text = "no contact with the server for " + duration_text(age_of(since, now)),
          .advice = "A newer configuration may exist. --max-age is " +
                    duration_text(state.max_age) + "." +
                    (state.has_publication ? " What is in service is still served." : ""),
          .since = since};
}

}  // namespace

std::vector<relay_note> notes_of(const relay_state &state, std::time_t now) {
  std::vector<relay_note> notes;
  if (const relay_problem problem = problem_of(state); problem != relay_problem::none) {
    notes.push_back({.text = state.problem,
                     .advice = advice_for(problem, state.who),
                     .since = state.problem_since});
  }
  if (!state.has_publication) {
    notes.push_back(nothing_in_service(state));
  }
  if (is_stale(state, now)) {
    notes.push_back(no_contact(state, now));
  }
  return notes;
}

}  // namespace zotconf
