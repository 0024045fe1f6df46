// SPDX-License-Identifier: Apache-2.0
// Changes the persistent cache at a commit: rotates the K files and replaces the GPB files.
#include <cerrno>
#include <cstring>

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/k_file.hpp"
#include "zot_priv/storage/logged.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

// A file as a directory and a name below it. A path is built only where a step needs it.
struct place {
  const char *root;
  const char *name;
};

constexpr const char *k_name = "/subsys.k";
constexpr const char *last_k_name = "/prev_subsys.k";
constexpr const char *checksum_name = "/subsys.checksum";

// Renames the current file to the last one. The log calls the last one `called` and reports
// `outcome`.
void rotate(zot_ctx *handle, const place &current, const place &last, const char *called,
            const char *outcome, const char *func) {
  const zot::joined_path from(current.root, current.name);
  const zot::joined_path to(last.root, last.name);
  zot::remove_shown(handle, last.root, last.name, called, func);
  const int error = std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
  if (error != 0) {
    // Before the first commit there is nothing to rename.
    const uint32_t level = error == ENOENT ? ZOT_LOG_INFO : ZOT_LOG_WARN;
    ZOT_LOG_AT(handle, func, __LINE__, level, zot::k_file_topics,
               "%s[Warning] Unable to do mv: %s\n", std::strerror(error));
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, zot::k_file_topics, "%s%s\n", outcome);
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, zot::k_file_topics,
             "%sRun CMD: rename \"%s\" \"%s\"\n", from.c_str(), to.c_str());
}

int copy(zot_ctx *handle, const place &from, const place &to, const char *func, long line) {
  return zot_priv_fcopy(handle, zot::joined_path(from.root, from.name).c_str(),
                        zot::joined_path(to.root, to.name).c_str(), func, line);
}

// Reads the committed K back. The old content of the record is freed only after the K is verified
// in its new place, so that a second commit can use the record after a failure.
int reload(zot_ctx *handle, zot_k *k) {
  constexpr const char *operation = "zot_priv_commit_k";
  const zot::k_owner stored = zot::make_k();
  if (stored == nullptr) {
    return ZOT_RECORD_NO_MEMORY_AT(handle, operation);
  }
  if (const int status = zot::read_expected_k(handle, stored.get(), handle->conf_root, *k);
      status != ZOT_OK) {
    return status;
  }
  if (zot_priv_k_set_root(stored.get(), handle->conf_root) == nullptr) {
    return ZOT_RECORD_NO_MEMORY_AT(handle, operation);
  }
  zot::drop_k_contents(k);
  *k = *stored;
  *stored = {};
  return ZOT_OK;
}

int refuse_rootless(zot_ctx *handle, const zot_k *tmp_k) {
  constexpr const char *operation = "zot_priv_commit_k";
  if (tmp_k->root == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_NULL_INPUT, operation, __LINE__, "[%s]: null root",
                         operation);
  }
  if (tmp_k->root[0] == '\0') {
    return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, operation, __LINE__,
                         "[%s]: root path is empty", operation);
  }
  return ZOT_OK;
}

}  // namespace

