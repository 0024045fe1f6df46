// SPDX-License-Identifier: Apache-2.0
// Copies and commands that log and record under the name of the operation that asked for them.
#include "zot_priv/storage/logged.hpp"

#include <cerrno>
#include <cstring>

#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/storage/cache_lock.hpp"

namespace {

// The exit status is in the second byte. Any other result of system() is passed on unchanged.
int exit_code_of(int raw_status) {
  const int exit_code = (raw_status >> 8) & 0xff;
  return exit_code != 0 ? exit_code : raw_status;
}

}  // namespace

int zot_priv_fcopy(zot_ctx *handle, const char *src, const char *dst, const char *func, long line) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  uint64_t read_bytes = 0;
  uint64_t written_bytes = 0;
  if (fcopy_stat(src, dst, &read_bytes, &written_bytes) != 0) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, func, line, "fail to cp %s to %s:%s", src, dst,
                         std::strerror(errno));
  }
  handle->stat.bytes_read += read_bytes;
  handle->stat.bytes_written += written_bytes;
  ZOT_LOG_AT(handle, func, line, ZOT_LOG_DEBUG, ZOT_TOPIC_FILE, "%sRun CMD: cp \"%s\" \"%s\"\n",
             src, dst);
  ZOT_LOG_AT(handle, func, line, ZOT_LOG_DEBUG, ZOT_TOPIC_FILE,
             "%sRead byte = %llu, write byte = %llu\n", static_cast<unsigned long long>(read_bytes),
             static_cast<unsigned long long>(written_bytes));
  return ZOT_OK;
}

int zot::run_shown_as(zot_ctx *handle, const char *command, const char *shown, int *code,
                      const char *func, long line) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (command == nullptr || command[0] == '\0') {
    return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, func, line, "Null or empty command");
  }
  int raw_status = 0;
  {
    const locks_for_commands lent(*handle);
    raw_status = cmd_helper_system(command);
  }
  const int error = errno;
  if (raw_status == -1) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, func, line,
                         "No child process or no status, cmd = %s: %s", shown,
                         std::strerror(error));
  }
  const int exit_code = exit_code_of(raw_status);
  errno = error;
  ZOT_LOG_AT(handle, func, line, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
             "%sRun system command: %s done, ret = %d\n", shown, exit_code);
  if (exit_code != 0) {
    ZOT_LOG_AT(handle, func, line, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, "%serr = %s\n",
               std::strerror(error));
  }
  if (code != nullptr) {
    *code = exit_code;
  }
  return ZOT_OK;
}

void zot::remove_shown(zot_ctx *handle, const char *root, const char *name, const char *called,
                       const char *func) {
  const joined_path path(root, name);
  rm_rf(path.c_str());
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, zot::k_file_topics, "%sRemove %s: Done\n",
             called);
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, zot::k_file_topics,
             "%sRun CMD: rm -rf \"%s\"\n", path.c_str());
}

int _zot_priv_system(zot_ctx *handle, const char *cmd, int *code, const char *func, long line) {
  return zot::run_shown_as(handle, cmd, cmd, code, func, line);
}

int zot::record_cache_failure(zot_ctx *handle, const char *func, long line, const char *what) {
  return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, func, line, "[%s]: fail to %s %s: %s", func, what,
                       handle->conf_root, std::strerror(errno));
}

int zot::record_changed_scratch(zot_ctx *handle, const char *func) {
  return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, func, __LINE__,
                       "[%s]: what the get fetched was changed in %s", func, handle->tmp_root);
}
