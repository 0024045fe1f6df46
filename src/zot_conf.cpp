// SPDX-License-Identifier: Apache-2.0
// The calls of a configuration cycle: get, commit, roll back, free.
#include "zot_conf.h"

#include <cstdlib>
#include <memory>

#include "utilities/owner.hpp"
#include "utilities/standard_streams.hpp"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_parm.hpp"
#include "zot_priv/cycle/commit.hpp"
#include "zot_priv/cycle/doubts.hpp"
#include "zot_priv/cycle/marks.hpp"
#include "zot_priv/cycle/paths.hpp"
#include "zot_priv/cycle/recovery.hpp"
#include "zot_priv/cycle/verdict.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/cache_lock.hpp"
#include "zot_priv/storage/fetched.hpp"

namespace {

struct ret_list_deleter {
  void operator()(zot_list *ret) const {
    zot_priv_free_ret_data(ret);
    std::free(ret);
  }
};
using ret_list_owner = std::unique_ptr<zot_list, ret_list_deleter>;

// Fills the list for the caller. If a file of the configuration in force fails verification where
// memory expects it, loads the cache again and retries once.
int hand_out(zot_ctx *handle, zot_list *list, uint32_t mask, zot_catset catset) {
  const int status = zot_priv_fltr_ret_data(handle, list, mask, catset);
  if (status != ZOT_ERR_CORRUPTED || zot::waits_for_verdict(*handle)) {
    return status;
  }
  if (!zot::reload_conf(*handle) || zot::ensure_marks(*handle) != ZOT_OK) {
    zot::mark_outdated(*handle);
    return zot_priv_err_set_errno(handle, status);
  }
  return zot_priv_fltr_ret_data(handle, list, mask, catset);
}

// Answers from the cache alone, without asking the service.
int get_cached(zot_ctx *handle, zot_list *list, zot_catset catset, uint32_t mask,
               const char *func) {
  if (zot::waits_for_verdict(*handle) && zot::is_overtaken(*handle)) {
    // Another process has committed or rolled back in the meantime, so this configuration no longer
    // waits.
    zot::withdraw(*handle);
  }
  if (!zot::waits_for_verdict(*handle)) {
    zot::renew_outdated(*handle);
    zot::reload_changed_cache(*handle);
  }
  zot_priv_init_load_ret_gpb_list(handle);
  if (const int status = zot::ensure_marks(*handle); status != ZOT_OK) {
    return status;
  }
  if (const int status = hand_out(handle, list, mask, catset); status != ZOT_OK) {
    return status;
  }
  if (zot_list_is_empty(list)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_NO_CACHE, func, __LINE__, "No cached data now");
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
             "%sNo update data, return cached results.\n");
  return ZOT_RECORD_AT(handle, ZOT_OK, func, __LINE__, "%s", func);
}

// Answers after asking the service.
int get_update(zot_ctx *handle, zot_list *list, zot_catset catset, uint32_t mask,
               const char *func) {
  zot::renew_outdated(*handle);
  zot::forget_changed_corrupted(*handle);
  // This also notices, once the service has answered, that another process has put another
  // configuration in force.
  const int update = zot_priv_chk_update(handle);
  if (update == ZOT_ERR_SAME_AS_CORRUPTED) {
    zot_priv_init_load_ret_gpb_list(handle);
    if (const int status = zot::ensure_marks(*handle); status != ZOT_OK) {
      return status;
    }
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
               "%sStart to do filter returned list.\n");
    if (const int status = hand_out(handle, list, mask, catset); status != ZOT_OK) {
      return status;
    }
    return ZOT_RECORD_AT(handle, ZOT_ERR_SAME_AS_CORRUPTED, func, __LINE__,
                         "New configuration is still corrupted.");
  }
  if (zot_util_is_err(update)) {
    return update;
  }
  if (const int status = hand_out(handle, list, mask, catset); status != ZOT_OK) {
    // The caller has not received this configuration, so it must not be able to commit it.
    zot::withdraw(*handle);
    return status;
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
             "%sGet new configuration: Done\n");
  // The labels are swapped: "Read" shows the bytes written and "Write" the bytes read. Readers of
  // logs know them this way.
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL,
             "%sRead Bytes: %19llu, Write Bytes: %19llu\n",
             static_cast<unsigned long long>(handle->stat.bytes_written),
             static_cast<unsigned long long>(handle->stat.bytes_read));
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

