// SPDX-License-Identifier: Apache-2.0
// The commit: brings the new configuration into force.
#include "zot_priv/cycle/commit.hpp"

#include <cerrno>
#include <cstring>

#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/cycle/doubts.hpp"
#include "zot_priv/cycle/paths.hpp"
#include "zot_priv/cycle/recovery.hpp"
#include "zot_priv/cycle/verdict.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/cache_lock.hpp"
#include "zot_priv/storage/fetched.hpp"
#include "zot_priv/storage/leftovers.hpp"
#include "zot_priv/storage/logged.hpp"
#include "zot_priv/storage/put_back.hpp"
#include "zot_priv/storage/room.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {

constexpr uint32_t k_and_gpb_topics = ZOT_TOPIC_K | ZOT_TOPIC_GPB;

constexpr const char *operation = "zot_priv_commit_conf";

// Checks what the get fetched, before anything changes.
int check_fetched(zot_ctx *handle, const zot_k &tmp_k, const zot_list *tmp_gpbs) {
  if (zot::is_overtaken(*handle)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                         "[%s]: another process has decided otherwise in %s", operation,
                         handle->conf_root);
  }
  const char *const outside =
      handle->fns.commit_gpb == nullptr ? zot::path_outside(tmp_gpbs) : nullptr;
  if (outside != nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                         "[%s]: a file of K lies outside of %s: %s", operation,
                         handle->tmp_gpb_root, outside);
  }
  return zot::is_set_as_fetched(*handle, tmp_k, tmp_gpbs)
             ? ZOT_OK
             : zot::record_changed_scratch(handle, operation);
}

// Prepares a commit that removes the old files before it copies the new ones. At that moment the
// new files must be complete, and the copy must not bring more than was counted. If the copy fails,
// memory must still hold the files that were removed for it.
int prepare_in_place(zot_ctx *handle, const zot_list *tmp_gpbs) {
  // This census makes the function look for unlisted files.
  zot::remove_unlisted_files(*handle, tmp_gpbs, {.has_empty_directory = true});
  if (!zot::are_files_in(handle->tmp_gpb_root, tmp_gpbs)) {
    return zot::record_changed_scratch(handle, operation);
  }
  const bool is_begun = handle->own.commit_begun != 0;
  if (!is_begun && zot::may_hold_more(*handle)) {
    // The handle looked into the cache only once, when it was new. What cannot be loaded now is
    // lost.
    zot::load_once_more(*handle);
  }
  const zot_slot &before = handle->slot[is_begun ? ZOT_SLOT_LAST : ZOT_SLOT_CURRENT];
  // If nothing was in force, or what was in force cannot be loaded, there is nothing left to lose.
  // ESTALE is reported if the check fails without an error number of its own.
  errno = ESTALE;
  const bool is_known = before.k != nullptr ? zot::is_in_force(*handle, *before.k, nullptr) &&
                                                  zot::can_put_back(before.gpbs)
                                            : is_begun || !zot::may_hold_more(*handle);
  if (!is_known) {
    // The next get loads the cache again.
    zot::mark_outdated(*handle);
    return zot::record_cache_failure(handle, operation, __LINE__, "keep the files of");
  }
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_WARN, zot::gpb_file_topics,
             "%sNo room for the new files beside the old ones, which go first: a power cut would "
             "leave none\n");
  return ZOT_OK;
}

// Refuses a configuration that does not fit. Nothing has changed yet.
int check_room(zot_ctx *handle, const zot_k &tmp_k, const zot_list *tmp_gpbs,
               zot::gpb_protection &protection) {
  const zot::room_check check = zot::look_for_room(*handle, tmp_k, tmp_gpbs);
  const auto needed = static_cast<unsigned long long>(check.needed.bytes);
  const auto available = static_cast<unsigned long long>(check.available.bytes);
  const auto needed_files = static_cast<unsigned long long>(check.needed.files);
  const auto available_files = static_cast<unsigned long long>(check.available.files);
  if (check.fits == zot::room_check::none) {
    return ZOT_RECORD_AT(
        handle, ZOT_ERR_GENERIC, operation, __LINE__,
        "[%s]: no room in %s: %llu bytes and %llu files needed, %llu and %llu there", operation,
        handle->conf_root, needed, needed_files, available, available_files);
  }
  if (check.fits == zot::room_check::in_place) {
    if (const int status = prepare_in_place(handle, tmp_gpbs); status != ZOT_OK) {
      return status;
    }
  }
  protection = check.fits == zot::room_check::in_place || handle->fns.commit_gpb != nullptr
                   ? zot::gpb_protection::removed_first
                   : zot::gpb_protection::kept;
  return ZOT_OK;
}

