// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utilities/shell_word.hpp"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/cycle/doubts.hpp"
#include "zot_priv/cycle/paths.hpp"
#include "zot_priv/cycle/recovery.hpp"

namespace {

struct directory {
  const char *path;
  const char *label;
  bool fits;
};

bool has_root(zot_ctx *handle, char *(*getter)(zot_ctx *, char *, size_t), char *buf) {
  if (getter == nullptr) {
    return false;
  }
  const char *const root = getter(handle, buf, ZOT_PATH_SIZE);
  return root != nullptr && *root != '\0';
}

// The longest file name that the library uses in a directory below a root.
constexpr int longest_name = sizeof "/prev_subsys.checksum.absent";

// Joins a path. Returns false if it does not fit: a truncated path names another directory. The
// path must also leave space for the names of the files in the directory.
bool join(char *buf, const char *root, const char *name) {
  const int length = std::snprintf(buf, ZOT_PATH_SIZE, "%s/%s", root, name);
  if (length < 0) {
    *buf = '\0';
  }
  return length >= 0 && length < ZOT_PATH_SIZE - longest_name;
}

using zot::wanted_roots;

constexpr const char *operation = "zot_priv_reload_sys_paths";

int refuse_long(zot_ctx *handle, const char *path, const char *label) {
  return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, "zot_priv_chk_n_mkdir", __LINE__,
                       "fail to create dir for %s = %s: %s", label, path,
                       std::strerror(ENAMETOOLONG));
}

int refuse_for_shell(zot_ctx *handle, const char *path, const char *label) {
  return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, operation, __LINE__,
                       "[%s]: %s holds characters that a shell would interpret: %s", operation,
                       label, path);
}

// Gets both roots and checks them.
int get_roots(zot_ctx *handle, wanted_roots &roots) {
  constexpr uint32_t root_topics = ZOT_TOPIC_FILE | ZOT_TOPIC_K | ZOT_TOPIC_GPB;
  char below[ZOT_PATH_SIZE];
  if (!has_root(handle, handle->fns.get_conf_root, roots.conf)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, operation, __LINE__,
                         "[%s]: unable to get conf root", operation);
  }
  // Both roots become part of shell commands, but no command runs in dev mode.
  if (handle->dev_mode != 1 && !zot::is_plain_shell_word(roots.conf)) {
    return refuse_for_shell(handle, roots.conf, "conf root");
  }
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, root_topics, "%sconf path = \"%s\"\n",
             roots.conf);
  join(below, roots.conf, "/knowledge");
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_FILE | ZOT_TOPIC_K,
             "%sconf K path = \"%s\"\n", below);
  if (!has_root(handle, handle->fns.get_tmp_root, roots.tmp)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, operation, __LINE__,
                         "[%s]: unable to get conf root", operation);
  }
  if (!zot::is_plain_shell_word(roots.tmp)) {
    return refuse_for_shell(handle, roots.tmp, "tmp root");
  }
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, root_topics, "%stmp path = \"%s\"\n",
             roots.tmp);
  join(below, roots.tmp, "/config");
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_FILE | ZOT_TOPIC_GPB,
             "%stmp GPB path = \"%s\"\n", below);
  return ZOT_OK;
}

}  // namespace

namespace zot {

below_roots set_roots(zot_ctx &handle, const char *conf_root, const char *tmp_root) {
  static_cast<void>(std::snprintf(handle.conf_root, sizeof handle.conf_root, "%s", conf_root));
  static_cast<void>(std::snprintf(handle.tmp_root, sizeof handle.tmp_root, "%s", tmp_root));
  return {join(handle.conf_k_root, conf_root, "/knowledge"),
          join(handle.tmp_gpb_root, tmp_root, "/config")};
}

folders_of_get::folders_of_get(zot_ctx &handle, bool are_wanted) : handle_(handle) {
  const zot_own &own = handle.own;
  if (!are_wanted || own.conf_root == nullptr || own.tmp_root == nullptr ||
      (std::strcmp(own.conf_root, handle.conf_root) == 0 &&
       std::strcmp(own.tmp_root, handle.tmp_root) == 0)) {
    return;
  }
  before_.reset(static_cast<wanted_roots *>(std::malloc(sizeof(wanted_roots))));
  if (before_ == nullptr) {
    has_memory_ = false;
    return;
  }
  std::memcpy(before_->conf, handle.conf_root, sizeof before_->conf);
  std::memcpy(before_->tmp, handle.tmp_root, sizeof before_->tmp);
  set_roots(handle, own.conf_root, own.tmp_root);
}

folders_of_get::~folders_of_get() {
  if (before_ != nullptr) {
    set_roots(handle_, before_->conf, before_->tmp);
  }
}

}  // namespace zot

int zot_priv_reload_sys_paths(zot_ctx *handle) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  wanted_roots roots;
  roots.conf[0] = '\0';
  roots.tmp[0] = '\0';
  const auto dev_mode = handle->dev_mode;
  if (const int status = get_roots(handle, roots); status != ZOT_OK) {
    handle->dev_mode = dev_mode;
    return status;
  }
  if (handle->conf_root[0] != '\0' && std::strcmp(handle->conf_root, roots.conf) != 0) {
    zot::mark_moved(*handle);
  }
  const zot::below_roots fit = zot::set_roots(*handle, roots.conf, roots.tmp);
  const std::array<directory, 4> directories{{{handle->conf_root, "conf root", true},
                                              {handle->conf_k_root, "conf K root", fit.knowledge},
                                              {handle->tmp_root, "tmp root", true},
                                              {handle->tmp_gpb_root, "tmp GPB root", fit.config}}};
  for (const auto &[path, label, fits] : directories) {
    if (!fits) {
      return refuse_long(handle, path, label);
    }
    if (const int status = zot_priv_chk_n_mkdir(handle, path, label); status < 0) {
      return status;
    }
  }
  // This is for a new handle, which takes no lock. A get repeats it under its lock.
  zot::undo_interrupted_commit(*handle);
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
  // Looking for a missing directory sets errno, although nothing failed.
  errno = 0;
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_FILE, "%sPrepare directory for %s: %s\n", label,
          std::strerror(errno));
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_FILE, "%sRun CMD: mkdir %s\n", path);
  return ZOT_OK;
}
