// SPDX-License-Identifier: Apache-2.0
// The end of a cycle: the new configuration is committed, or rolled back and kept as corrupted.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/commit_progress.hpp"

namespace {

constexpr uint32_t k_file_topics = ZOT_TOPIC_K | ZOT_TOPIC_FILE;
constexpr uint32_t k_topics = ZOT_TOPIC_K | ZOT_TOPIC_GENERAL;
constexpr uint32_t k_and_gpb_topics = ZOT_TOPIC_K | ZOT_TOPIC_GPB;
constexpr uint32_t gpb_file_topics = ZOT_TOPIC_GPB | ZOT_TOPIC_FILE;
constexpr uint32_t done = ZOT_CYCLE_DONE_COMMIT | ZOT_CYCLE_DONE_ROLL_BACK;

// The step that the commit of this cycle has to do next.
uint32_t open_step(const zot_ctx &handle) {
  return handle.stat.reserved & zot::commit_step_bits;
}

void go_on_to(zot_ctx *handle, zot::commit_progress step) {
  uint32_t &progress = handle->stat.reserved;
  progress = (progress & ~static_cast<uint32_t>(zot::commit_step_bits)) | step;
}

bool is_same_k(const zot_k *a, const zot_k *b) {
  return a == b || zot_priv_cmp_k(a, b) == 0;
}

// Puts all that was written below a directory on the medium.
bool sync_file_system(const char *directory) {
  const zot::descriptor fd(::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd.is_open() && ::syncfs(fd.get()) == 0;
}

// Removes one of the last K's files and says so.
void remove_last_file(zot_ctx *handle, const char *name, const char *label, const char *func) {
  const zot::joined_path path(handle->conf_root, name);
  rm_rf(path.c_str());
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, k_file_topics, "%sRemove last %s: Done\n",
             label);
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, k_file_topics, "%sRun CMD: rm -rf \"%s\"\n",
             path.c_str());
}

// Forgets the last K, in memory and in the cache: after a roll-back the configuration in force has
// none before it.
int forget_last_k(zot_ctx *handle, const char *func) {
  if (zot_priv_get_k(handle, ZOT_SLOT_LAST) == nullptr &&
      (handle->load_flags & ZOT_LOADED_PREV_K) == 0) {
    zot_priv_init_load_prev_k(handle);
  }
  uint32_t &progress = handle->stat.reserved;
  if (zot_priv_get_k(handle, ZOT_SLOT_LAST) != nullptr) {
    zot_priv_free_k_ex_safe(handle, ZOT_SLOT_LAST, nullptr);
    remove_last_file(handle, "/knowledge/prev_subsys.k", "K", func);
    remove_last_file(handle, "/knowledge/prev_subsys.checksum", "K.checksum", func);
  } else if ((progress & zot::roll_back_owes_marks) == 0) {
    return ZOT_OK;
  }
  const int status = zot_priv_update_cached_ret_gpb_list(
      handle, zot_priv_get_k(handle, ZOT_SLOT_CURRENT), zot_priv_get_gpb(handle, ZOT_SLOT_CURRENT),
      handle->conf_root);
  progress &= ~static_cast<uint32_t>(zot::roll_back_owes_marks);
  progress |= status == ZOT_ERR_NOMEM ? zot::roll_back_owes_marks : 0U;
  if (status == ZOT_OK) {
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GPB,
               "%sRenew returned GPB list: Done\n");
  }
  return status;
}

void load_corrupted_k(zot_ctx *handle, const char *func) {
  if (zot_priv_get_k(handle, ZOT_SLOT_CORRUPTED) != nullptr ||
      (handle->load_flags & ZOT_LOADED_FAIL_K) != 0) {
    return;
  }
  const int status = zot_priv_init_load_fail_k(handle);
  if (status == ZOT_ERR_NO_FILE) {
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, k_file_topics, "%sNo saved corrupted K\n");
  } else if (status != ZOT_OK) {
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_WARN, k_file_topics,
               "%sUnable to do load corrupted K: %s\n", std::strerror(errno));
  }
}

