// SPDX-License-Identifier: Apache-2.0
// Reading a K and its checksum file from a directory, verified before anything else sees it.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"

namespace {

constexpr uint32_t k_file_topics = ZOT_TOPIC_K | ZOT_TOPIC_FILE;

struct k_names {
  const char *k;
  const char *checksum;
};

constexpr k_names current = {"/knowledge/subsys.k", "/knowledge/subsys.checksum"};
constexpr k_names last = {"/knowledge/prev_subsys.k", "/knowledge/prev_subsys.checksum"};
constexpr k_names corrupted = {"/knowledge/corrupted.k", "/knowledge/corrupted.checksum"};
constexpr k_names temporary = {"subsys.k", "subsys.checksum"};

// The first line of a checksum file. One byte more than a checksum is kept, so that a line that is
// too long can be told from a good one, and it is always terminated.
struct checksum_line {
  char text[ZOT_CHECKSUM_LEN + 2];
  int error;  // errno of a failed read, 0 when a line was read
};

checksum_line read_checksum(const char *path) {
  checksum_line line{};
  errno = 0;
  if (read_line(path, line.text, sizeof line.text - 1) == nullptr) {
    line.error = errno != 0 ? errno : ENODATA;
  }
  return line;
}

bool is_empty(const char *text) {
  return text[0] == '\0';
}

}  // namespace

int zot_priv_verify_k_file(zot_ctx *handle, zot_k *k, const char *k_path, const char *checksum_path,
                           int flags) {
  if (handle == nullptr || k_path == nullptr || checksum_path == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (is_empty(k_path) || is_empty(checksum_path)) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT);
  }
  const checksum_line want = read_checksum(checksum_path);
  const size_t length = std::strlen(want.text);
  if (want.error != 0 || length != ZOT_CHECKSUM_LEN) {
    int status = ZOT_ERR_NO_FILE;
    if (want.error != ENOENT) {
      status = ZOT_RECORD(handle, ZOT_ERR_CORRUPTED,
                          "[%s]: unable to get correct checksum of K: %s len = %ld: %s", __func__,
                          want.text, static_cast<long>(length), std::strerror(want.error));
    } else if ((flags & ZOT_READ_K_OPTIONAL) != 0) {
      ZOT_LOG(handle, ZOT_LOG_DEBUG, k_file_topics, "%s[%s] Ignore: %s\n", __func__,
              std::strerror(want.error));
    } else {
      ZOT_RECORD(handle, status, "[%s]: %s", __func__, std::strerror(want.error));
    }
    ZOT_LOG(handle, ZOT_LOG_DEBUG, k_file_topics, "%sfile = %s\n", checksum_path);
    return status;
  }
  handle->stat.bytes_read += sizeof k->checksum;

  uint32_t size = 0;
  char *const data = read_file(k_path, &size);
  if (data == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]:unable to read %s", __func__, k_path);
  }
  std::free(k->data);
  k->data = data;
  k->data_len = size;
  handle->stat.bytes_read += size;

  if (calc_sha256(k->data, k->data_len, k->checksum, sizeof k->checksum) != 0) {
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]:unable to calculate checksum", __func__);
  }
  if (std::strcmp(k->checksum, want.text) != 0) {
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: checksum mismatch expect/real: %s/%s",
                      __func__, want.text, k->checksum);
  }
  if (const int status = zot_priv_chk_vail_k_cont(handle, k); status != ZOT_OK) {
    return status;
  }
  return ZOT_RECORD(handle, ZOT_OK);
}

int _zot_priv_read_k_f(zot_ctx *handle, zot_k *k, const char *root, const char *k_name,
                       const char *checksum_name, int flags) {
  if (handle == nullptr || k == nullptr || root == nullptr || k_name == nullptr ||
      checksum_name == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (is_empty(root) || is_empty(k_name) || is_empty(checksum_name)) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT);
  }
  const zot::joined_path k_path(root, k_name);
  const zot::joined_path checksum_path(root, checksum_name);
  return zot_priv_verify_k_file(handle, k, k_path.c_str(), checksum_path.c_str(), flags);
}

int zot_priv_read_cur_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return _zot_priv_read_k_f(handle, k, root, current.k, current.checksum, flags);
}

int zot_priv_read_prev_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return _zot_priv_read_k_f(handle, k, root, last.k, last.checksum, flags);
}

int zot_priv_read_corrupted_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return _zot_priv_read_k_f(handle, k, root, corrupted.k, corrupted.checksum, flags);
}

int zot_priv_read_tmp_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return _zot_priv_read_k_f(handle, k, root, temporary.k, temporary.checksum, flags);
}

int zot_priv_read_cur_k(zot_ctx *handle, zot_k *k, const char *root) {
  return zot_priv_read_cur_k_f(handle, k, root, 0);
}

int zot_priv_read_prev_k(zot_ctx *handle, zot_k *k, const char *root) {
  return zot_priv_read_prev_k_f(handle, k, root, 0);
}

int zot_priv_read_corrupted_k(zot_ctx *handle, zot_k *k, const char *root) {
  return zot_priv_read_corrupted_k_f(handle, k, root, 0);
}

int zot_priv_read_tmp_k(zot_ctx *handle, zot_k *k, const char *root) {
  return zot_priv_read_tmp_k_f(handle, k, root, 0);
}
