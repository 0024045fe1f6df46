// SPDX-License-Identifier: Apache-2.0
// The update check: what was published, and what it means for the configuration in force.
#include <cerrno>
#include <cstring>

#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/cycle/doubts.hpp"
#include "zot_priv/cycle/marks.hpp"
#include "zot_priv/cycle/start_up.hpp"
#include "zot_priv/cycle/verdict.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/cache_lock.hpp"
#include "zot_priv/storage/fetched.hpp"
#include "zot_priv/storage/gpb_set.hpp"
#include "zot_priv/storage/logged.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

void set_cycle_state(zot_ctx *handle, uint32_t bit) {
  constexpr uint32_t outcomes = ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_SAME_K;
  handle->stat.state = (handle->stat.state & ~outcomes) | bit;
}

// Lets a slot share the list of files of the current slot.
void share_current_gpbs(zot_ctx *handle, uint32_t slot) {
  zot_list *const current = zot_priv_get_gpb(handle, ZOT_SLOT_CURRENT);
  zot_priv_free_gpb_ex_safe(handle, slot, nullptr);
  zot_priv_set_gpb(handle, slot, current);
}

// Fetches the files of a new K and marks how they differ from the configuration in force.
int prepare_new(zot_ctx *handle, zot_k *new_k, const char *func) {
  zot::gpb_list_owner gpbs = zot::make_gpb_list(handle);
  if (gpbs == nullptr) {
    return ZOT_RECORD_NO_MEMORY_AT(handle, func);
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER | ZOT_TOPIC_GPB,
             "%sDo synchronize GPB.\n");
  const int read = zot_priv_update_tmp_gpb(handle, new_k, gpbs.get());
  if (zot_util_is_err(read)) {
    return read;
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GPB, "%sUpdate temporary GPB: Done\n");
  zot_priv_free_gpb_ex_safe(handle, ZOT_SLOT_TMP, nullptr);
  zot_list *const fresh = gpbs.release();
  zot_priv_set_gpb(handle, ZOT_SLOT_TMP, fresh);

  if (!zot::remember_get(*handle)) {
    return ZOT_RECORD_NO_MEMORY_AT(handle, func);
  }
  // If another process has recreated the scratch directory, the K in it may be that process's.
  if (!zot::is_scratch_held(*handle)) {
    return zot::record_changed_scratch(handle, func);
  }
  const char *const root = read == zot::read_from_dev_path ? handle->conf_root : handle->tmp_root;
  const int status = zot_priv_update_cached_ret_gpb_list(
      handle, zot_priv_get_k(handle, ZOT_SLOT_TMP), fresh, root);
  if (status != ZOT_OK) {
    // The list did not reach the caller, so no slot may keep it.
    zot_priv_set_gpb(handle, ZOT_SLOT_TMP, nullptr);
    zot::destroy_gpb_list(handle, fresh);
    return status;
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GPB,
             "%sUpdate returned GPB list: Done\n");
  handle->own.marks_waiting = 1;
  set_cycle_state(handle, ZOT_CYCLE_NEW_CONF);
  return ZOT_RECORD_AT(handle, ZOT_OK, func, __LINE__);
}

// If another process has recreated the scratch directory, that process's K may have been copied as
// the last K. The next get copies the last K again.
int refuse_last_k(zot_ctx *handle, const char *func) {
  zot_priv_free_k_ex_safe(handle, ZOT_SLOT_LAST, nullptr);
  const zot::locks_for_commands lent(*handle);
  rm_rf(zot::joined_path(handle->conf_root, zot::last_k.k).c_str());
  rm_rf(zot::joined_path(handle->conf_root, zot::last_k.checksum).c_str());
  return zot::record_changed_scratch(handle, func);
}

