// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "utilities/owner.hpp"

namespace zot {

// Where the files of a configuration lie, opened once for all of them when the first is read.
class gpb_folder {
 public:
  // The directory whose "config" holds the files; it has to outlive this.
  explicit gpb_folder(const char *root);

  [[nodiscard]] const char *root() const { return root_; }
  // Whether the whole name of a file has room where names have it.
  [[nodiscard]] bool fits_in_path(const char *path) const;
  // For reading; nothing is waited for.
  [[nodiscard]] descriptor open(const char *path);

 private:
  const char *root_;
  size_t root_length_;
  descriptor fd_{-1};
  bool is_opened_ = false;
};

}  // namespace zot
