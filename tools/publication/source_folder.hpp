// SPDX-License-Identifier: Apache-2.0
// The folder that `publish` reads: <Category>/<key>.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/output/console.hpp"
#include "tools/output/error_text.hpp"
#include "tools/publication/publication_store.hpp"

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

// Throws a refusal for a file that cannot be part of a configuration. `besides` names a file that
// is beside the categories and part of none.
source_files scan_source(const fs::path &source, progress &read, std::string_view besides = "");

// Whether a name is that of a backup, a hidden file or an editor's swap file.
bool is_left_out(const fs::path &path);

// The files must be sorted by this.
inline auto source_order(const published_file &file) {
  return std::tie(file.category, file.key);
}

// Copies a file to the publication folder. Throws if its bytes changed since it was scanned.
void copy_source(const publication_store &store, const fs::path &source,
                 const published_file &file);

// Throws a refusal when a publication into this folder would write into the source, or when the
// source is part of the publication. Follows links.
void check_apart(const fs::path &source, const fs::path &publication);

}  // namespace zotconf
