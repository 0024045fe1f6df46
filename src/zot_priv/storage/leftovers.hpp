// SPDX-License-Identifier: Apache-2.0
// What downloads leave in the scratch directory, and when it is removed.
#pragma once

#include "zot_conf.h"
#include "zot_priv/storage/scratch.hpp"

namespace zot {

// Removes the files below the GPB directory that the list does not name, and directories without
// files. `found` is the result of an earlier walk: it says whether there is anything to look for.
void remove_unlisted_files(const zot_ctx &handle, const zot_list *gpbs,
                           const gpb_directory_census &found);

// Removes what a process that ended while unpacking has left in place of a file that the next
// download writes: a link or a FIFO.
void clear_download_targets(const zot_ctx &handle);

// After a failed archive: removes what it brought below the GPB directory and K does not name, or
// states to be smaller. Files that answer cached requests stay.
void remove_strangers(const zot_ctx &handle, const zot_k &k);

// After a failed download: if it left no space, the next one would fail too. Then this removes the
// archive, unfinished transfers, and all files below the GPB directory except those that answer
// cached requests.
void make_room(const zot_ctx &handle);

}  // namespace zot
