// SPDX-License-Identifier: Apache-2.0
// The rollback: refuses the new configuration and keeps its K as the corrupted one.
#include <cerrno>
#include <cstring>

#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/cycle/doubts.hpp"
#include "zot_priv/cycle/marks.hpp"
#include "zot_priv/cycle/paths.hpp"
#include "zot_priv/cycle/recovery.hpp"
#include "zot_priv/cycle/start_up.hpp"
#include "zot_priv/cycle/verdict.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/cache_lock.hpp"
#include "zot_priv/storage/fetched.hpp"
#include "zot_priv/storage/logged.hpp"
#include "zot_priv/storage/names.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {

// Undoes a failed commit of the fetched K. A K that another process has committed can no longer be
// rolled back.
int check_and_undo(zot_ctx *handle, const zot_k *tmp_k, const char *func) {
  if (tmp_k != nullptr && !zot::is_k_as_fetched(*handle, *tmp_k)) {
    return zot::record_changed_scratch(handle, func);
  }
  if (!zot::undo_failed_commit(*handle)) {
    return zot::record_cache_failure(handle, func, __LINE__, "restore");
  }
  errno = 0;
  if (tmp_k != nullptr &&
      zot::is_in_force(*handle, *tmp_k, zot_priv_get_gpb(handle, ZOT_SLOT_TMP))) {
    // The next get must find that this configuration brings nothing new.
    zot::mark_outdated(*handle);
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, func, __LINE__,
                         "[%s]: this is in force already in %s", func, handle->conf_root);
  }
  // A K that cannot be read may be this very one.
  if (errno != 0 && errno != ENOENT) {
    return zot::record_cache_failure(handle, func, __LINE__, "read");
  }
  return ZOT_OK;
}

// Forgets the last K, in memory and in the cache: after a rollback the configuration in force has
// no predecessor. In any case, the marks are those of the configuration in force again.
int forget_last_k(zot_ctx *handle, const char *func) {
  zot_priv_init_load_prev_k(handle);
  const bool has_last = zot_priv_get_k(handle, ZOT_SLOT_LAST) != nullptr;
  if (has_last) {
    zot_priv_free_k_ex_safe(handle, ZOT_SLOT_LAST, nullptr);
    const zot::locks_for_commands lent(*handle);
    zot::remove_shown(handle, handle->conf_root, zot::last_k.k, "last K", func);
    zot::remove_shown(handle, handle->conf_root, zot::last_k.checksum, "last K.checksum", func);
  }
  const int status = zot::renew_marks(*handle);
  if (status == ZOT_OK && has_last) {
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GPB,
               "%sRenew returned GPB list: Done\n");
  }
  return status;
}

// Copies a file of the fetched K into the cache. The log calls it `label`.
int store_corrupted_file(zot_ctx *handle, const char *name, const char *corrupted_name,
                         const char *label, const char *func) {
  const int status =
      zot_priv_fcopy(handle, zot::joined_path(handle->tmp_root, name).c_str(),
                     zot::joined_path(handle->conf_root, corrupted_name).c_str(), func, __LINE__);
  if (status == ZOT_OK) {
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, zot::k_file_topics,
               "%sMove new %s from temporary storage to cached storage as corrupted %s: Done\n",
               label, label);
  }
  return status;
}

// Stores the fetched K in the cache as the corrupted one and writes it through to the medium.
int store_corrupted_files(zot_ctx *handle, const char *func) {
  const zot::cache_media media(*handle);
  if (const int status =
          store_corrupted_file(handle, zot::temporary_k.k, zot::corrupted_k.k, "K", func);
      status != ZOT_OK) {
    return status;
  }
  if (const int status = store_corrupted_file(handle, zot::temporary_k.checksum,
                                              zot::corrupted_k.checksum, "K.checksum", func);
      status != ZOT_OK) {
    return status;
  }
  if (!zot::is_scratch_held(*handle)) {
    return zot::record_changed_scratch(handle, func);
  }
  if (!media.sync()) {
    return zot::record_cache_failure(handle, func, __LINE__, "sync");
  }
  return ZOT_OK;
}

// Reads the corrupted K, which was just stored, back into its slot.
int reload_corrupted_k(zot_ctx *handle, const char *func) {
  zot_priv_free_k_ex_safe(handle, ZOT_SLOT_CORRUPTED, nullptr);
  zot::k_owner k = zot::make_k();
  if (k == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_NOMEM, func, __LINE__, "Out of memory");
  }
  if (const int status = zot_priv_read_corrupted_k_f(handle, k.get(), handle->conf_root, 0);
      status != ZOT_OK) {
    return status;
  }
  if (zot_priv_k_set_root(k.get(), handle->conf_root) == nullptr) {
    return ZOT_RECORD_NO_MEMORY_AT(handle, func);
  }
  zot_priv_set_k(handle, ZOT_SLOT_CORRUPTED, k.release());
  return ZOT_OK;
}

}  // namespace

int zot_priv_commit_fail_k(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (handle->dev_mode != 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics, "%sIs dev mode, do not commit corrupted K\n");
    return ZOT_RECORD(handle, ZOT_OK);
  }
  const uint32_t state = handle->stat.state;
  if ((state & zot::verdict_given) != 0) {
    return ZOT_RECORD(handle, ZOT_OK, "No need to run because commit or roll-back has done\n");
  }
  if ((state & ZOT_CYCLE_SAME_K) != 0) {
    return ZOT_RECORD(handle, ZOT_NO_UPDATE, "It got same K. Do nothing for roll-back\n.");
  }
  if ((state & ZOT_CYCLE_NEW_CONF) == 0) {
    return ZOT_RECORD(handle, ZOT_ERR_NOT_READY,
                      "Should run zot_conf_get() before doing roll-back\n.");
  }
  const zot::folders_of_get folders(*handle);
  if (!folders.has_memory()) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  zot::cache_lock lock(*handle);
  if (const int status = lock.acquire(__func__); status != ZOT_OK) {
    return status;
  }
  const zot_k *const tmp_k = zot_priv_get_k(handle, ZOT_SLOT_TMP);
  if (const int status = check_and_undo(handle, tmp_k, __func__); status != ZOT_OK) {
    return status;
  }
  if (const int status = forget_last_k(handle, __func__); status != ZOT_OK) {
    return status;
  }
  if (tmp_k == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "No update data\n");
  }
  if (const auto status = zot::load_corrupted_once(*handle, __func__);
      status && *status != ZOT_OK) {
    ZOT_LOG(handle, ZOT_LOG_WARN, zot::k_file_topics, "%sUnable to do load corrupted K: %s\n",
            std::strerror(errno));
  }
  const zot_k *const corrupted = zot_priv_get_k(handle, ZOT_SLOT_CORRUPTED);
  if (zot_priv_cmp_k(corrupted, tmp_k) == 0) {
    return ZOT_RECORD(handle, ZOT_NO_UPDATE,
                      "New configuration is still corrupted.It doesn't need to do anything.");
  }
  if (const int status = store_corrupted_files(handle, __func__); status != ZOT_OK) {
    return status;
  }
  if (const int status = reload_corrupted_k(handle, __func__); status != ZOT_OK) {
    return status;
  }
  zot_done_roll_back(handle);
  return ZOT_OK;
}
