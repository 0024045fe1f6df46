// SPDX-License-Identifier: Apache-2.0
// The bytes of a GPB file whose digest was verified. Only verification creates them, nothing
// changes them, and all records of the same file share them.
#pragma once

#include <cstddef>
#include <memory>

#include "utilities/owner.hpp"
#include "zot_conf.h"

// The bytes follow this header, aligned as malloc() aligns.
struct alignas(std::max_align_t) zot_verified {
  uint32_t owners;
  uint32_t size;
  char checksum[ZOT_CHECKSUM_LEN + 1];
};

namespace zot {

void release_verified(zot_verified *verified);

using verified_bytes = std::unique_ptr<zot_verified, releaser<release_verified>>;

// Adds an owner. Null for null.
verified_bytes share(zot_verified *verified);

char *bytes_of(zot_verified *verified);

// The block that the content of an entry points into, if it has the size and checksum that the
// entry states; otherwise null.
zot_verified *verified_of(const zot_gpb &gpb);

// Frees the content of an entry.
void drop_content(zot_gpb &gpb);

// Makes bytes the content of an entry.
void keep_content(zot_gpb &gpb, verified_bytes bytes);

// Looks up entries in a list. The requests must follow the sort order of lists: an entry that sorts
// before an earlier request is not found.
class listed_files {
 public:
  // A null list has no entries.
  explicit listed_files(const zot_list *gpbs);
  // The verified bytes of the list's entry with the same size and checksum; null if there are none.
  zot_verified *verified_of(const zot_gpb &gpb);
  // Whether the list has the entry, with the same size and checksum.
  bool names(const zot_gpb &gpb) { return find(gpb) != nullptr; }

 private:
  const zot_gpb *find(const zot_gpb &gpb);

  const zot_list *head_;
  const zot_list *node_;
};

}  // namespace zot
