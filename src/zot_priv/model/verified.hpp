// SPDX-License-Identifier: Apache-2.0
// GPB files that are read once more: what was verified before need not be digested again.
#pragma once

#include <cstddef>

#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zot {

// Where the files of a configuration lie, opened once for all of them when the first is read.
class gpb_folder {
 public:
  // The directory whose "config" holds the files; it has to outlive this.
  explicit gpb_folder(const char *root);

  [[nodiscard]] const char *root() const { return root_; }
  // Whether the whole name of a file has room where names have it.
  [[nodiscard]] bool has_room_for(const char *path) const;
  // For reading; nothing is waited for.
  [[nodiscard]] descriptor open(const char *path);

 private:
  const char *root_;
  size_t root_length_;
  descriptor fd_{-1};
  bool is_opened_ = false;
};

// Brings the bytes of an entry in, as zot_priv_build_gpb_cont does. `known` are bytes that were
// verified against this size and checksum before, or null: a file that still holds them passes.
int load_content(zot_ctx *handle, zot_gpb *gpb, gpb_folder &folder, const char *known);

// The bytes of an entry if they are verified, else null. What failed to be verified leaves a buffer
// of zeros at most, and no file that begins with a zero is ever verified.
const char *verified_content(const zot_gpb &gpb);

// Looks entries up among those of a list, in the order that lists are sorted in: asking for an
// entry that sorts before an earlier one finds nothing.
class verified_files {
 public:
  // No list holds no file.
  explicit verified_files(const zot_list *gpbs);
  // The list of a slot, where the library itself brought its files in.
  verified_files(const zot_ctx *handle, uint32_t slot);
  // Verified bytes of the size and checksum that the entry states; null when none are found.
  const char *bytes_of(const zot_gpb &gpb);
  // Whether the list has an entry that states the same.
  bool names(const zot_gpb &gpb) { return find(gpb) != nullptr; }

 private:
  const zot_gpb *find(const zot_gpb &gpb);

  const zot_list *head_;
  const zot_list *node_;
};

}  // namespace zot
