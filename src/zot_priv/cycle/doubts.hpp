// SPDX-License-Identifier: Apache-2.0
// Whether memory still has what the persistent directory has in force: another process may have
// changed that, and what cannot be read now may be read later.
#pragma once

#include "zot_conf.h"

namespace zot {

// Takes the configuration in force from the cache again, and returns true. One that cannot be
// loaded changes nothing.
bool reload_conf(zot_ctx &handle);

// Whether the cache has another configuration in force than memory: another process has committed
// one since.
bool is_cache_changed(const zot_ctx &handle);
// Reloads the configuration in force when it has changed so; whether it did.
bool reload_changed_cache(zot_ctx &handle);

// Gives up the K that was rolled back when the cache holds another one by now, or none: the next
// look for it takes it from there.
void forget_changed_corrupted(zot_ctx &handle);

// Memory holds what another persistent directory has in force. It is given up before the next load,
// but not while it waits for a verdict, which is still one for that directory.
void mark_moved(zot_ctx &handle);
void leave_moved_cache(zot_ctx &handle);

// Memory and cache differ, or files of the configuration in force are nowhere to be read. The next
// get loads the cache again; when that fails, nothing is in force any more, the published
// configuration is new, and the get after it tries once more.
void mark_outdated(zot_ctx &handle);
void renew_outdated(zot_ctx &handle);
// The same at once.
void load_once_more(zot_ctx &handle);
// What is in force is known again.
void clear_doubts(zot_ctx &handle);

// Whether the cache may have a configuration in force that this handle has not loaded: its load may
// have failed for want of memory.
bool may_hold_more(const zot_ctx &handle);

}  // namespace zot
