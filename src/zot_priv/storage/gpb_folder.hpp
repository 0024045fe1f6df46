// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "utilities/owner.hpp"

namespace zot {

// The folder of the files of a configuration. It is opened once, when the first file is read.
class gpb_folder {
 public:
  // The directory whose "config" holds the files. The text must outlive this object.
  explicit gpb_folder(const char *root);

  [[nodiscard]] const char *root() const { return root_; }
  // Whether the full path of a file fits into ZOT_PATH_SIZE.
  [[nodiscard]] bool fits_in_path(const char *path) const;
  // Opens a file for reading, without blocking.
  [[nodiscard]] descriptor open(const char *path);

 private:
  const char *root_;
  size_t root_length_;
  descriptor fd_{-1};
  bool is_opened_ = false;
};

}  // namespace zot
