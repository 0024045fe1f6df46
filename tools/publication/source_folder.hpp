// SPDX-License-Identifier: Apache-2.0
// The folder that `publish` reads: <Category>/<key>.
#pragma once

#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/output/console.hpp"
#include "tools/output/error_text.hpp"

namespace zotconf {

// An operation that must not be done on a publication folder. Thrown before anything is changed.
class refusal : public advised_error {
 public:
  explicit refusal(const std::string &why) : advised_error(why, "") {}
  refusal(const fs::path &path, const std::string &why, const std::string &command = "")
      : advised_error(path.string() + ": " + why, command) {}
};

struct source_files {
  std::vector<published_file> files;  // sorted by category and key, without versions
  std::vector<fs::path> left_out;     // skipped files of editors and version control
};

// Throws a refusal for a file that cannot be part of a configuration.
source_files scan_source(const fs::path &source, const console &where);

// Throws a refusal when a publication into this folder would write into the source, or when the
// source is part of the publication. Follows links.
void check_apart(const fs::path &source, const fs::path &publication);

}  // namespace zotconf
