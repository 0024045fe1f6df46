// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/archive/rows.hpp"

namespace zot::test {

publication conf_in_force() {
  publication published;
  published.put("Wlan", "office", 5, "office five").put("Zone", "hq", 1, "hq one");
  published.put("Vlan", "staff", 1, "staff one");
  return published;
}

publication conf_spoiled() {
  publication published = conf_in_force();
  published.put("Wlan", "office", 6, "office six").put("Radio", "r5", 1, "radio five");
  published.remove("Vlan", "staff").config_id("00000000-0000-0000-0000-000000000002");
  return published;
}

publication conf_after() {
  publication published = conf_spoiled();
  published.put("Wlan", "guest", 1, "guest one");
  published.config_id("00000000-0000-0000-0000-000000000003");
  return published;
}

std::string proper_members() {
  std::string blocks;
  for (const auto &[path, bytes] : conf_spoiled().files()) {
    blocks += tar_blocks({.name = "config" + path, .bytes = bytes});
  }
  return blocks;
}

bool names_k(const std::string &members) {
  return members.find("subsys.k") != std::string::npos ||
         members.find("subsys.checksum") != std::string::npos;
}

std::string archive_before(const std::string &members) {
  return gzip(members + proper_members() + tar_end());
}

std::string archive_after(const std::string &members) {
  return gzip(proper_members() + members + tar_end());
}

}  // namespace zot::test
