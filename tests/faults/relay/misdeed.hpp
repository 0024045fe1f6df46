// SPDX-License-Identifier: Apache-2.0
// The ways in which an upstream server of a relay misbehaves, as data: what it sends, and what the
// relay has to say of it.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/faults/relay/certificates.hpp"
#include "tests/faults/relay/static_server.hpp"

namespace zot::test {

// Everybody who signs or shows a certificate.
struct cast {
  cast();

  // Of the publisher: the keyring has this authority and a list that revokes one certificate.
  identity authority;
  identity publisher;
  identity expired;
  identity early;  // not yet valid
  identity revoked;
  identity without_usage;
  identity encipherer;  // may not sign
  identity stranger;    // of another authority
  // Of the server.
  identity host_authority;
  identity host;
  identity expired_host;
  identity other_host;  // has another name
  identity unknown_host;
  identity client;
  identity unknown_client;

  // Signed once, because each signature has other bytes.
  std::map<std::uint64_t, offer> generations;

  [[nodiscard]] std::string keyring() const;
};

// How the relay is started.
struct relay_setting {
  bool is_signed = true;
  bool has_tls = false;
  identity cast::*client = nullptr;  // shows this certificate
};

// What a round has to come to.
enum class outcome {
  failing,  // the server or the way to it fails
  refused,  // the publication may not come into service
  silent,   // the server gives no reason to do or to say anything
  taken     // harmless: the publication comes into service
};

struct misdeed {
  std::string name;
  // Changes a server that offers the second generation as it should.
  std::function<void(behaviour &, const cast &)> apply = {};
  outcome expected = outcome::failing;
  std::string reason = {};  // what the line contains
  relay_setting setting = {};
  std::optional<std::chrono::seconds> retry_after = {};
  std::size_t disk = std::size_t{256} << 10;  // limit for the store in bytes
  std::size_t memory = std::size_t{6} << 20;  // limit for the growth of the process in bytes
  std::chrono::milliseconds silence{5000};    // after which the relay gives a transfer up
};
using misdeeds = std::vector<misdeed>;

// The tables.
[[nodiscard]] misdeeds transfer_misdeeds();
[[nodiscard]] misdeeds protocol_misdeeds();
[[nodiscard]] misdeeds connection_misdeeds();
[[nodiscard]] misdeeds signature_misdeeds();
[[nodiscard]] misdeeds knowledge_misdeeds();

// The four kinds of files, for rows that are tried at each.
struct file_kind {
  const char *name;
  std::string path;
};
[[nodiscard]] const std::vector<file_kind> &file_kinds();

using answering = std::function<script(const answer &good)>;
// Answers each request for a path in this way.
[[nodiscard]] std::function<void(behaviour &, const cast &)> at(const std::string &path,
                                                                const answering &how);
// What differs at one kind of file from what the row says.
struct variant {
  std::string kind;
  outcome expected = outcome::failing;
  std::string reason = {};
};
// A row for each kind of file. A reason that begins with a colon follows the path of the file.
[[nodiscard]] misdeeds at_each(const misdeed &row, const answering &how,
                               const std::vector<variant> &variants = {});

// Adds the rows of a table to another one.
void add(misdeeds &all, misdeeds more);

}  // namespace zot::test
