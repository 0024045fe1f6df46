// SPDX-License-Identifier: Apache-2.0
// Whether memory still matches the configuration in force in the persistent directory. Another
// process may have changed it, and files that cannot be read now may be readable later.
#pragma once

#include "zot_conf.h"

namespace zot {

// Loads the configuration in force from the cache again and returns true. If it cannot be loaded,
// nothing changes.
bool reload_conf(zot_ctx &handle);

// Whether the cache and memory have different configurations in force, because another process has
// committed one since.
bool is_cache_changed(const zot_ctx &handle);
// Reloads the configuration in force if it has changed in this way. True if it was reloaded.
bool reload_changed_cache(zot_ctx &handle);

// Drops the rolled-back K from memory if the cache now holds another one, or none. The next use
// loads it from the cache.
void forget_changed_corrupted(zot_ctx &handle);

// Records that memory holds the configuration in force of another persistent directory. It is
// dropped before the next load, except before a cached get while a new configuration waits for a
// verdict: that verdict still belongs to the other directory.
void mark_moved(zot_ctx &handle);
void leave_moved_cache(zot_ctx &handle);

// Records that memory and cache differ, or that files of the configuration in force cannot be read
// anywhere. The next get loads the cache again. If that fails, nothing is in force any more, the
// published configuration counts as new, and the get after that tries again.
void mark_outdated(zot_ctx &handle);
void renew_outdated(zot_ctx &handle);
// Loads the cache again at once, with the same consequences.
void load_once_more(zot_ctx &handle);
// Records that the configuration in force is known again.
void clear_doubts(zot_ctx &handle);

// Whether the cache may have a configuration in force that this handle has not loaded: its load may
// have failed for lack of memory.
bool may_hold_more(const zot_ctx &handle);

}  // namespace zot
