// SPDX-License-Identifier: Apache-2.0
// Whether the persistent cache has room for a configuration, before anything of it changes.
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
  // What is free; where that is not enough, with what is reclaimed.
  room available;
  // What the files in force give back when they go first.
  room reclaimed;
};

// Looks where the files of a K and of its list go. What a file system does not count is no limit.
room_check look_for_room(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs);

}  // namespace zot
