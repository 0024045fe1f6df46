// SPDX-License-Identifier: Apache-2.0
// What a restarted process finds in the cache. Each part is loaded once, when it is first needed.
#include "zot_priv/cycle/start_up.hpp"

#include "utilities/owner.hpp"
#include "zot_assert.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {

bool has_loaded(const zot_ctx &handle, uint32_t flags) {
  return (handle.load_flags & flags) == flags;
}

}  // namespace

std::optional<int> zot::load_corrupted_once(zot_ctx &handle, const char *func) {
  if (handle.slot[ZOT_SLOT_CORRUPTED].k != nullptr || has_loaded(handle, ZOT_LOADED_FAIL_K)) {
    return {};
  }
  const int status = zot_priv_init_load_fail_k(&handle);
  if (status == ZOT_ERR_NO_FILE) {
    ZOT_LOG_AT(&handle, func, __LINE__, ZOT_LOG_INFO, zot::k_file_topics,
               "%sNo saved corrupted K\n");
    return {};
  }
  return status;
}

int __zot_priv_init_load_k_f(zot_ctx *handle, zot_k_reader reader, zot_k **target, const char *root,
                             int flags) {
  if (handle == nullptr || reader == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  if (target == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input target k", __func__);
  }
  zot::k_owner k = zot::make_k();
  if (k == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  if (const int status = reader(handle, k.get(), root, flags); status != ZOT_OK) {
    return status;
  }
  if (zot_priv_k_set_root(k.get(), root) == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  *target = k.release();
  return ZOT_RECORD(handle, ZOT_OK);
}

int _zot_priv_init_load_k_f(zot_ctx *handle, zot_k_reader reader, zot_k **target, const char *root,
                            int flags) {
  zot::require(flags != 0, "flags != 0", "src/zot_priv", __func__);
  return __zot_priv_init_load_k_f(handle, reader, target, root, flags);
}

int zot_priv_init_load_conf(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  const zot_slot &current = handle->slot[ZOT_SLOT_CURRENT];
  if ((current.k != nullptr && current.gpbs != nullptr) || has_loaded(*handle, zot::conf_loaded)) {
    return ZOT_OK;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics, "%sStart Init. Load K\n");
  handle->load_flags |= zot::conf_loaded;
  zot_k *loaded = nullptr;
  const zot::in_force_source source(*handle);
  if (const int status = __zot_priv_init_load_k_f(handle, zot::read_kept_or_current_k, &loaded,
                                                  handle->conf_root, 0);
      status != ZOT_OK) {
    return status;
  }
  zot::k_owner k(loaded);
  if (zot_priv_k_set_root(k.get(), source.gpb_root()) == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics, "%sInit. Load K: Done\n");
  zot::gpb_list_owner gpbs = zot::make_gpb_list(handle);
  if (gpbs == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  if (const int status = zot_priv_get_gpb_list_via_k_json(handle, k.get(), gpbs.get());
      status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::gpb_file_topics, "%sInit. Load GPB list from K: Done\n");
  if (const int status = zot_priv_read_gpb(handle, k.get(), gpbs.get(), source.gpb_root());
      status != ZOT_OK) {
    return status;
  }
  zot_priv_set_k(handle, ZOT_SLOT_CURRENT, k.release());
  zot_priv_set_gpb(handle, ZOT_SLOT_CURRENT, gpbs.release());
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
          "%sInit. Load current configuration from cached storage: Done\n");
  return ZOT_OK;
}

int zot_priv_init_load_prev_k(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  zot_slot &last = handle->slot[ZOT_SLOT_LAST];
  if (last.k != nullptr || has_loaded(*handle, ZOT_LOADED_PREV_K)) {
    return ZOT_OK;
  }
  handle->load_flags |= ZOT_LOADED_PREV_K;
  int status = _zot_priv_init_load_k_f(handle, zot::read_kept_or_last_k, &last.k, handle->conf_root,
                                       ZOT_READ_K_OPTIONAL);
  if (status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_topics, "%sInit. Load last K from cached storage: Done\n");
  zot::gpb_list_owner gpbs = zot::make_gpb_list(handle);
  status = gpbs != nullptr ? zot_priv_get_gpb_list_via_k_json(handle, last.k, gpbs.get())
                           : ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s] out of memory", __func__);
  if (status != ZOT_OK) {
    gpbs.reset();
    zot::release_k(handle, ZOT_SLOT_LAST, __func__);
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::gpb_topics,
          "%sInit. Load last GPB files from cached storage: Done\n");
  last.gpbs = gpbs.release();
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_topics,
          "%sInit. Load last configuration from cached storage: Done\n");
  return ZOT_OK;
}

// For adapters and tools. The library itself does not load the temporary K: it fetches it again.
int zot_priv_init_load_tmp_k(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  zot_slot &temporary = handle->slot[ZOT_SLOT_TMP];
  if (temporary.k != nullptr || has_loaded(*handle, ZOT_LOADED_TMP_K)) {
    return ZOT_OK;
  }
  handle->load_flags |= ZOT_LOADED_TMP_K;
  if (const int status = __zot_priv_init_load_k_f(handle, zot_priv_read_tmp_k_f, &temporary.k,
                                                  handle->tmp_root, 0);
      status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_topics, "%sInit. Load temporary K: Done\n");
  return ZOT_OK;
}

int zot_priv_init_load_fail_k(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  zot_slot &corrupted = handle->slot[ZOT_SLOT_CORRUPTED];
  if (corrupted.k != nullptr || has_loaded(*handle, ZOT_LOADED_FAIL_K)) {
    return ZOT_OK;
  }
  handle->load_flags |= ZOT_LOADED_FAIL_K;
  if (const int status =
          _zot_priv_init_load_k_f(handle, zot::read_kept_or_corrupted_k, &corrupted.k,
                                  handle->conf_root, ZOT_READ_K_OPTIONAL);
      status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_topics,
          "%sInit. Load corrupted K from cached storage: Done\n");
  return ZOT_OK;
}

int zot_priv_init_load_ret_gpb_list(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (handle->ret.list != nullptr || has_loaded(*handle, ZOT_LOADED_RET_LIST)) {
    return ZOT_OK;
  }
  handle->load_flags |= ZOT_LOADED_RET_LIST;
  zot::gpb_list_owner marked = zot::make_gpb_list(handle);
  if (marked == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s] out of memory", __func__);
  }
  const zot_slot &current = handle->slot[ZOT_SLOT_CURRENT];
  const zot_slot &last = handle->slot[ZOT_SLOT_LAST];
  // A configuration that cannot be loaded counts as none. The difference is built without it.
  if (current.k == nullptr && !has_loaded(*handle, ZOT_LOADED_CONF)) {
    zot_priv_init_load_conf(handle);
  }
  zot_priv_init_load_prev_k(handle);
  zot_list nothing;
  zot_list_init(&nothing);
  if (const int status = zot_priv_build_full_diff_gpb_list(
          handle, current.k, last.k, last.gpbs != nullptr ? last.gpbs : &nothing,
          current.gpbs != nullptr ? current.gpbs : &nothing, marked.get());
      status != ZOT_OK) {
    return status;
  }
  // The list may use the root of the current K: whoever replaces that K replaces the list and its
  // root first.
  zot::set_marks(*handle, marked.release(),
                 current.k != nullptr ? current.k->root : handle->ret.root);
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
          "%sInit. Create diff list for cached storage: Done\n");
  return ZOT_OK;
}
