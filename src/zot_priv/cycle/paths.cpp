// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utilities/shell_word.hpp"
#include "zot_err.hpp"
#include "zot_log.hpp"

namespace {

constexpr uint32_t default_timeout = 5;
constexpr uint32_t default_timeout_gpb = 30;

struct directory {
  const char *path;
  const char *label;
  bool fits;
};

// Null for a variable that is unset or empty, which mean the same.
const char *environment(const char *name) {
  const char *const value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

char *prefixed(const char *variable, const char *path, char *buf, size_t size) {
  const char *const prefix = environment(variable);
  std::snprintf(buf, size, "%s%s", prefix != nullptr ? prefix : "", path);
  return buf;
}

bool has_root(zot_ctx *handle, char *(*getter)(zot_ctx *, char *, size_t), char *buf) {
  if (getter == nullptr) {
    return false;
  }
  const char *const root = getter(handle, buf, ZOT_PATH_SIZE);
  return root != nullptr && *root != '\0';
}

// A path that is too long is cut, and false is returned: what it names then is another directory.
bool join(char *buf, const char *root, const char *name) {
  const int length = std::snprintf(buf, ZOT_PATH_SIZE, "%s/%s", root, name);
  if (length < 0) {
    *buf = '\0';
  }
  return length >= 0 && length < ZOT_PATH_SIZE;
}

}  // namespace

int zot_priv_init_sub_sys(zot_ctx *handle) {
  if (const int status = zot_sub_init_data(handle); status != ZOT_OK) {
    return status;
  }
  if (const int status = zot_sub_init_fns(handle); status != ZOT_OK) {
    return status;
  }
  return zot_priv_reload_sys_paths(handle);
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
  if (const char *const dev_path = environment("ZOT_DEV_PATH"); dev_path != nullptr) {
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
  const char *const value = environment("ZOT_REMOTE_PORT");
  const long port = value != nullptr ? std::strtol(value, nullptr, 10) : 0;
  if (port < 1) {
    return ZOT_REMOTE_PORT;
  }
  return static_cast<uint32_t>(port < INT_MAX ? port : INT_MAX);
}

int zot_priv_reload_sys_paths(zot_ctx *handle) {
  constexpr uint32_t root_topics = ZOT_TOPIC_FILE | ZOT_TOPIC_K | ZOT_TOPIC_GPB;
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (!has_root(handle, handle->fns.get_conf_root, handle->conf_root)) {
    return ZOT_RECORD(handle, ZOT_ERR_GENERIC, "[%s]: unable to get conf root", __func__);
  }
  // Shell commands are built from both roots, but none runs in dev mode.
  if (handle->dev_mode != 1 && !zot::is_plain_shell_word(handle->conf_root)) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT,
                      "[%s]: conf root holds characters that a shell would interpret: %s", __func__,
                      handle->conf_root);
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, root_topics, "%sconf path = \"%s\"\n", handle->conf_root);
  const bool k_root_fits = join(handle->conf_k_root, handle->conf_root, "/knowledge");
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_FILE | ZOT_TOPIC_K, "%sconf K path = \"%s\"\n",
          handle->conf_k_root);
  if (!has_root(handle, handle->fns.get_tmp_root, handle->tmp_root)) {
    return ZOT_RECORD(handle, ZOT_ERR_GENERIC, "[%s]: unable to get conf root", __func__);
  }
  if (!zot::is_plain_shell_word(handle->tmp_root)) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT,
                      "[%s]: tmp root holds characters that a shell would interpret: %s", __func__,
                      handle->tmp_root);
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, root_topics, "%stmp path = \"%s\"\n", handle->tmp_root);
  const bool gpb_root_fits = join(handle->tmp_gpb_root, handle->tmp_root, "/config");
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_FILE | ZOT_TOPIC_GPB, "%stmp GPB path = \"%s\"\n",
          handle->tmp_gpb_root);
  const std::array<directory, 4> directories{
      {{handle->conf_root, "conf root", true},
       {handle->conf_k_root, "conf K root", k_root_fits},
       {handle->tmp_root, "tmp root", true},
       {handle->tmp_gpb_root, "tmp GPB root", gpb_root_fits}}};
  for (const auto &[path, label, fits] : directories) {
    if (!fits) {
      return zot::record(handle, ZOT_ERR_GENERIC, "zot_priv_chk_n_mkdir", __LINE__,
                         "fail to create dir for %s = %s: %s", label, path,
                         std::strerror(ENAMETOOLONG));
    }
    if (const int status = zot_priv_chk_n_mkdir(handle, path, label); status < 0) {
      return status;
    }
  }
  return ZOT_OK;
}

int zot_priv_chk_n_mkdir(zot_ctx *handle, const char *path, const char *label) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (path == nullptr || *path == '\0') {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "NULL or empty %s path = %s", label,
                      path != nullptr ? path : "(null)");
  }
  errno = 0;
  if (chk_and_mkdir(path) != 0) {
    return ZOT_RECORD(handle, ZOT_ERR_GENERIC, "fail to create dir for %s = %s: %s", label, path,
                      std::strerror(errno));
  }
  // Looking for a missing directory leaves an error number behind, although nothing failed.
  errno = 0;
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_FILE, "%sPrepare directory for %s: %s\n", label,
          std::strerror(errno));
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_FILE, "%sRun CMD: mkdir %s\n", path);
  return ZOT_OK;
}