// Keeps the fetched K in the cache as the corrupted one.
int store_corrupted_files(zot_ctx *handle, const char *func) {
  const zot::joined_path k(handle->tmp_root, "subsys.k");
  const zot::joined_path corrupted_k(handle->conf_root, "/knowledge/corrupted.k");
  int status = zot_priv_fcopy(handle, k.c_str(), corrupted_k.c_str(), func, __LINE__);
  if (status != ZOT_OK) {
    return status;
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, k_file_topics,
             "%sMove new K from temporary storage to cached storage as corrupted K: Done\n");
  const zot::joined_path checksum(handle->tmp_root, "subsys.checksum");
  const zot::joined_path corrupted_checksum(handle->conf_root, "/knowledge/corrupted.checksum");
  status = zot_priv_fcopy(handle, checksum.c_str(), corrupted_checksum.c_str(), func, __LINE__);
  if (status != ZOT_OK) {
    return status;
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, k_file_topics,
             "%sMove new K.checksum from temporary storage to cached storage as corrupted "
             "K.checksum: Done\n");
  return ZOT_OK;
}

// Reads the corrupted K back into its slot.
int reload_corrupted_k(zot_ctx *handle, const char *func) {
  zot_priv_free_k_ex_safe(handle, ZOT_SLOT_CORRUPTED, nullptr);
  zot::k_owner k = zot::make_k();
  if (k == nullptr) {
    return zot::record(handle, ZOT_ERR_NOMEM, func, __LINE__, "Out of memory");
  }
  if (const int status = zot_priv_read_corrupted_k_f(handle, k.get(), handle->conf_root, 0);
      status != ZOT_OK) {
    return status;
  }
  if (zot_priv_k_set_root(k.get(), handle->conf_root) == nullptr) {
    return zot::record(handle, ZOT_ERR_NOMEM, func, __LINE__, "[%s]: out of memory", func);
  }
  zot_priv_set_k(handle, ZOT_SLOT_CORRUPTED, k.release());
  return ZOT_OK;
}

// Makes the temporary configuration the current one in memory.
int adopt(zot_ctx *handle, zot_k *tmp_k, zot_list *tmp_gpbs, const char *func) {
  if (is_same_k(zot_priv_get_k(handle, ZOT_SLOT_CURRENT), tmp_k)) {
    return zot::record(handle, ZOT_NO_UPDATE, func, __LINE__,
                       "Configuration not changed. It doesn't need to do commit.");
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, k_and_gpb_topics,
             "%sStart to update current configuration in memory.\n");
  const int status = zot_priv_update_cached_mem(handle, tmp_k, tmp_gpbs);
  if (status == ZOT_OK) {
    go_on_to(handle, zot::commit_k_files);
  }
  return status;
}

// Brings the files of the cache after what memory already holds, from where it stopped.
int store(zot_ctx *handle, zot_k *tmp_k, zot_list *tmp_gpbs, const char *func) {
  if (open_step(*handle) == zot::commit_k_files) {
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, k_file_topics,
               "%sStart to commit K file into cached storage.\n");
    if (const int status = zot_priv_commit_k(handle, tmp_k); status != ZOT_OK) {
      return status;
    }
    go_on_to(handle, zot::commit_gpb_files);
  }
  if (open_step(*handle) == zot::commit_gpb_files) {
    ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, gpb_file_topics,
               "%sStart to commit GPB files into cached storage.\n");
    if (const int status = zot_priv_commit_gpb(handle, tmp_gpbs); status != ZOT_OK) {
      return status;
    }
    go_on_to(handle, zot::commit_medium);
  }
  if (!sync_file_system(handle->conf_root)) {
    return zot::record(handle, ZOT_ERR_GENERIC, func, __LINE__, "[%s]: fail to sync %s: %s", func,
                       handle->conf_root, std::strerror(errno));
  }
  handle->stat.reserved = zot::commit_not_begun;
  return ZOT_OK;
}

}  // namespace

