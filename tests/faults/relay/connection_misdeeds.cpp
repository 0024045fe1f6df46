// SPDX-License-Identifier: Apache-2.0
// Servers that cannot be reached, and TLS that may not be trusted.
#include "tests/faults/relay/misdeed.hpp"

namespace zot::test {
namespace {

using chooser = identity cast::*;

constexpr relay_setting over_tls{.has_tls = true};

std::function<void(behaviour &, const cast &)> as(chooser host) {
  return [=](behaviour &changed, const cast &all) { changed.tls = make_tls(all.*host, nullptr); };
}

std::function<void(behaviour &, const cast &)> with_greeting(greeting begins) {
  return [=](behaviour &changed, const cast &) { changed.begins = begins; };
}

void demand_client(behaviour &changed, const cast &all) {
  changed.tls = make_tls(all.host, &all.host_authority);
}

}  // namespace

misdeeds connection_misdeeds() {
  constexpr std::chrono::milliseconds short_silence{1000};
  return {
      {.name = "the port is closed",
       .apply = [](behaviour &changed, const cast &) { changed.is_up = false; }},
      {.name = "each connection is reset", .apply = with_greeting(greeting::hang_up)},
      {.name = "connections are accepted and never answered",
       .apply = with_greeting(greeting::silence),
       .silence = short_silence},
      {.name = "the certificate is of an unknown authority",
       .apply = as(&cast::unknown_host),
       .setting = over_tls},
      {.name = "the certificate has expired",
       .apply = as(&cast::expired_host),
       .setting = over_tls},
      {.name = "the certificate has another name",
       .apply = as(&cast::other_host),
       .setting = over_tls},
      {.name = "the certificate is of a publisher, not of a server",
       .apply = as(&cast::publisher),
       .setting = over_tls},
      {.name = "plain HTTP at the port of TLS",
       .apply = with_greeting(greeting::http_error),
       .setting = over_tls},
      {.name = "the handshake is reset",
       .apply = with_greeting(greeting::hang_up),
       .setting = over_tls},
      {.name = "the handshake is never answered",
       .apply = with_greeting(greeting::silence),
       .setting = over_tls,
       .silence = short_silence},
      {.name = "a client certificate is demanded, and the relay has none",
       .apply = demand_client,
       .setting = over_tls},
      {.name = "a client certificate is demanded, and the relay has that of another authority",
       .apply = demand_client,
       .setting = {.has_tls = true, .client = &cast::unknown_client}},
      {.name = "a client certificate is demanded, and the relay has it",
       .apply = demand_client,
       .expected = outcome::taken,
       .setting = {.has_tls = true, .client = &cast::client}},
  };
}

}  // namespace zot::test
