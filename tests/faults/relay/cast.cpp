// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/misdeed.hpp"

#include <iterator>
#include <utility>

namespace zot::test {
namespace {

constexpr const char *loopback = "IP:127.0.0.1";

}  // namespace

cast::cast()
    : authority(make_authority("publishers")),
      publisher(issue(authority, {.name = "publisher"})),
      expired(issue(authority, {.name = "expired", .from_days = -30, .to_days = -1})),
      early(issue(authority, {.name = "early", .from_days = 30})),
      revoked(issue(authority, {.name = "revoked"})),
      without_usage(issue(authority, {.name = "without usage", .key_usage = ""})),
      encipherer(issue(authority, {.name = "encipherer", .key_usage = "critical,keyAgreement"})),
      stranger(issue(make_authority("strangers"), {.name = "publisher"})),
      host_authority(make_authority("hosts")),
      host(issue(host_authority, {.name = "host", .alternative_name = loopback})),
      expired_host(
          issue(host_authority,
                {.name = "host", .alternative_name = loopback, .from_days = -30, .to_days = -1})),
      other_host(issue(host_authority, {.name = "host", .alternative_name = "DNS:example.net"})),
      unknown_host(
          issue(make_authority("other hosts"), {.name = "host", .alternative_name = loopback})),
      client(issue(host_authority, {.name = "client"})),
      unknown_client(issue(make_authority("other clients"), {.name = "client"})) {
  for (const std::uint64_t number : {in_service, offered, mended}) {
    generations[number] = generation(number, publisher);
  }
}

std::string cast::keyring() const {
  return authority.certificate_pem() + revocation_list(authority, {revoked});
}

const std::vector<file_kind> &file_kinds() {
  static const std::vector<file_kind> kinds = {{"checksum", checksum_path},
                                               {"K", k_path},
                                               {"signature", signature_path},
                                               {"GPB file", large_file_path(offered)}};
  return kinds;
}

std::function<void(behaviour &, const cast &)> at(const std::string &path, const answering &how) {
  return [=](behaviour &changed, const cast &) {
    changed.act = [=](const asked_file &asked, const answer &good) {
      return asked.path == path ? std::optional(how(good)) : std::nullopt;
    };
  };
}

misdeeds at_each(const misdeed &row, const answering &how, const std::vector<variant> &variants) {
  misdeeds rows;
  for (const file_kind &kind : file_kinds()) {
    misdeed next = row;
    next.name = std::string(kind.name) + ": " + row.name;
    next.apply = at(kind.path, how);
    for (const variant &other : variants) {
      if (other.kind == kind.name) {
        next.expected = other.expected;
        next.reason = other.reason;
      }
    }
    if (next.reason.starts_with(":")) {
      next.reason = kind.path + next.reason;
    }
    rows.push_back(std::move(next));
  }
  return rows;
}

void add(misdeeds &all, misdeeds more) {
  all.insert(all.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

}  // namespace zot::test
