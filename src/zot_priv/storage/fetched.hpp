// SPDX-License-Identifier: Apache-2.0
// Compares two things with memory: what a get left in the scratch directory, as the commit or
// rollback after it finds it, and what the persistent directory holds.
#pragma once

#include "zot_conf.h"

namespace zot {

// Remembers the directories and the scratch files of a get that brought a new configuration. False
// when out of memory.
bool remember_get(zot_ctx &handle);
void forget_get(zot_ctx &handle);

// Whether nobody has written another K or checksum to the scratch directory since. A missing file
// is found when it is copied.
bool is_k_as_fetched(const zot_ctx &handle, const zot_k &k);

// The same for the K and all files of its list, which must exist unless their folder is missing. A
// file that was touched since is compared byte by byte. If a later get of any process has begun,
// all files are compared: a get that fetched the same again has changed nothing.
bool is_set_as_fetched(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs);

// Whether the persistent directory has this configuration in force and complete, no matter who
// committed it. Without a list, only the K is checked. Set errno to 0 before the call: it says
// afterwards what could not be read.
bool is_in_force(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs);

// Whether the persistent directory has this configuration as the rolled-back one.
bool is_stored_as_corrupted(const zot_ctx &handle, const zot_k &k);

// Whether no process has committed or rolled back a configuration since the get.
bool are_verdicts_as_fetched(const zot_ctx &handle);

// Whether a folder of GPB files has all files of a list, each of its stated size. A link does not
// count.
bool are_files_in(const char *folder_path, const zot_list *gpbs);

// The same for the persistent directory. On a case-insensitive file system, each byte is compared.
bool are_files_stored(const zot_ctx &handle, const zot_list *gpbs);

// The first path of a list with a ".." component, which may lead outside the folder of the files;
// null if there is none. Such a file may be fetched, but not committed.
const char *path_outside(const zot_list *gpbs);

// Makes every earlier get compare its files before it commits them, because some of them may be
// removed.
void touch_fetched(const zot_ctx &handle);

}  // namespace zot
