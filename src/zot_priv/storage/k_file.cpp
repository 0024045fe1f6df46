// SPDX-License-Identifier: Apache-2.0
// Reads a K and its checksum file from a directory and verifies both before anything else uses
// them.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "utilities/path.hpp"
#include "utilities/text.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/k_content.hpp"
#include "zot_priv/storage/k_file.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

// The first line of a checksum file, always terminated. It has space for one byte more than a
// checksum, so that a line that is too long is noticed.
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

int verify(zot_ctx *handle, zot_k *k, const zot::k_names at, int flags, zot_parsed_k *known) {
  constexpr const char *operation = "zot_priv_verify_k_file";
  if (handle == nullptr || at.k == nullptr || at.checksum == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (zot::is_blank(at.k) || zot::is_blank(at.checksum)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, operation, __LINE__);
  }
  const checksum_line want = read_checksum(at.checksum);
  const size_t length = std::strlen(want.text);
  if (want.error != 0 || length != ZOT_CHECKSUM_LEN) {
    int status = ZOT_ERR_NO_FILE;
    if (want.error != ENOENT) {
      status =
          ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                        "[%s]: unable to get correct checksum of K: %s len = %ld: %s", operation,
                        want.text, static_cast<long>(length), std::strerror(want.error));
    } else if ((flags & ZOT_READ_K_OPTIONAL) != 0) {
      ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_DEBUG, zot::k_file_topics,
                 "%s[%s] Ignore: %s\n", operation, std::strerror(want.error));
    } else {
      ZOT_RECORD_AT(handle, status, operation, __LINE__, "[%s]: %s", operation,
                    std::strerror(want.error));
    }
    ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_DEBUG, zot::k_file_topics, "%sfile = %s\n",
               at.checksum);
    return status;
  }
  handle->stat.bytes_read += sizeof k->checksum;

  uint32_t size = 0;
  char *const data = read_file(at.k, &size);
  if (data == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__, "[%s]:unable to read %s",
                         operation, at.k);
  }
  std::free(k->data);
  k->data = data;
  k->data_len = size;
  handle->stat.bytes_read += size;

  if (calc_sha256(k->data, k->data_len, k->checksum, sizeof k->checksum) != 0) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                         "[%s]:unable to calculate checksum", operation);
  }
  if (std::strcmp(k->checksum, want.text) != 0) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                         "[%s]: checksum mismatch expect/real: %s/%s", operation, want.text,
                         k->checksum);
  }
  if (const int status = zot::check_k_content(handle, k, k->checksum, known); status != ZOT_OK) {
    return status;
  }
  return ZOT_RECORD_AT(handle, ZOT_OK, operation, __LINE__);
}

}  // namespace

int zot_priv_verify_k_file(zot_ctx *handle, zot_k *k, const char *k_path, const char *checksum_path,
                           int flags) {
  return verify(handle, k, {k_path, checksum_path}, flags, nullptr);
}

int zot::read_expected_k(zot_ctx *handle, zot_k *k, const char *root, const zot_k &expected) {
  const joined_path k_path(root, current_k.k);
  const joined_path checksum_path(root, current_k.checksum);
  return verify(handle, k, {k_path.c_str(), checksum_path.c_str()}, 0, expected.parsed);
}

int _zot_priv_read_k_f(zot_ctx *handle, zot_k *k, const char *root, const char *k_name,
                       const char *checksum_name, int flags) {
  if (handle == nullptr || k == nullptr || root == nullptr || k_name == nullptr ||
      checksum_name == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (zot::is_blank(root) || zot::is_blank(k_name) || zot::is_blank(checksum_name)) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT);
  }
  const zot::joined_path k_path(root, k_name);
  const zot::joined_path checksum_path(root, checksum_name);
  return zot_priv_verify_k_file(handle, k, k_path.c_str(), checksum_path.c_str(), flags);
}

int zot_priv_read_cur_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return _zot_priv_read_k_f(handle, k, root, zot::current_k.k, zot::current_k.checksum, flags);
}

int zot_priv_read_prev_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return _zot_priv_read_k_f(handle, k, root, zot::last_k.k, zot::last_k.checksum, flags);
}

int zot_priv_read_corrupted_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return _zot_priv_read_k_f(handle, k, root, zot::corrupted_k.k, zot::corrupted_k.checksum, flags);
}

int zot_priv_read_tmp_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return _zot_priv_read_k_f(handle, k, root, zot::temporary_k.k, zot::temporary_k.checksum, flags);
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
