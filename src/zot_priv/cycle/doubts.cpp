// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/cycle/doubts.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_priv/cycle/start_up.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/names.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {

// Bits of zot_own::cache_doubts.
constexpr uint32_t conf_outdated = 1;
constexpr uint32_t cache_moved = 2;
constexpr uint32_t cache_unloadable = 4;

// Whether a checksum file of the cache names a K other than this one; with a null K, whether it
// names any. If the file cannot be read, errno says why.
bool names_other_k(const zot_ctx &handle, const zot::k_names names, const zot_k *k) {
  const zot::joined_path path(handle.conf_root, names.checksum);
  char found[ZOT_CHECKSUM_LEN + 2] = "";
  errno = 0;
  return read_line(path.c_str(), found, sizeof found - 1) != nullptr &&
         std::strlen(found) == ZOT_CHECKSUM_LEN &&
         (k == nullptr || std::strcmp(found, k->checksum) != 0);
}

// Frees what memory has loaded from the cache.
void release_loaded(zot_ctx &handle) {
  for (const uint32_t slot : {ZOT_SLOT_CURRENT, ZOT_SLOT_LAST}) {
    zot_priv_free_k_ex_safe(&handle, slot, nullptr);
    zot_priv_free_gpb_ex_safe(&handle, slot, nullptr);
  }
  // The old root belonged to a K that is freed now.
  zot::set_marks(handle, nullptr, handle.conf_root);
  handle.own.marks_waiting = 0;
  handle.load_flags &= ~(uint32_t{ZOT_LOADED_PREV_K} | ZOT_LOADED_RET_LIST);
}

}  // namespace

bool zot::reload_conf(zot_ctx &handle) {
  zot_slot &current = handle.slot[ZOT_SLOT_CURRENT];
  const zot_slot before = std::exchange(current, {});
  handle.load_flags &= ~zot::conf_loaded;
  const bool is_loaded = zot_priv_init_load_conf(&handle) == ZOT_OK;
  const zot_slot found = std::exchange(current, before);
  if (!is_loaded) {
    return false;
  }
  release_loaded(handle);
  current = found;
  return true;
}

bool zot::is_cache_changed(const zot_ctx &handle) {
  const zot_k *const current = handle.slot[ZOT_SLOT_CURRENT].k;
  return current != nullptr && current->checksum[0] != '\0' && handle.dev_mode == 0 &&
         !zot::has_undo(handle) && names_other_k(handle, current_k, current);
}

bool zot::reload_changed_cache(zot_ctx &handle) {
  return is_cache_changed(handle) && reload_conf(handle);
}

void zot::forget_changed_corrupted(zot_ctx &handle) {
  const errno_keeper keep_errno;
  const zot_k *const refused = handle.slot[ZOT_SLOT_CORRUPTED].k;
  const bool is_other = names_other_k(handle, corrupted_k, refused);
  // If the file cannot be read, it is read again later, unless that would forget a K that was
  // rolled back.
  const bool is_gone = refused != nullptr ? errno == ENOENT : errno != 0 && errno != ENOENT;
  if ((is_other || is_gone) && handle.dev_mode == 0 && !has_undo(handle)) {
    zot_priv_free_k_ex_safe(&handle, ZOT_SLOT_CORRUPTED, nullptr);
    handle.load_flags &= ~uint32_t{ZOT_LOADED_FAIL_K};
  }
}

void zot::mark_moved(zot_ctx &handle) {
  handle.own.cache_doubts |= cache_moved;
}

void zot::leave_moved_cache(zot_ctx &handle) {
  if ((handle.own.cache_doubts & cache_moved) == 0) {
    return;
  }
  release_loaded(handle);
  zot_priv_free_k_ex_safe(&handle, ZOT_SLOT_CORRUPTED, nullptr);
  handle.load_flags = 0;
  handle.own.cache_doubts = 0;
  handle.own.commit_begun = 0;
  zot_core_reset_stat(&handle.stat);
}

void zot::mark_outdated(zot_ctx &handle) {
  handle.own.cache_doubts |= conf_outdated;
}

void zot::renew_outdated(zot_ctx &handle) {
  if ((handle.own.cache_doubts & conf_outdated) != 0) {
    load_once_more(handle);
  }
}

void zot::load_once_more(zot_ctx &handle) {
  clear_doubts(handle);
  if (!reload_conf(handle)) {
    release_loaded(handle);
    // The load may have failed for lack of memory or descriptors, so a later one may succeed.
    handle.own.cache_doubts |= conf_outdated | cache_unloadable;
  }
}

void zot::clear_doubts(zot_ctx &handle) {
  handle.own.cache_doubts &= ~(conf_outdated | cache_unloadable);
}

bool zot::may_hold_more(const zot_ctx &handle) {
  return handle.slot[ZOT_SLOT_CURRENT].k == nullptr &&
         (handle.own.cache_doubts & cache_unloadable) == 0 &&
         ::access(joined_path(handle.conf_root, current_k.k).c_str(), F_OK) == 0;
}
