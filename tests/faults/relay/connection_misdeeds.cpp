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
       .apply = [](behaviour &changed, const cast &) { changed.is_up = false; },
       .reason = ": refused"},
      {.name = "each connection is reset after the request",
       .apply = with_greeting(greeting::hang_up),
       .reason = "the connection ended without an answer: Recv failure: Connection reset"},
      {.name = "connections are accepted and never answered",
       .apply = with_greeting(greeting::silence),
       .reason = "no answer for 1s",
       .silence = short_silence},
      {.name = "the certificate is of an unknown authority",
       .apply = as(&cast::unknown_host),
       .reason =
           "the certificate of 127.0.0.1 is not valid: unable to get local issuer certificate",
       .setting = over_tls},
      {.name = "the certificate has expired",
       .apply = as(&cast::expired_host),
       .reason = "the certificate of 127.0.0.1 is not valid: certificate has expired",
       .setting = over_tls},
      {.name = "the certificate has another name",
       .apply = as(&cast::other_host),
       .reason = "no alternative certificate subject name matches",
       .setting = over_tls},
      {.name = "the certificate is of a publisher, not of a server",
       .apply = as(&cast::publisher),
       .reason =
           "the certificate of 127.0.0.1 is not valid: unable to get local issuer certificate",
       .setting = over_tls},
      {.name = "plain HTTP at the port of TLS",
       .apply = with_greeting(greeting::http_error),
       .reason = "cannot connect to 127.0.0.1:",
       .setting = over_tls},
      {.name = "the handshake is reset",
       .apply = with_greeting(greeting::hang_up),
       .reason = "cannot connect to 127.0.0.1:",
       .setting = over_tls},
      {.name = "the handshake is never answered",
       .apply = with_greeting(greeting::silence),
       .reason = "no answer for 1s",
       .setting = over_tls,
       .silence = short_silence},
      {.name = "a client certificate is demanded, and the relay has none",
       .apply = demand_client,
       .reason = "the server ended the TLS connection: tlsv13 alert certificate required",
       .setting = over_tls},
      {.name = "a client certificate is demanded, and the relay has that of another authority",
       .apply = demand_client,
       .reason = "the server ended the TLS connection: tlsv1 alert unknown ca",
       .setting = {.has_tls = true, .client = &cast::unknown_client}},
      {.name = "a client certificate is demanded, and the relay has it",
       .apply = demand_client,
       .expected = outcome::taken,
       .setting = {.has_tls = true, .client = &cast::client}},
  };
}

}  // namespace zot::test