int zot_priv_commit_k(zot_ctx *handle, zot_k *tmp_k) {
  if (handle == nullptr || tmp_k == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  if (const int status = refuse_rootless(handle, tmp_k); status != ZOT_OK) {
    return status;
  }
  if (handle->dev_mode != 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics,
            "%sIs dev mode, do not rotate K,  path = %s\n", "(null)");
    return ZOT_RECORD(handle, ZOT_OK);
  }
  const place current{handle->conf_k_root, k_name};
  const place current_checksum{handle->conf_root, zot::current_k.checksum};
  rotate(handle, current, {handle->conf_k_root, last_k_name}, "last K",
         "Rotate current K as last K in storage: Done", __func__);
  if (const int status = copy(handle, {tmp_k->root, k_name}, current, __func__, __LINE__);
      status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics,
          "%sMove data from tmp to cached storage: Done\n");
  zot::remove_shown(handle, handle->conf_root, zot::corrupted_k.k, "corrupted K", __func__);
  rotate(handle, current_checksum, {handle->conf_root, zot::last_k.checksum}, "last K.checksum",
         "Move new K to last K: Done", __func__);
  if (const int status =
          copy(handle, {tmp_k->root, checksum_name}, current_checksum, __func__, __LINE__);
      status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics, "%sCopy new K to cached storage: Done\n");
  zot::remove_shown(handle, handle->conf_root, zot::corrupted_k.checksum, "corrupted K.checksum",
                    __func__);
  zot_priv_free_k_ex_safe(handle, ZOT_SLOT_CORRUPTED, tmp_k);

  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics, "%sStart to reload cached K.\n");
  if (const int status = reload(handle, tmp_k); status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_topics, "%sCommit and rotate K files: Done\n");
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_priv_commit_gpb(zot_ctx *handle, zot_list *gpbs) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (handle->dev_mode != 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics, "%sIs dev mode, do not commit gpb\n");
    return ZOT_RECORD(handle, ZOT_OK);
  }
  if (handle->fns.commit_gpb != nullptr) {
    return handle->fns.commit_gpb(handle, handle->tmp_gpb_root, gpbs);
  }
  const zot::joined_path directory(handle->conf_root, "/config");
  if (rm_rf(directory.c_str()) != 0) {
    return ZOT_RECORD(handle, ZOT_ERR_GENERIC, "[%s]:fail to remove %s", __func__,
                      directory.c_str());
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::gpb_file_topics,
          "%sRemove current GPB from cached storage: Done\n");
  ZOT_LOG(handle, ZOT_LOG_DEBUG, zot::gpb_file_topics, "%sRun CMD: rm -rf \"%s\"\n",
          directory.c_str());
  // exec replaces the shell by cp: a copy that outlives its shell would write into restored files.
  const zot::c_text command =
      zot::text_of("exec cp -r \"%s\" \"%s\"", handle->tmp_gpb_root, directory.c_str());
  if (command == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  const char *const shown = command.get() + std::strlen("exec ");
  int exit_code = -1;
  const int status =
      zot::run_shown_as(handle, command.get(), shown, &exit_code, __func__, __LINE__);
  if (status != ZOT_OK || exit_code != 0) {
    const int error = errno;
    ZOT_LOG(handle, ZOT_LOG_ERROR, zot::gpb_file_topics,
            "%sfail to copy from %s to %s:ret = %d, err = %s", handle->tmp_gpb_root,
            directory.c_str(), exit_code, std::strerror(error));
    return status != ZOT_OK ? status
                            : ZOT_RECORD(handle, ZOT_ERR_GENERIC, "[%s]:fail to copy from %s to %s",
                                         __func__, handle->tmp_gpb_root, directory.c_str());
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::gpb_file_topics, "%sCopy new GPB to cached storage: Done\n");
  ZOT_LOG(handle, ZOT_LOG_DEBUG, zot::gpb_file_topics, "%sRun CMD: %s\n", shown);
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_priv_rotate_prev_k(zot_ctx *handle, zot_k *tmp_k) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (tmp_k == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: Null K file", __func__);
  }
  if (tmp_k->root == nullptr || tmp_k->root[0] == '\0') {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s]: empty K path", __func__);
  }
  if (handle->dev_mode != 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics,
            "%sIs dev mode, do not rotate K,  path = %s\n", handle->conf_root);
    return ZOT_RECORD(handle, ZOT_OK);
  }
  if (const int status = copy(handle, {tmp_k->root, k_name}, {handle->conf_k_root, last_k_name},
                              __func__, __LINE__);
      status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics, "%sCopy new K to cached directory: Done\n");
  if (const int status = copy(handle, {tmp_k->root, checksum_name},
                              {handle->conf_root, zot::last_k.checksum}, __func__, __LINE__);
      status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_file_topics,
          "%sCopy new K.checksum to cached directory: Done\n");
  if (zot_priv_k_set_root(tmp_k, handle->conf_root) == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, zot::k_topics, "%sRotate last K files: Done\n");
  return ZOT_RECORD(handle, ZOT_OK);
}
