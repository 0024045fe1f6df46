// SPDX-License-Identifier: Apache-2.0
// The ways in which a service misbehaves, as data: what it sends, and the expected result.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/faults/service/script.hpp"

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

struct outcome {
  enum class kind {
    fine,      // harmless: the get succeeds
    broken,    // libcurl gives up, for a reason that depends on its version
    exceeded,  // body or headers are larger than allowed
    slow,      // a time-out; for the archive, the caller cancels
    http,      // a response other than 200, or one without a body
    told       // a specific status and error text
  };
  kind what = kind::broken;
  int code = 0;            // for http and told
  std::string text = {};   // for told: the beginning of the error text
  bool or_broken = false;  // other libcurl versions may give up instead
};

enum class before_request { served, reset, refused };

struct misdeed {
  std::string name;
  unsigned at = every_request;
  std::function<script(const answer &good)> act;
  std::function<outcome(request_kind)> expected;
  unsigned timeout = 1;                       // seconds for K and checksum
  std::size_t disk = std::size_t{256} << 10;  // limit for the scratch area in bytes
  std::size_t memory = std::size_t{4} << 20;  // limit for the growth of the process in bytes
  std::optional<std::string> k_text = {};     // replaces the second configuration's K
  before_request before = before_request::served;
};
using misdeeds = std::vector<misdeed>;

[[nodiscard]] std::function<outcome(request_kind)> always(outcome what);

[[nodiscard]] misdeeds transfer_misdeeds();
[[nodiscard]] misdeeds protocol_misdeeds();
[[nodiscard]] misdeeds content_misdeeds();

}  // namespace zot::test
