// SPDX-License-Identifier: Apache-2.0
// What a get left in the scratch directory, as the commit or roll-back after it finds it, and what
// the persistent directory has, both compared with memory.
#pragma once

#include "zot_conf.h"

namespace zot {

// Remembers the directories and the scratch files of a get that brought a new configuration. False
// without memory.
bool remember_get(zot_ctx &handle);
void forget_get(zot_ctx &handle);

// Whether nobody has written another K or checksum to the scratch directory since. A file that is
// gone is found when it is copied.
bool is_k_as_fetched(const zot_ctx &handle, const zot_k &k);

// The same for the K and for all files of its list, which have to be there unless their folder is
// gone. A file that was touched since is compared byte by byte; and all of them are when a later
// get of any process has begun: one that fetched the same again has changed nothing.
bool is_set_as_fetched(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs);

// Whether the persistent directory has a configuration as the one in force, whole, whoever
// committed it; without a list, whether it has its K. An errno that was 0 tells what could not be
// read.
bool is_in_force(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs);

// Whether the persistent directory has a configuration as the one that was rolled back.
bool is_stored_as_corrupted(const zot_ctx &handle, const zot_k &k);

// Whether no process has committed or rolled back a configuration since the get.
bool are_verdicts_as_fetched(const zot_ctx &handle);

// Whether a folder of GPB files has all files of a list, each of its size. A link is no such file.
bool are_files_in(const char *folder_path, const zot_list *gpbs);

// Whether the persistent directory has them. Where two names that differ in case are one file, each
// byte is compared.
bool are_files_stored(const zot_ctx &handle, const zot_list *gpbs);

// The first path of a list that has a step up, and may lie outside of the folder of its files; null
// when none has. Such a file may be fetched, but not committed.
const char *path_outside(const zot_list *gpbs);

// Makes every earlier get compare its files before it commits them: some of them may go.
void touch_fetched(const zot_ctx &handle);

}  // namespace zot