void zot_done_commit(zot_ctx *handle) {
  if (handle == nullptr) {
    return;
  }
  handle->stat.state = (handle->stat.state & ~done) | ZOT_CYCLE_DONE_COMMIT;
  ZOT_LOG(handle, ZOT_LOG_INFO, k_topics, "%sCommit configuration: Done\n");
}

void zot_done_roll_back(zot_ctx *handle) {
  if (handle == nullptr) {
    return;
  }
  handle->stat.state = (handle->stat.state & ~done) | ZOT_CYCLE_DONE_ROLL_BACK;
  ZOT_LOG(handle, ZOT_LOG_INFO, k_topics, "%sCommit corrupted K files: Done\n");
}

int zot_priv_commit_conf(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (handle->dev_mode != 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, k_file_topics, "%sIs dev mode, do not commit conf.\n");
    return ZOT_RECORD(handle, ZOT_OK);
  }
  const uint32_t state = handle->stat.state;
  if ((state & done) != 0) {
    return ZOT_RECORD(handle, ZOT_OK, "No need to run because commit or roll-back has done\n");
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, k_and_gpb_topics, "%sStart to commit configuration\n");
  if ((state & ZOT_CYCLE_SAME_K) != 0) {
    return ZOT_RECORD(handle, ZOT_NO_UPDATE, "It got same K. Do nothing for %s().\n", __func__);
  }
  if ((state & ZOT_CYCLE_NEW_CONF) == 0) {
    return ZOT_RECORD(handle, ZOT_ERR_NOT_READY, "Should run zot_conf_get() before doing %s()\n.",
                      __func__);
  }
  zot_k *const tmp_k = zot_priv_get_k(handle, ZOT_SLOT_TMP);
  zot_list *const tmp_gpbs = zot_priv_get_gpb(handle, ZOT_SLOT_TMP);
  if (tmp_k == nullptr || tmp_gpbs == nullptr) {
    ZOT_LOG(handle, ZOT_LOG_DEBUG, k_and_gpb_topics, "%sk = %p, gpb = %p\n", zot::address(tmp_k),
            zot::address(tmp_gpbs));
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "No temporary configuration to commit");
  }
  if (open_step(*handle) == zot::commit_not_begun) {
    if (const int status = adopt(handle, tmp_k, tmp_gpbs, __func__); status != ZOT_OK) {
      return status;
    }
  }
  if (const int status = store(handle, tmp_k, tmp_gpbs, __func__); status != ZOT_OK) {
    return status;
  }
  zot_done_commit(handle);
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_priv_commit_fail_k(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (handle->dev_mode != 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, k_file_topics, "%sIs dev mode, do not commit corrupted K\n");
    return ZOT_RECORD(handle, ZOT_OK);
  }
  const uint32_t state = handle->stat.state;
  if ((state & done) != 0) {
    return ZOT_RECORD(handle, ZOT_OK, "No need to run because commit or roll-back has done\n");
  }
  if ((state & ZOT_CYCLE_SAME_K) != 0) {
    return ZOT_RECORD(handle, ZOT_NO_UPDATE, "It got same K. Do nothing for roll-back\n.");
  }
  if ((state & ZOT_CYCLE_NEW_CONF) == 0) {
    return ZOT_RECORD(handle, ZOT_ERR_NOT_READY,
                      "Should run zot_conf_get() before doing roll-back\n.");
  }
  if (const int status = forget_last_k(handle, __func__); status != ZOT_OK) {
    return status;
  }
  const zot_k *const tmp_k = zot_priv_get_k(handle, ZOT_SLOT_TMP);
  if (tmp_k == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "No update data\n");
  }
  load_corrupted_k(handle, __func__);
  const zot_k *const corrupted = zot_priv_get_k(handle, ZOT_SLOT_CORRUPTED);
  if (corrupted != nullptr && is_same_k(corrupted, tmp_k)) {
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
