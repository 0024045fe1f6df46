// SPDX-License-Identifier: Apache-2.0
// Whether the persistent cache has space for a configuration, checked before anything in it
// changes.
#pragma once

#include <cstdint>

#include "zot_conf.h"

namespace zot {

struct room {
  uint64_t bytes = 0;
  uint64_t files = 0;
};

struct room_check {
  enum { beside, in_place, none } fits = beside;
  room needed;
  // The free space. Where that is not enough, it includes `reclaimed`.
  room available;
  // What the files in force free when they are removed first.
  room reclaimed;
};

// Checks the file system where the files of a K and its list go. What a file system does not count
// is not limited.
room_check look_for_room(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs);

}  // namespace zot
