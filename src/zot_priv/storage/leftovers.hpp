// SPDX-License-Identifier: Apache-2.0
// What downloads leave in the scratch directory, and what of it goes when.
#pragma once

#include "zot_conf.h"
#include "zot_priv/storage/scratch.hpp"

namespace zot {

// Removes the files below the GPB directory that the list does not name, and directories without
// files. What was found there tells whether there is any such thing to look for.
void remove_unlisted_files(const zot_ctx &handle, const zot_list *gpbs,
                           const gpb_directory_census &found);

// What a process left that ended while it unpacked: a link or a FIFO in the place of a file that
// the next download writes. Removes it.
void clear_download_targets(const zot_ctx &handle);

// After an archive that failed: removes what it brought below the GPB directory and K does not
// name, or states to be smaller. Files that cached requests are answered from stay.
void remove_strangers(const zot_ctx &handle, const zot_k &k);

// After a download that failed: where it left no room, the next one would find none either. Then
// the archive goes, with unfinished transfers and all files below the GPB directory but those that
// cached requests are answered from.
void make_room(const zot_ctx &handle);

}  // namespace zot
