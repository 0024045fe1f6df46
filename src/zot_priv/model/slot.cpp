// SPDX-License-Identifier: Apache-2.0
// The four cache slots: which slot holds which record, and how a commit rotates them in memory.
#include <array>
#include <cstdlib>

#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/owners.hpp"

namespace {

constexpr std::array<const char *, ZOT_SLOT_COUNT> slot_names = {"current", "last", "temporary",
                                                                 "corrupted"};

bool is_slot(const zot_ctx *handle, uint32_t slot) {
  return handle != nullptr && slot < ZOT_SLOT_COUNT;
}

}  // namespace

zot_k *zot_priv_get_k(const zot_ctx *handle, uint32_t slot) {
  return is_slot(handle, slot) ? handle->slot[slot].k : nullptr;
}

zot_list *zot_priv_get_gpb(const zot_ctx *handle, uint32_t slot) {
  return is_slot(handle, slot) ? handle->slot[slot].gpbs : nullptr;
}

void zot_priv_set_k(zot_ctx *handle, uint32_t slot, zot_k *k) {
  if (is_slot(handle, slot)) {
    handle->slot[slot].k = k;
  }
}

void zot_priv_set_gpb(zot_ctx *handle, uint32_t slot, zot_list *gpbs) {
  if (is_slot(handle, slot)) {
    handle->slot[slot].gpbs = gpbs;
  }
}

const char *zot_priv_slot_name(uint32_t slot) {
  return slot < slot_names.size() ? slot_names[slot] : "";
}

void zot::release_k(zot_ctx *handle, uint32_t slot, const char *func) {
  zot_k *&k = handle->slot[slot].k;
  if (k == nullptr) {
    return;
  }
  const char *const name = zot_priv_slot_name(slot);
  drop_k_contents(k);
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sFree %s K = %p\n", name,
             address(k));
  std::free(k);
  k = nullptr;
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sFree %s K: Done\n", name);
}

void zot::release_gpbs(zot_ctx *handle, uint32_t slot, const char *func) {
  zot_list *&gpbs = handle->slot[slot].gpbs;
  if (gpbs == nullptr) {
    return;
  }
  const char *const name = zot_priv_slot_name(slot);
  zot_priv_free_gpb_list(handle, gpbs);
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sFree %s GPB = %p\n", name,
             address(gpbs));
  free_gpb_head(gpbs);
  gpbs = nullptr;
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sFree %s GPB list: Done\n",
             name);
}

void zot_priv_free_k_ex_safe(zot_ctx *handle, uint32_t slot, zot_k *keep) {
  zot_k *const k = zot_priv_get_k(handle, slot);
  if (k == nullptr) {
    return;
  }
  const char *const name = zot_priv_slot_name(slot);
  if (k == keep) {
    zot_priv_set_k(handle, slot, nullptr);
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_K | ZOT_TOPIC_RELEASE, "%sUnlink %s K from K = %p\n",
            name, zot::address(keep));
    return;
  }
  for (uint32_t other = 0; other < ZOT_SLOT_COUNT; ++other) {
    if (other != slot && zot_priv_get_k(handle, other) == k) {
      zot_priv_set_k(handle, slot, nullptr);
      ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_K | ZOT_TOPIC_RELEASE, "%sUnlink %s K from %s K\n",
              name, zot_priv_slot_name(other));
      return;
    }
  }
  zot::release_k(handle, slot, __func__);
}

void zot_priv_free_gpb_ex_safe(zot_ctx *handle, uint32_t slot, zot_list *keep) {
  zot_list *const gpbs = zot_priv_get_gpb(handle, slot);
  if (gpbs == nullptr) {
    return;
  }
  const char *const name = zot_priv_slot_name(slot);
  if (gpbs == keep) {
    zot_priv_set_gpb(handle, slot, nullptr);
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GPB | ZOT_TOPIC_RELEASE,
            "%sUnlink %s GPB from GPB = %p\n", name, zot::address(keep));
    return;
  }
  for (uint32_t other = 0; other < ZOT_SLOT_COUNT; ++other) {
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GPB, "%sGPB %s = %p\n", zot_priv_slot_name(other),
            zot::address(zot_priv_get_gpb(handle, other)));
    if (other != slot && zot_priv_get_gpb(handle, other) == gpbs) {
      zot_priv_set_gpb(handle, slot, nullptr);
      ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GPB | ZOT_TOPIC_RELEASE,
              "%sUnlink %s GPB from %s GPB\n", name, zot_priv_slot_name(other));
      return;
    }
  }
  zot::release_gpbs(handle, slot, __func__);
}

int zot_priv_update_cached_mem(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (new_k == nullptr || new_gpbs == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input", __func__);
  }
  const zot_slot(&slot)[ZOT_SLOT_COUNT] = handle->slot;
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sBefore K: cur = %p, prev = %p, tmp = %p\n",
          zot::address(slot[0].k), zot::address(slot[1].k), zot::address(slot[2].k));
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sGPB : cur = %p, prev = %p, tmp = %p\n",
          zot::address(slot[0].gpbs), zot::address(slot[1].gpbs), zot::address(slot[2].gpbs));

  const zot_slot before = slot[ZOT_SLOT_CURRENT];
  zot_priv_set_k(handle, ZOT_SLOT_CURRENT, new_k);
  zot_priv_set_gpb(handle, ZOT_SLOT_CURRENT, new_gpbs);
  zot_priv_free_k_ex_safe(handle, ZOT_SLOT_LAST, before.k);
  zot_priv_free_gpb_ex_safe(handle, ZOT_SLOT_LAST, before.gpbs);
  zot_priv_set_k(handle, ZOT_SLOT_LAST, before.k);
  zot_priv_set_gpb(handle, ZOT_SLOT_LAST, before.gpbs);

  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sUpdate Cached conf. memory: Done\n");
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_DETAIL, "%sAfter K: cur = %p, prev = %p, tmp = %p\n",
          zot::address(slot[0].k), zot::address(slot[1].k), zot::address(slot[2].k));
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_DETAIL, "%sAfter GPB: cur = %p, prev = %p, tmp = %p\n",
          zot::address(slot[0].gpbs), zot::address(slot[1].gpbs), zot::address(slot[2].gpbs));
  return ZOT_OK;
}
