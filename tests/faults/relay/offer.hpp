// SPDX-License-Identifier: Apache-2.0
// What a server of static files offers for one element.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tests/faults/relay/certificates.hpp"
#include "tools/model/manifest.hpp"

namespace zot::test {

inline const zotconf::element this_element{.subsys = "AP", .index = "001122334455"};

// The path of one of the files that are replaced with each publication.
[[nodiscard]] std::string latest_path(const std::string &suffix);
inline const std::string checksum_path = latest_path(".checksum");
inline const std::string k_path = latest_path(".k");
inline const std::string signature_path = latest_path(".k.p7s");

// The one file that each generation replaces and that is longer than a few hundred bytes.
[[nodiscard]] std::string large_file_path(std::uint64_t generation);
[[nodiscard]] std::string large_file(std::uint64_t generation);

struct offer {
  std::map<std::string, std::string> files;  // from the path below the URL to the bytes

  // Replaces K, the checksum that announces it, and its signature.
  void set_k(const std::string &text, const identity &signer);
  void set_k(const zotconf::manifest &content, const identity &signer);
};

// The generations of a trial: before, while and after the server misbehaves.
inline constexpr std::uint64_t in_service = 5;
inline constexpr std::uint64_t offered = 6;
inline constexpr std::uint64_t mended = 7;

// The configurations that are published one after the other. Each replaces two files, adds one and
// removes one.
[[nodiscard]] zotconf::manifest manifest_of(std::uint64_t generation);
[[nodiscard]] offer generation(std::uint64_t number, const identity &signer);

}  // namespace zot::test
