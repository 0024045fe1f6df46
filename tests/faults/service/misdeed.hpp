// SPDX-License-Identifier: Apache-2.0
// The ways in which a service misbehaves, as data: what it sends, and the expected result.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zot::test {

// The three requests of a get, in their order.
enum class request_kind : unsigned { checksum, k, archive };
inline constexpr unsigned request_count = 3;

constexpr unsigned bit_of(request_kind kind) {
  return 1U << static_cast<unsigned>(kind);
}
inline constexpr unsigned every_request = (1U << request_count) - 1;
inline constexpr unsigned both_knowledge_files =
    bit_of(request_kind::checksum) | bit_of(request_kind::k);

// One thing done on a connection. After the last one the connection is closed in order.
struct step {
  enum class kind { send, drip, stall, reset };
  static constexpr std::uint64_t without_end = UINT64_MAX;

  kind what = kind::send;
  std::string bytes = {};
  std::uint64_t times = 1;  // how often the bytes are sent, or until the client hangs up
};
using script = std::vector<step>;

// A good answer to the request, from which a bad one is made.
struct answer {
  std::string head;  // with the empty line
  std::string body;

  [[nodiscard]] std::string whole() const { return head + body; }
};

struct outcome {
  enum class kind {
    fine,      // harmless: the get succeeds
    broken,    // libcurl gives up, for a reason that depends on its version
    exceeded,  // body or headers are larger than they may be
    slow,      // the time is over; for the archive the watching caller ends it
    http,      // a response other than 200, or one without a body
    told       // a status and a text of its own
  };
  kind what = kind::broken;
  int code = 0;            // of http and told
  std::string text = {};   // of told: how the error text begins
  bool or_broken = false;  // another libcurl may give up instead
};

enum class before_request { served, reset, refused };

struct misdeed {
  std::string name;
  unsigned at = every_request;
  std::function<script(const answer &good)> act;
  std::function<outcome(request_kind)> expected;
  unsigned timeout = 1;                       // seconds for K and checksum
  std::size_t disk = std::size_t{256} << 10;  // bytes that scratch may take
  std::size_t memory = std::size_t{4} << 20;  // bytes by which the process may grow
  std::optional<std::string> k_text = {};     // published in place of the second configuration's
  before_request before = before_request::served;
};
using misdeeds = std::vector<misdeed>;

// Where a body goes that is sent as it stands.
inline constexpr const char *ok_line = "HTTP/1.1 200 OK\r\n";

// Builders of what the tables are made of.
[[nodiscard]] script send(std::string bytes);
[[nodiscard]] script send_without_end(std::string first, std::string repeated);
[[nodiscard]] std::function<script(const answer &)> always(script steps);
[[nodiscard]] std::function<outcome(request_kind)> always(outcome what);
[[nodiscard]] std::string with_length(std::size_t length);

// The tables.
[[nodiscard]] misdeeds transfer_misdeeds();
[[nodiscard]] misdeeds protocol_misdeeds();
[[nodiscard]] misdeeds content_misdeeds();

}  // namespace zot::test
