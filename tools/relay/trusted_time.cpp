// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/trusted_time.hpp"

#include <algorithm>

namespace zotconf {
namespace {

// The first second of the day, in UTC.
std::time_t build_date() {
  std::tm day{};
  static_cast<void>(::strptime(ZOTCONF_BUILD_DATE, "%Y-%m-%d", &day));
  return ::timegm(&day);
}

}  // namespace

std::time_t trusted_time(std::time_t clock, std::time_t last_signature) {
  return std::max({clock, build_date(), last_signature});
}

}  // namespace zotconf
