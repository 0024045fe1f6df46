// SPDX-License-Identifier: Apache-2.0
// The configurations that the service publishes, one after the other.
#pragma once

#include "tests/support/publication.hpp"

namespace zot::test {

inline publication first_configuration() {
  return publication()
      .put("Wlan", "guest", 1, "guest one")
      .put("Zone", "hq", 1, "hq one")
      .put("Radio", "r5", 3, "radio");
}

// One object changed, one dropped, one added, one kept.
inline publication second_configuration() {
  return first_configuration()
      .put("Wlan", "guest", 2, "guest two")
      .put("Wlan", "staff", 1, "staff one")
      .remove("Zone", "hq")
      .config_id("00000000-0000-0000-0000-000000000002");
}

inline publication third_configuration() {
  return second_configuration()
      .put("Wlan", "guest", 3, "guest three")
      .config_id("00000000-0000-0000-0000-000000000003");
}

}  // namespace zot::test
