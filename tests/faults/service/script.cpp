// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "tests/faults/service/script.hpp"

namespace zot::test {

script send(std::string bytes) {
  return {{.what = step::kind::send, .bytes = std::move(bytes)}};
}

script send_without_end(std::string first, std::string repeated) {
  script steps = send(std::move(first));
  steps.push_back(
      {.what = step::kind::send, .bytes = std::move(repeated), .times = step::without_end});
  return steps;
}

std::function<script(const answer &)> always(script steps) {
  return [steps = std::move(steps)](const answer &) { return steps; };
}

std::string with_length(std::size_t length) {
  return std::string(ok_line) + "Content-Length: " + std::to_string(length) + "\r\n\r\n";
}

}  // namespace zot::test
