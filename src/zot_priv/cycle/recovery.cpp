// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/cycle/recovery.hpp"

#include <cerrno>
#include <cstring>
#include <utility>

#include "zot_log.hpp"
#include "zot_priv/storage/cache_lock.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {

constexpr uint32_t file_topics = ZOT_TOPIC_K | ZOT_TOPIC_GPB | ZOT_TOPIC_FILE;

// The temporary slot still holds what the commit had made current.
void undo_in_memory(zot_ctx &handle) {
  zot_slot &last = handle.slot[ZOT_SLOT_LAST];
  zot_priv_free_k_ex_safe(&handle, ZOT_SLOT_CURRENT, nullptr);
  zot_priv_free_gpb_ex_safe(&handle, ZOT_SLOT_CURRENT, nullptr);
  handle.slot[ZOT_SLOT_CURRENT] = last;
  last = {};
  // The commit dropped the last and the corrupted K from memory. Both are in the cache again.
  handle.load_flags &= ~static_cast<uint32_t>(ZOT_LOADED_PREV_K | ZOT_LOADED_FAIL_K);
}

}  // namespace

namespace zot {

void undo_interrupted_commit(zot_ctx &handle) {
  if (handle.dev_mode != 0 || !has_undo(handle)) {
    return;
  }
  cache_lock lock(handle);
  if (!lock.try_acquire() || !has_undo(handle)) {
    return;
  }
  if (restore_from_undo(handle)) {
    ZOT_LOG(&handle, ZOT_LOG_WARN, file_topics,
            "%sA commit was interrupted: the configuration before it is in force again\n");
  } else {
    ZOT_LOG(&handle, ZOT_LOG_ERROR, file_topics,
            "%sA commit was interrupted: unable to restore %s: %s\n", handle.conf_root,
            std::strerror(errno));
  }
}

void remove_commit_leftovers(zot_ctx &handle) {
  if (handle.dev_mode != 0 || !has_undo_leftovers(handle)) {
    return;
  }
  cache_lock lock(handle);
  if (lock.try_acquire()) {
    remove_undo_leftovers(handle);
  }
}

bool undo_failed_commit(zot_ctx &handle) {
  if (std::exchange(handle.own.commit_begun, 0) != 0) {
    undo_in_memory(handle);
  }
  return !has_undo(handle) || restore_from_undo(handle);
}

}  // namespace zot