// Aligns the slots when the published K is the one in force.
int align_slots(zot_ctx *handle, const char *func) {
  const zot_slot(&slot)[ZOT_SLOT_COUNT] = handle->slot;
  if (zot_priv_cmp_k(slot[ZOT_SLOT_LAST].k, slot[ZOT_SLOT_TMP].k) == 0) {
    share_current_gpbs(handle, ZOT_SLOT_TMP);
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL,
               "%scur = %p, prev = %p, tmp = %p\n", zot::address(slot[0].gpbs),
               zot::address(slot[1].gpbs), zot::address(slot[2].gpbs));
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K,
               "%sNo update on K , it doesn't need to update memory\n");
  } else {
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K,
               "%sNo update on K; do rotate last K\n");
    if (const int status = zot_priv_handle_no_update(handle); status != ZOT_OK) {
      return status;
    }
    if (!zot::is_scratch_held(*handle)) {
      return refuse_last_k(handle, func);
    }
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sUpdate last K: Done\n");
  }
  if (const int status = zot::ensure_marks(*handle); status != ZOT_OK) {
    return status;
  }
  set_cycle_state(handle, ZOT_CYCLE_SAME_K);
  return ZOT_RECORD_AT(handle, ZOT_NO_UPDATE, func, __LINE__, "No update data.");
}

// Reloads the cache if the service publishes what this handle has in force but another process has
// committed something else since. The published K is then new to the cache.
bool took_changed_cache(zot_ctx *handle, int fetched) {
  return fetched == ZOT_NO_UPDATE && zot::reload_changed_cache(*handle);
}

}  // namespace

int zot_priv_chk_update(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  zot_core_reset_stat(&handle->stat);
  // A get has settled a failed commit before this. A direct caller of this function has not.
  handle->own.commit_begun = 0;
  zot::k_owner new_k = zot::make_k();
  if (new_k == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  // The warning is logged for every result except an absent K, even for a successful load.
  if (zot::load_corrupted_once(*handle, __func__)) {
    ZOT_LOG(handle, ZOT_LOG_WARN, zot::k_file_topics, "%sUnable to load corrupted K:%s\n",
            std::strerror(errno));
  }

  int fetched = zot_priv_update_tmp_k(handle, new_k.get());
  if (took_changed_cache(handle, fetched)) {
    zot::drop_k_contents(new_k.get());
    new_k->meta = {};
    fetched = zot_priv_update_tmp_k(handle, new_k.get());
  }
  const bool is_rolled_back = fetched == ZOT_ERR_SAME_AS_CORRUPTED;
  if (is_rolled_back) {
    // The caller receives what the cache has in force instead.
    zot::reload_changed_cache(*handle);
  }
  if (!is_rolled_back && fetched != ZOT_OK && fetched != ZOT_NO_UPDATE) {
    return fetched;
  }
  zot_priv_free_k_ex_safe(handle, ZOT_SLOT_TMP, nullptr);
  zot_k *const tmp_k = new_k.release();
  zot_priv_set_k(handle, ZOT_SLOT_TMP, tmp_k);
  // This loads the last K too, which align_slots() compares.
  zot_priv_init_load_ret_gpb_list(handle);
  if (is_rolled_back) {
    set_cycle_state(handle, ZOT_CYCLE_SAME_K);
    return ZOT_ERR_SAME_AS_CORRUPTED;
  }
  return fetched == ZOT_OK ? prepare_new(handle, tmp_k, __func__) : align_slots(handle, __func__);
}

int zot_priv_handle_no_update(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  zot_k *const tmp_k = zot_priv_get_k(handle, ZOT_SLOT_TMP);
  if (const int status = zot_priv_rotate_prev_k(handle, tmp_k); status != ZOT_OK) {
    return status;
  }
  zot_priv_free_k_ex_safe(handle, ZOT_SLOT_LAST, nullptr);
  zot_priv_set_k(handle, ZOT_SLOT_LAST, tmp_k);
  share_current_gpbs(handle, ZOT_SLOT_LAST);
  share_current_gpbs(handle, ZOT_SLOT_TMP);
  const zot_slot(&slot)[ZOT_SLOT_COUNT] = handle->slot;
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%scur = %p, prev = %p, tmp = %p\n",
          zot::address(slot[0].gpbs), zot::address(slot[1].gpbs), zot::address(slot[2].gpbs));
  zot_priv_prune_deleted_gpb(handle, handle->ret.list);
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sRemove deleted GPB from returned list\n");
  return ZOT_OK;
}

void zot_core_reset_stat(zot_core_stat *stat) {
  if (stat != nullptr) {
    *stat = zot_core_stat{};
  }
}
