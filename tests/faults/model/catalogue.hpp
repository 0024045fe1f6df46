// SPDX-License-Identifier: Apache-2.0
// The configurations that a controller publishes in a random sequence, and the faults in what the
// service returns of them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/publication.hpp"

namespace zot::faults {

// Bytes by name, relative to a directory.
using files = std::map<std::string, std::string>;

struct gpb {
  std::int32_t category = 0;
  std::string key;
  std::uint64_t version = 0;
  std::string path;   // "/category/key/version"
  std::string bytes;  // that K states size and digest of
  bool has_digest = true;
};

// What a K says, in the order of category, key and version.
struct manifest {
  std::string cluster;
  std::vector<gpb> gpbs;
  bool contradicts_itself = false;  // two versions of one object
};

struct configuration {
  std::string name;
  std::string k;
  std::optional<manifest> content;  // none: K says nothing that an element can use
  test::publication published;      // for the files
};

// Few, so that a sequence comes back to an earlier one.
[[nodiscard]] const std::vector<configuration> &catalogue();

// The configuration with that K; null when no published K has these bytes.
[[nodiscard]] const configuration *find_by_k(const std::string &k);

enum class flaw {
  none,
  other_bytes,
  one_byte_less,
  empty_file,
  file_left_out,
  no_archive,
  broken_archive,
  archive_breaks_off,
  other_k,
  empty_k,
  k_not_found,
  k_refused,
  k_breaks_off,
  other_checksum,
  upper_case_checksum,
  short_checksum,
  empty_checksum,
  name_behind_checksum,
  bare_checksum,
  checksum_not_found,
  checksum_refused,
  checksum_breaks_off,
};
inline constexpr unsigned flaw_count = static_cast<unsigned>(flaw::checksum_breaks_off) + 1;

[[nodiscard]] const char *name_of(flaw which);

struct answer {
  enum class kind { body, not_found, refused, breaks_off };
  kind how = kind::body;
  std::string bytes = {};
};

// What the service hands out at one time.
struct offer {
  std::string name;
  answer checksum{.how = answer::kind::not_found};
  answer k{.how = answer::kind::not_found};
  answer archive{.how = answer::kind::not_found};  // its body counts only when it is no archive
  bool is_archive = false;
  files archived;               // by path, as K has it
  test::publication published;  // what the service takes the archive from
};

[[nodiscard]] offer offer_of(const configuration &published, flaw wrong, unsigned which);

}  // namespace zot::faults