// Makes the temporary configuration the current one in memory.
int adopt(zot_ctx *handle, zot_k *tmp_k, zot_list *tmp_gpbs) {
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, k_and_gpb_topics,
             "%sStart to update current configuration in memory.\n");
  const int status = zot_priv_update_cached_mem(handle, tmp_k, tmp_gpbs);
  if (status == ZOT_OK) {
    handle->own.commit_begun = 1;
    // The last K is known now, even if there is none.
    handle->load_flags |= ZOT_LOADED_PREV_K;
  }
  return status;
}

// Keeps the old files in the undo folder until the commit ends. Of GPB files that are removed
// first, only memory keeps a copy.
int protect(zot_ctx *handle, zot_k *tmp_k, zot::gpb_protection protection) {
  // After a commit that was undone, the root of K is the persistent directory. After a get that ran
  // out of memory, K has no root.
  const bool needs_scratch_root =
      tmp_k->root == nullptr || std::strcmp(tmp_k->root, handle->conf_root) == 0;
  if (needs_scratch_root && zot_priv_k_set_root(tmp_k, handle->tmp_root) == nullptr) {
    return ZOT_RECORD_NO_MEMORY_AT(handle, operation);
  }
  return zot::begin_undo(*handle, protection)
             ? ZOT_OK
             : zot::record_cache_failure(handle, operation, __LINE__, "keep the files of");
}

// Called after a copy. If another process has recreated the scratch directory, the copied files may
// be that process's.
int check_scratch(zot_ctx *handle) {
  return zot::is_scratch_held(*handle) ? ZOT_OK : zot::record_changed_scratch(handle, operation);
}

int store_k(zot_ctx *handle, zot_k *tmp_k, zot::gpb_protection protection) {
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, zot::k_file_topics,
             "%sStart to commit K file into cached storage.\n");
  if (const int status = protect(handle, tmp_k, protection); status != ZOT_OK) {
    return status;
  }
  int status = zot_priv_commit_k(handle, tmp_k);
  status = status == ZOT_OK ? check_scratch(handle) : status;
  if (status != ZOT_OK) {
    zot::restore_from_undo(*handle);
  }
  return status;
}

int store_gpbs(zot_ctx *handle, zot_list *tmp_gpbs) {
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, zot::gpb_file_topics,
             "%sStart to commit GPB files into cached storage.\n");
  int status = zot_priv_commit_gpb(handle, tmp_gpbs);
  status = status == ZOT_OK ? check_scratch(handle) : status;
  if (status != ZOT_OK) {
    return status;
  }
  // An adapter may keep its files elsewhere.
  if (handle->fns.commit_gpb == nullptr && !zot::are_files_stored(*handle, tmp_gpbs)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                         "[%s]: files are missing in %s", operation, handle->conf_root);
  }
  return ZOT_OK;
}

int sync(zot_ctx *handle, const zot::cache_media &media) {
  return media.sync() ? ZOT_OK : zot::record_cache_failure(handle, operation, __LINE__, "sync");
}

// The new files must be on the medium before the old ones are given up.
int store_on_medium(zot_ctx *handle, const zot::cache_media &media) {
  if (const int status = sync(handle, media); status != ZOT_OK) {
    return status;
  }
  if (!zot::retire_undo(*handle)) {
    return zot::record_cache_failure(handle, operation, __LINE__, "end the commit in");
  }
  zot::remove_undo_leftovers(*handle);
  return ZOT_OK;
}

// After a failed in-place commit, writes the old files back, so that a process that starts without
// a service finds them.
int put_back_unprotected(zot_ctx *handle, int status) {
  if (handle->fns.commit_gpb != nullptr || !zot::has_undo(*handle)) {
    return status;
  }
  return zot::put_back(*handle, zot_priv_get_gpb(handle, ZOT_SLOT_LAST))
             ? status
             : zot::record_cache_failure(handle, operation, __LINE__, "restore");
}

// Makes the cache match what memory already holds. After a failure all files are written again: the
// kernel reports a failed write to the medium only once, and the data is lost.
int store(zot_ctx *handle, zot_k *tmp_k, zot_list *tmp_gpbs, zot::gpb_protection protection) {
  const zot::locks_for_commands lent(*handle);
  const zot::cache_media media(*handle);
  if (const int status = store_k(handle, tmp_k, protection); status != ZOT_OK) {
    return status;
  }
  int status = store_gpbs(handle, tmp_gpbs);
  status = status == ZOT_OK ? store_on_medium(handle, media) : status;
  const bool is_put_back = status != ZOT_OK && protection == zot::gpb_protection::removed_first;
  return is_put_back ? put_back_unprotected(handle, status) : status;
}

