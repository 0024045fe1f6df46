// SPDX-License-Identifier: Apache-2.0
// What the K of one element says about its publication. Takes no lock: a publisher replaces K and
// its checksum file by renaming.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/files/folder.hpp"

namespace zotconf {

struct published_k {
  std::string digest;     // SHA-256 of its bytes
  std::string config_id;  // empty: not stated
  uint64_t sequence = 0;  // 0: not stated
};

struct k_reading {
  std::optional<published_k> k;
  std::string wrong;  // also set for a K that does not match its checksum file
};

class k_reader {
 public:
  // Reads INDEX/latest/INDEX.k below the folder of a sub-system. Both members are empty if there is
  // no such K. Throws std::system_error if the process lacks descriptors or memory.
  k_reading read(const folder &subsys, const std::string &index);

 private:
  k_reading read_settled(const folder &latest, const std::string &index);

  // How long all reads together wait for publishers. Many damaged K do not take longer.
  std::chrono::steady_clock::duration patience_ = std::chrono::seconds(2);
};

// Whether this K exists, in whatever state.
bool has_k(const folder &subsys, const std::string &index);

}  // namespace zotconf
