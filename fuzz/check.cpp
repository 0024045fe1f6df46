// SPDX-License-Identifier: Apache-2.0
#include "fuzz/check.hpp"

#include <unistd.h>

#include <algorithm>

namespace zot::fuzz {
namespace {

// Writes to a copy of standard error: the fuzzer closes standard error itself to keep out the
// library's messages.
const int report_fd = ::dup(STDERR_FILENO);

}  // namespace

void complain(const std::string &what) {
  const std::string line = "fuzz: does not hold: " + what + "\n";
  static_cast<void>(!::write(report_fd, line.data(), line.size()));
  std::abort();
}

std::string text_of(const std::uint8_t *bytes, std::size_t size) {
  return {bytes, std::find(bytes, bytes + size, 0)};
}

std::vector<std::string> parts_of(const std::uint8_t *bytes, std::size_t size) {
  std::vector<std::string> parts;
  const std::uint8_t *const end = bytes + size;
  for (const std::uint8_t *from = bytes;; ++from) {
    const std::uint8_t *const to = std::find(from, end, 0);
    parts.emplace_back(from, to);
    if (to == end) {
      return parts;
    }
    from = to;
  }
}

}  // namespace zot::fuzz