// Keeps a shared record only in the last slot that holds it, so that it is released once.
void unshare_slot(zot_ctx *handle, uint32_t slot) {
  zot_slot &own = handle->slot[slot];
  for (uint32_t later = slot + 1; later < ZOT_SLOT_COUNT; ++later) {
    if (handle->slot[later].k == own.k) {
      own.k = nullptr;
    }
    if (handle->slot[later].gpbs == own.gpbs) {
      own.gpbs = nullptr;
    }
  }
}

}  // namespace

int zot_conf_get(zot_ctx *handle, zot_catset catset, uint32_t conf_stat_mask, zot_list **ret) {
  if (handle == nullptr || ret == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  const zot::standard_streams guard;
  *ret = nullptr;
  if (const int status = zot::settle_failed_commit(*handle); status != ZOT_OK) {
    return status;
  }
  ZOT_RECORD(handle, ZOT_OK);
  if (const int status = zot_priv_reload_sys_paths(handle); status != ZOT_OK) {
    return status;
  }
  if (conf_stat_mask == 0) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "invalid conf_stat_mask: %u", conf_stat_mask);
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, "%sStart to get new configuration.\n");
  const bool is_cached = (conf_stat_mask & ZOT_STAT_CACHED) != 0;
  // In dev mode a get has no directories of its own to return to.
  const bool repeats_waiting_get =
      is_cached && zot::waits_for_verdict(*handle) && handle->dev_mode == 0;
  const zot::folders_of_get folders(*handle, repeats_waiting_get);
  if (!folders.has_memory()) {
    return zot_priv_err_set_errno(handle, ZOT_ERR_NOMEM);
  }
  zot::cache_lock lock(*handle);
  if (const int status = lock.acquire(__func__); status != ZOT_OK) {
    return status;
  }
  // While this process waited for the lock, another one may have ended in the middle of a commit.
  zot::undo_interrupted_commit(*handle);
  if (!is_cached || !zot::waits_for_verdict(*handle)) {
    zot::leave_moved_cache(*handle);
  }
  zot_priv_init_load_conf(handle);
  ret_list_owner list(zot::make_zeroed<zot_list>().release());
  if (list == nullptr) {
    return zot_priv_err_set_errno(handle, ZOT_ERR_NOMEM);
  }
  zot_list_init(list.get());
  const int status =
      (is_cached ? get_cached : get_update)(handle, list.get(), catset, conf_stat_mask, __func__);
  if (status == ZOT_OK || status == ZOT_ERR_SAME_AS_CORRUPTED) {
    *ret = list.release();
  }
  return status;
}

int zot_conf_commit(zot_ctx *handle) {
  const zot::standard_streams guard;
  return handle == nullptr ? ZOT_ERR_NULL_INPUT : zot_priv_commit_conf(handle);
}

int zot_conf_roll_back(zot_ctx *handle) {
  const zot::standard_streams guard;
  return handle == nullptr ? ZOT_ERR_NULL_INPUT : zot_priv_commit_fail_k(handle);
}

int zot_conf_free_ret_data(zot_ctx *handle, zot_list **ret) {
  if (ret == nullptr) {
    return zot_priv_err_set_err2(handle, ZOT_ERR_NULL_INPUT, __func__, __LINE__);
  }
  if (*ret == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  zot_list *const list = *ret;
  for (zot_list *node = list->next; node != list;) {
    zot_list *const next = node->next;
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_DETAIL, "%sFree return entry: %p\n",
            zot::address(node));
    std::free(node);
    node = next;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sFree returned list: %p\n",
          zot::address(list));
  std::free(list);
  *ret = nullptr;
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sFree returned data: Done\n");
  return ZOT_OK;
}

int zot_conf_free(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  for (uint32_t slot = 0; slot < ZOT_SLOT_COUNT; ++slot) {
    unshare_slot(handle, slot);
    zot::release_k(handle, slot, __func__);
    zot::release_gpbs(handle, slot, __func__);
  }
  zot_priv_free_ret_gpb_list(handle);
  zot::forget_get(*handle);
  zot_priv_parm_free(handle);
  zot_log_free(handle);
  std::free(handle);
  return ZOT_OK;
}
