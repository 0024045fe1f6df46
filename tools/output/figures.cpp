// SPDX-License-Identifier: Apache-2.0
#include "tools/output/figures.hpp"

#include <array>

namespace zotconf {

std::string iso_time(std::time_t when) {
  std::tm parts{};
  std::array<char, 32> text{};
  if (::gmtime_r(&when, &parts) == nullptr ||
      std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
    return "";
  }
  return text.data();
}

std::string counted(uint64_t number, std::string_view one, std::string_view many) {
  return std::to_string(number).append(" ").append(number == 1 ? one : many);
}

}  // namespace zotconf
