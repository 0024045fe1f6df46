// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "utilities/standard_streams.hpp"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/cycle/doubts.hpp"
#include "zot_priv/cycle/recovery.hpp"
#include "zot_priv/cycle/verdict.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/cache_lock.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {

struct k_choice {
  uint32_t slot;
  const char *name;
};

// In the order of ZOT_K_NEW, ZOT_K_CURRENT and ZOT_K_LAST.
constexpr std::array k_choices{k_choice{ZOT_SLOT_TMP, "new"}, k_choice{ZOT_SLOT_CURRENT, "current"},
                               k_choice{ZOT_SLOT_LAST, "last"}};

// Loads what an earlier process left. A K that cannot be loaded counts as absent.
void load_k(zot_ctx *handle, int which) {
  if (which == ZOT_K_CURRENT) {
    zot_priv_init_load_conf(handle);
  } else if (which == ZOT_K_LAST) {
    zot_priv_init_load_prev_k(handle);
  }
}

// Reads what another process has committed since, for this call alone. Entries that were handed out
// must stay as they are until the next get.
zot::k_owner read_changed(zot_ctx *handle, int which) {
  if (which == ZOT_K_NEW || !zot::is_cache_changed(*handle)) {
    return nullptr;
  }
  zot::k_owner k = zot::make_k();
  if (k != nullptr &&
      (which == ZOT_K_CURRENT ? zot::read_kept_or_current_k : zot::read_kept_or_last_k)(
          handle, k.get(), handle->conf_root, ZOT_READ_K_OPTIONAL) != ZOT_OK) {
    k.reset();
  }
  return k;
}

}  // namespace

const char *zot_util_get_sub_idx(const zot_ctx *handle) {
  return handle->sub_idx;
}

const char *zot_util_cat2str(int32_t category) {
  return get_cat_str_by_gpb_cat(category);
}

bool zot_util_is_new_conf(const zot_ctx *handle) {
  return handle != nullptr && zot::waits_for_verdict(*handle);
}

int zot_util_get_conf_stat(const zot_ctx *handle, zot_core_stat *stat) {
  if (handle == nullptr || stat == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  *stat = handle->stat;
  return ZOT_OK;
}

int zot_util_get_k_meta(zot_ctx *handle, zot_k_meta *dst, int which) {
  constexpr uint32_t get_done = ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_SAME_K;
  if (dst == nullptr) {
    return zot_priv_err_set_err2(handle, ZOT_ERR_NULL_INPUT, __func__, __LINE__);
  }
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (which < ZOT_K_NEW || which > ZOT_K_LAST) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s]: unknown K: %d", __func__, which);
  }
  if (which == ZOT_K_NEW && (handle->stat.state & get_done) == 0) {
    return ZOT_RECORD(handle, ZOT_ERR_NOT_READY, "Should run zot_conf_get() first");
  }
  const zot::standard_streams guard;
  zot::cache_lock lock(*handle);
  if (const int status = lock.acquire(__func__); status != ZOT_OK) {
    return status;
  }
  zot::undo_interrupted_commit(*handle);
  if (which == ZOT_K_NEW && zot::waits_for_verdict(*handle) && zot::is_overtaken(*handle)) {
    return ZOT_RECORD(handle, ZOT_ERR_NOT_READY, "Should run zot_conf_get() first");
  }
  const k_choice &choice = k_choices[static_cast<size_t>(which)];
  const zot::k_owner stored = read_changed(handle, which);
  load_k(handle, which);
  const zot_k *const k = stored != nullptr ? stored.get() : zot_priv_get_k(handle, choice.slot);
  if (k == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NO_CACHE, "No cached %s K.", choice.name);
  }
  if (dst == &k->meta) {
    return ZOT_RECORD(handle, ZOT_ERR_GENERIC, "[%s]: dst k is as same as src", __func__);
  }
  *dst = k->meta;
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sGet meta of K: Done\n");
  return ZOT_RECORD(handle, ZOT_OK);
}

void zot_util_init_conf_parm(zot_parm_all *parm) {
  if (parm == nullptr) {
    return;
  }
  zot_sub_init_parm(parm);
  zot_util_init_log_ctl(&parm->log_ctl);
}
