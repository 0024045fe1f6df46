// SPDX-License-Identifier: Apache-2.0
// A sub-system's set-up: its identity, its operations, its time-outs and its roots.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utilities/text.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_priv/cycle/recovery.hpp"

namespace {

constexpr uint32_t default_timeout = 5;
constexpr uint32_t default_timeout_gpb = 30;

char *prefixed(const char *variable, const char *path, char *buf, size_t size) {
  const char *const prefix = zot::environment(variable);
  std::snprintf(buf, size, "%s%s", prefix != nullptr ? prefix : "", path);
  return buf;
}

}  // namespace

int zot_priv_init_sub_sys(zot_ctx *handle) {
  if (const int status = zot_sub_init_data(handle); status != ZOT_OK) {
    return status;
  }
  if (const int status = zot_sub_init_fns(handle); status != ZOT_OK) {
    return status;
  }
  const int status = zot_priv_reload_sys_paths(handle);
  if (status == ZOT_OK) {
    zot::remove_commit_leftovers(*handle);
  }
  return status;
}

int zot_sub_init_data(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (handle->sub_data.len > ZOT_SUB_NAME_LEN) {
    return ZOT_RECORD(handle, ZOT_ERR_OUT_OF_RANGE);
  }
  handle->sub_idx_len = handle->sub_data.len;
  char *const name = handle->sub_data.name;
  const size_t length = strnlen(handle->sub_idx, ZOT_SUB_NAME_LEN);
  std::memcpy(name, handle->sub_idx, length);
  name[length] = '\0';
  str2upper(name);
  return ZOT_OK;
}

int zot_sub_init_fns(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  handle->fns = zot_sub_fns{.commit_gpb = nullptr,
                            .get_conf_root = zot_sub_get_conf_root,
                            .get_tmp_root = zot_sub_get_tmp_root,
                            .download_k = ap_download_k,
                            .download_gpb = ap_download_gpb};
  return ZOT_OK;
}

int zot_sub_init_parm(zot_parm_all *parm) {
  if (parm == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  parm->timeout = default_timeout;
  parm->timeout_gpb = default_timeout_gpb;
  return ZOT_OK;
}

char *zot_sub_get_conf_root(zot_ctx *handle, char *buf, size_t size) {
  if (handle == nullptr || buf == nullptr) {
    return nullptr;
  }
  if (const char *const dev_path = zot::environment("ZOT_DEV_PATH"); dev_path != nullptr) {
    handle->dev_mode = 1;
    std::snprintf(buf, size, "%s", dev_path);
    return buf;
  }
  return prefixed("ZOT_PREFIX_CONF_ROOT", "/writable/zot/", buf, size);
}

char *zot_sub_get_tmp_root(zot_ctx *handle, char *buf, size_t size) {
  if (handle == nullptr || buf == nullptr) {
    return nullptr;
  }
  return prefixed("ZOT_PREFIX_TMP_ROOT", "/tmp/zot", buf, size);
}

uint32_t zot_sub_get_remote_port(void) {
  const char *const value = zot::environment("ZOT_REMOTE_PORT");
  const long port = value != nullptr ? std::strtol(value, nullptr, 10) : 0;
  if (port < 1) {
    return ZOT_REMOTE_PORT;
  }
  return static_cast<uint32_t>(port < INT_MAX ? port : INT_MAX);
}