// Whether another process has committed the same configuration since. Then nothing is left to do in
// the cache, which may have seen further commits and rollbacks. An adapter may commit its files for
// this process alone, so its commit is never skipped.
bool is_committed_by_other(const zot_ctx &handle, const zot_k &tmp_k, const zot_list *tmp_gpbs) {
  return handle.fns.commit_gpb == nullptr && !zot::are_verdicts_as_fetched(handle) &&
         zot::is_in_force(handle, tmp_k, tmp_gpbs);
}

int end_commit(zot_ctx *handle) {
  zot::clear_doubts(*handle);
  handle->own.commit_begun = 0;
  handle->own.marks_waiting = 0;
  zot_done_commit(handle);
  return ZOT_RECORD_AT(handle, ZOT_OK, operation, __LINE__);
}

// Starts a commit, or continues one that failed.
int run_commit(zot_ctx *handle, zot_k *tmp_k, zot_list *tmp_gpbs) {
  const bool is_begun = handle->own.commit_begun != 0;
  if (!is_begun && zot_priv_cmp_k(zot_priv_get_k(handle, ZOT_SLOT_CURRENT), tmp_k) == 0) {
    return ZOT_RECORD_AT(handle, ZOT_NO_UPDATE, operation, __LINE__,
                         "Configuration not changed. It doesn't need to do commit.");
  }
  // The leftovers of another commit would count as used space.
  if (zot::has_undo(*handle) && !zot::restore_from_undo(*handle)) {
    return zot::record_cache_failure(handle, operation, __LINE__, "restore");
  }
  zot::remove_undo_leftovers(*handle);
  if (is_committed_by_other(*handle, *tmp_k, tmp_gpbs)) {
    // The other process may have been killed before its files reached the medium.
    if (const int status = sync(handle, zot::cache_media(*handle)); status != ZOT_OK) {
      return status;
    }
    if (zot::reload_conf(*handle)) {
      return end_commit(handle);
    }
  }
  if (const int status = check_fetched(handle, *tmp_k, tmp_gpbs); status != ZOT_OK) {
    return status;
  }
  zot::gpb_protection protection = zot::gpb_protection::kept;
  if (const int status = check_room(handle, *tmp_k, tmp_gpbs, protection); status != ZOT_OK) {
    return status;
  }
  if (!is_begun) {
    if (const int status = adopt(handle, tmp_k, tmp_gpbs); status != ZOT_OK) {
      return status;
    }
  }
  if (const int status = store(handle, tmp_k, tmp_gpbs, protection); status != ZOT_OK) {
    return status;
  }
  if (handle->own.marks_waiting == 0) {
    // A rollback that failed before has set the marked list to that of the earlier configuration.
    zot_priv_free_ret_gpb_list(handle);
  }
  return end_commit(handle);
}

}  // namespace

int zot::settle_failed_commit(zot_ctx &handle) {
  if (handle.own.commit_begun == 0 || !waits_for_verdict(handle)) {
    return ZOT_OK;
  }
  const folders_of_get folders(handle);
  {
    cache_lock lock(handle);
    if (const int status = lock.acquire(operation); status != ZOT_OK) {
      return status;
    }
    const zot_slot &fetched = handle.slot[ZOT_SLOT_TMP];
    if (folders.has_memory() && fetched.k != nullptr && fetched.gpbs != nullptr &&
        run_commit(&handle, fetched.k, fetched.gpbs) == ZOT_OK) {
      return ZOT_OK;
    }
  }
  // A command that the commit could not wait for holds the lock until the command ends.
  cache_lock lock(handle);
  if (const int status = lock.acquire(operation); status != ZOT_OK) {
    return status;
  }
  if (!undo_failed_commit(handle)) {
    record_cache_failure(&handle, operation, __LINE__, "restore");
  }
  if (handle.slot[ZOT_SLOT_CURRENT].k == nullptr) {
    // Another process may have committed a first configuration in the meantime.
    mark_outdated(handle);
  }
  withdraw(handle);
  return ZOT_OK;
}

int zot_priv_commit_conf(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (handle->dev_mode != 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics, "%sIs dev mode, do not commit conf.\n");
    return ZOT_RECORD(handle, ZOT_OK);
  }
  const uint32_t state = handle->stat.state;
  if ((state & zot::verdict_given) != 0) {
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
  const zot::folders_of_get folders(*handle);
  if (!folders.has_memory()) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  zot::cache_lock lock(*handle);
  if (const int status = lock.acquire(__func__); status != ZOT_OK) {
    return status;
  }
  return run_commit(handle, tmp_k, tmp_gpbs);
}
