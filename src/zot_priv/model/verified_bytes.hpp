// SPDX-License-Identifier: Apache-2.0
// The bytes of a GPB file that passed their digest: made by verification alone, never changed, and
// shared by all records of the same file.
#pragma once

#include <cstddef>
#include <memory>

#include "utilities/owner.hpp"
#include "zot_conf.h"

// The bytes follow it, aligned as malloc() aligns.
struct alignas(std::max_align_t) zot_verified {
  uint32_t owners;
  uint32_t size;
  char checksum[ZOT_CHECKSUM_LEN + 1];
};

namespace zot {

void release_verified(zot_verified *verified);

using verified_bytes = std::unique_ptr<zot_verified, releaser<release_verified>>;

// One more owner; none for none.
verified_bytes share(zot_verified *verified);

char *bytes_of(zot_verified *verified);

// What an entry's content points into, if it is what the entry states; else null.
zot_verified *verified_of(const zot_gpb &gpb);

// Frees the content of an entry.
void drop_content(zot_gpb &gpb);

// Makes bytes the content of an entry.
void keep_content(zot_gpb &gpb, verified_bytes bytes);

// Looks entries up among those of a list, in the order that lists are sorted in: asking for an
// entry that sorts before an earlier one finds nothing.
class listed_files {
 public:
  // No list holds no file.
  explicit listed_files(const zot_list *gpbs);
  // What is verified of the entry that states the same; null when nothing is.
  zot_verified *verified_of(const zot_gpb &gpb);
  // Whether the list has an entry that states the same.
  bool names(const zot_gpb &gpb) { return find(gpb) != nullptr; }

 private:
  const zot_gpb *find(const zot_gpb &gpb);

  const zot_list *head_;
  const zot_list *node_;
};

}  // namespace zot
