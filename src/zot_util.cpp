// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/cycle/finish.hpp"
#include "zot_priv/cycle/recovery.hpp"
#include "zot_priv/cycle/start_up.hpp"
#include "zot_priv/storage/cache_lock.hpp"

namespace {

constexpr uint32_t bits_per_word = 32;

struct k_choice {
  uint32_t slot;
  const char *name;
};

// In the order of ZOT_K_NEW, ZOT_K_CURRENT and ZOT_K_LAST.
constexpr std::array k_choices{k_choice{ZOT_SLOT_TMP, "new"}, k_choice{ZOT_SLOT_CURRENT, "current"},
                               k_choice{ZOT_SLOT_LAST, "last"}};

bool is_category(int32_t category) {
  return category >= 0 && category < ZOT_CAT_COUNT;
}

// Loads what an earlier process left, once. A K that cannot be loaded is one that is not there.
void load_k(zot_ctx *handle, int which) {
  constexpr uint32_t conf_loaded = ZOT_LOADED_CONF | ZOT_LOADED_CONF_GPB;
  if (which == ZOT_K_CURRENT) {
    const bool complete = zot_priv_get_k(handle, ZOT_SLOT_CURRENT) != nullptr &&
                          zot_priv_get_gpb(handle, ZOT_SLOT_CURRENT) != nullptr;
    if (!complete && (handle->load_flags & conf_loaded) != conf_loaded) {
      zot_priv_init_load_conf(handle);
    }
  } else if (which == ZOT_K_LAST) {
    if (zot_priv_get_k(handle, ZOT_SLOT_LAST) == nullptr &&
        (handle->load_flags & ZOT_LOADED_PREV_K) == 0) {
      zot_priv_init_load_prev_k(handle);
    }
  }
}

}  // namespace

int zot_util_get_err(const zot_ctx *handle) {
  return zot_priv_err_get_errno(handle);
}

const char *zot_util_get_err_str(const zot_ctx *handle) {
  return zot_priv_err_get_err_str(handle);
}

const char *zot_util_get_sub_idx(const zot_ctx *handle) {
  return handle->sub_idx;
}

bool zot_util_is_err(int code) {
  return code < 0;
}

const char *zot_util_cat2str(int32_t category) {
  return get_cat_str_by_gpb_cat(category);
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
  zot::cache_lock lock(*handle);
  if (const int status = lock.acquire(__func__); status != ZOT_OK) {
    return status;
  }
  zot::undo_interrupted_commit(*handle);
  if (!zot::waits_for_verdict(*handle)) {
    zot::reload_changed_cache(*handle);
  }
  load_k(handle, which);
  const k_choice &choice = k_choices[static_cast<size_t>(which)];
  const zot_k *const k = zot_priv_get_k(handle, choice.slot);
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

void zot_util_init_log_ctl(zot_log_ctl *ctl) {
  if (ctl == nullptr) {
    return;
  }
  *ctl = zot_log_ctl{};
  ctl->facility = ZOT_TOPIC_DEFAULT;
  ctl->option = ZOT_LOG_OPT_FUNC;
  ctl->level = ZOT_LOG_WARN;
  ctl->dst = ZOT_LOG_DST_STDERR;
}

int zot_util_set_log_ctl_dst_fp(zot_log_ctl *ctl, FILE *stream) {
  if (ctl == nullptr || stream == nullptr) {
    return -1;
  }
  ctl->dst = ZOT_LOG_DST_FP;
  ctl->fp = stream;
  return 0;
}

int zot_util_set_log_ctl_dst_path(zot_log_ctl *ctl, const char *path) {
  if (ctl == nullptr || path == nullptr || *path == '\0') {
    return -1;
  }
  ctl->dst = ZOT_LOG_DST_PATH;
  ctl->path = path;
  return 0;
}

int zot_util_set_log_ctl_dst_cb_func(zot_log_ctl *ctl, zot_log_cb *cb, void *cb_arg) {
  if (ctl == nullptr || cb == nullptr) {
    return -1;
  }
  ctl->dst = ZOT_LOG_DST_CB_FUNC;
  ctl->cb = cb;
  ctl->cb_arg = cb_arg;
  return 0;
}

zot_log_site zot_util_log_cb_func_get_conf_stat(const zot_log_ctx *log_ctx) {
  return log_ctx != nullptr ? log_ctx->site : zot_log_site{};
}

int zot_catset_set_all(zot_catset *catset) {
  if (catset == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  for (int32_t category = 0; category < ZOT_CAT_COUNT; ++category) {
    zot_catset_add(catset, category);
  }
  return ZOT_OK;
}

int zot_catset_add(zot_catset *catset, int32_t category) {
  if (catset == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (!is_category(category)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  const auto bit = static_cast<uint32_t>(category);
  catset->word[bit / bits_per_word] |= 1U << (bit % bits_per_word);
  return ZOT_OK;
}

bool zot_catset_has(const zot_catset *catset, int32_t category) {
  if (catset == nullptr || !is_category(category)) {
    return false;
  }
  const auto bit = static_cast<uint32_t>(category);
  return (catset->word[bit / bits_per_word] >> (bit % bits_per_word) & 1U) != 0;
}

void zot_core_reset_stat(zot_core_stat *stat) {
  if (stat != nullptr) {
    *stat = zot_core_stat{};
  }
}
