// SPDX-License-Identifier: Apache-2.0
// Fetches a new K: first the announced checksum, and the K only if it is new.
#include <curl/curl.h>
#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "utilities/http_limits.hpp"
#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/k_content.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/file_id.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

constexpr size_t url_size = 2048;
constexpr uint32_t not_found = 404;
// Nothing announces the size of these two files, so a service that sends without end would fill the
// scratch directory and memory. A K of ten thousand entries has two megabytes, a checksum file 65
// bytes.
constexpr uint64_t largest_k = uint64_t{64} << 20;
constexpr uint64_t largest_checksum_file = uint64_t{64} << 10;
// The path that every fetched K records, wherever the scratch directory is.
constexpr const char *tmp_k_path = "/tmp/zot/subsys.k";

enum file_kind { file_k = 0, file_checksum = 1 };

struct remote_file {
  const char *suffix;
  const char *label;
  const char *name;
  uint64_t largest;
};

constexpr std::array<remote_file, 2> remote_files = {
    remote_file{"k", "K", zot::temporary_k.k, largest_k},
    remote_file{"checksum", "K.checksum", zot::temporary_k.checksum, largest_checksum_file}};

class file_memory {
 public:
  file_memory() = default;
  file_memory(const file_memory &) = delete;
  file_memory &operator=(const file_memory &) = delete;
  ~file_memory() { std::free(held.data); }

  zot_file_mem release() { return std::exchange(held, zot_file_mem{}); }

  zot_file_mem held{};
};

// Lends the bytes of a download to a K while they are checked. A K that fails loses them again.
class lent_data {
 public:
  lent_data(file_memory &owner, zot_k *k) : owner_(owner), k_(k) {
    std::free(k_->data);
    k_->data = owner_.held.data;
    k_->data_len = owner_.held.size;
  }
  lent_data(const lent_data &) = delete;
  lent_data &operator=(const lent_data &) = delete;
  ~lent_data() {
    if (k_ != nullptr) {
      k_->data = nullptr;
      k_->data_len = 0;
    }
  }
  void keep() {
    owner_.release();
    k_ = nullptr;
  }

 private:
  file_memory &owner_;
  zot_k *k_;
};

void clear_data(zot_k *k) {
  std::free(k->data);
  k->data = nullptr;
  k->data_len = 0;
}

// The leak checker knows this function by name: its result is not freed if the download of the K
// that follows fails.
[[gnu::noinline]] int download_announced_checksum(zot_ctx *handle, const char *host,
                                                  zot_file_mem *out) {
  return zot_priv_get_k_into_mem(handle, host, out, file_checksum);
}

// Whether the K in the scratch directory is the one that this handle wrote there at an earlier get.
bool is_repeated(const zot_ctx &handle, const char *path, const zot_k &k) {
  const zot_own &own = handle.own;
  return own.repeated.inode != 0 && k.checksum[0] != '\0' &&
         std::memcmp(own.repeated_checksum, k.checksum, sizeof own.repeated_checksum) == 0 &&
         zot::is_same_file(own.repeated, zot::file_id_at(AT_FDCWD, path));
}

int write_scratch_k(zot_ctx &handle, const char *path, const zot_k &k) {
  if (is_repeated(handle, path, k)) {
    return 0;
  }
  handle.own.repeated = {};
  if (write_file(path, k.data, k.data_len) != 0) {
    return -1;
  }
  handle.stat.bytes_written += k.data_len;
  handle.own.repeated = zot::file_id_at(AT_FDCWD, path);
  std::memcpy(handle.own.repeated_checksum, k.checksum, sizeof handle.own.repeated_checksum);
  return 0;
}

bool is_announced(zot_ctx *handle, const file_memory &checksum, const zot_k *cached,
                  const char *label) {
  return cached != nullptr && zot_priv_is_chk_dup(handle, &checksum.held, cached, label) == 0;
}

}  // namespace

int zot_priv_fmt_get_k_curl_error(zot_ctx *handle, int fetch_result, remote_file_stat stat,
                                  const char *url, const char *label, uint32_t timeout) {
  if (fetch_result == 0) {
    return ZOT_OK;
  }
  if (fetch_result == CURLE_OPERATION_TIMEDOUT) {
    return ZOT_RECORD(handle, ZOT_ERR_TIMEOUT, "curl error get %s from \"%s\": timeout(%d)", label,
                      url, static_cast<int>(timeout));
  }
  if (fetch_result > 0) {
    return ZOT_RECORD(handle, ZOT_ERR_REMOTE_UNAVAIL, "curl error get %s from \"%s\": %s", label,
                      url, curl_easy_strerror(static_cast<CURLcode>(fetch_result)));
  }
  const auto http_code = static_cast<uint32_t>(stat.http_code);
  return ZOT_RECORD(handle, http_code == not_found ? ZOT_ERR_NOT_FOUND : ZOT_ERR_GENERIC,
                    "unable to get %s from \"%s\", http return code = %u", label, url, http_code);
}

int zot_priv_get_k_into_mem(zot_ctx *handle, const char *host, zot_file_mem *out, int kind) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (out == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "Null input for file memory.");
  }
  if (host == nullptr || (kind != file_k && kind != file_checksum)) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT);
  }
  const remote_file &wanted = remote_files[static_cast<size_t>(kind)];
  char url[url_size];
  static_cast<void>(std::snprintf(url, sizeof url, "http://%s/file/knowledge/%s/%s/latest/%s.%s",
                                  host, handle->subsys_id, handle->sub_data.name,
                                  handle->sub_data.name, wanted.suffix));
  uint32_t timeout = 0;
  zot_parm_get(handle, ZOT_PARM_TIMEOUT, &timeout, sizeof timeout);
  *out = {};
  const zot::joined_path target(handle->tmp_root, wanted.name);
  remote_file_stat stat{};
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER, "%sQuery with URL = %s, timeout = %u\n", url,
          timeout);
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_TRANSFER, "%sTarget file: %s\n", target.c_str());
  const int result =
      zot::get_remote_file_within(url, target.c_str(), out, timeout, wanted.largest, &stat);
  if (result != 0) {
    return zot_priv_fmt_get_k_curl_error(handle, result, stat, url, wanted.label, timeout);
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER | ZOT_TOPIC_K,
          "%sDownload %s for \"%s\": Done\n", url, wanted.label);
  handle->stat.bytes_written += out->size;
  return ZOT_OK;
}

int zot_priv_is_chk_dup(zot_ctx *handle, const zot_file_mem *new_checksum, const zot_k *cached,
                        const char *label) {
  if (handle == nullptr || new_checksum == nullptr || new_checksum->data == nullptr ||
      cached == nullptr || label == nullptr) {
    return -1;
  }
  const bool is_whole = new_checksum->size >= ZOT_CHECKSUM_LEN &&
                        strnlen(new_checksum->data, ZOT_CHECKSUM_LEN) == ZOT_CHECKSUM_LEN;
  if (is_whole && std::memcmp(new_checksum->data, cached->checksum, ZOT_CHECKSUM_LEN) == 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sNew checksum of K is as same as %s\n", label);
    return 0;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%s%s/new checksum = %s/%s\n", label,
          cached->checksum, new_checksum->data);
  return 1;
}

int zot_priv_hd_dup_k(zot_ctx *handle, zot_k *cached, zot_k *new_k, const char *label) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sK is as same as %s\n", label);
  if (const int status = zot::duplicate_k(cached, new_k); status != ZOT_OK) {
    ZOT_LOG(handle, ZOT_LOG_ERROR, ZOT_TOPIC_K, "%sUnable to copy %s: %d\n", label, status);
    return zot_priv_err_set_errno(handle, status);
  }
  if (zot_priv_k_set_path(new_k, tmp_k_path) == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s]: out of memory for tmp k path", __func__);
  }
  if (zot_priv_k_set_root(new_k, handle->tmp_root) == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s]: out of memory for tmp root", __func__);
  }
  const zot::joined_path target(handle->tmp_root, remote_files[file_k].name);
  if (write_scratch_k(*handle, target.c_str(), *new_k) != 0) {
    const int error = errno;
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_K | ZOT_TOPIC_FILE,
            "%sUnable to duplicate K into %s: %s\n", target.c_str(), std::strerror(error));
    return ZOT_RECORD(handle, ZOT_ERR_GENERIC, "Unable to duplicate K into tmp root: %s\n",
                      std::strerror(error));
  }
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_priv_get_new_k_by_host(zot_ctx *handle, zot_k *new_k, const char *host) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (new_k == nullptr || host == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  if (chk_and_mkdir(handle->tmp_root) != 0) {
    return ZOT_RECORD(handle, ZOT_ERR_GENERIC, "fail to create dir %s", handle->tmp_root);
  }
  file_memory checksum;
  if (const int status = download_announced_checksum(handle, host, &checksum.held);
      status != ZOT_OK) {
    clear_data(new_k);
    return status;
  }
  if (checksum.held.size < ZOT_CHECKSUM_LEN) {
    clear_data(new_k);
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "Wrong checksum size: %lu",
                      static_cast<unsigned long>(checksum.held.size));
  }
  zot_k *const corrupted = zot_priv_get_k(handle, ZOT_SLOT_CORRUPTED);
  if (is_announced(handle, checksum, corrupted, "fail K")) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sNo need to download K\n");
    const int status = zot_priv_hd_dup_k(handle, corrupted, new_k, "corrupted K");
    if (status != ZOT_OK) {
      clear_data(new_k);
      return status;
    }
    return ZOT_ERR_SAME_AS_CORRUPTED;
  }
  zot_k *const current = zot_priv_get_k(handle, ZOT_SLOT_CURRENT);
  if (is_announced(handle, checksum, current, "current K")) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sNo need to download K\n");
    const int status = zot_priv_hd_dup_k(handle, current, new_k, "current K");
    return status == ZOT_OK ? ZOT_NO_UPDATE : status;
  }
  file_memory downloaded;
  if (const int status = zot_priv_get_k_into_mem(handle, host, &downloaded.held, file_k);
      status != ZOT_OK) {
    // The checksum is not freed: this leak is among the known limits.
    checksum.release();
    return status;
  }
  if (cmp_file_sha256(downloaded.held.data, downloaded.held.size, checksum.held.data) != 0) {
    clear_data(new_k);
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: New checksum = %s not match new K",
                      __func__, checksum.held.data);
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sChecksum of K matched, the K is valid.\n");
  lent_data lent(downloaded, new_k);
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sK is new version. Start to check content of K.\n");
  if (const int status = zot::check_k_content(handle, new_k, checksum.held.data, nullptr);
      status != ZOT_OK) {
    return status;
  }
  // The digest of a committed K is computed when the K is read back from the cache.
  std::memset(new_k->checksum, 0, sizeof new_k->checksum);
  if (zot_priv_k_set_path(new_k, tmp_k_path) == nullptr) {
    return ZOT_OK;
  }
  if (zot_priv_k_set_root(new_k, handle->tmp_root) == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  lent.keep();
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL | ZOT_TOPIC_TRANSFER | ZOT_TOPIC_K,
          "%sGet new K from remote: Done\n");
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_priv_update_tmp_k(zot_ctx *handle, zot_k *tmp_k) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (tmp_k == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s (%d)]: Null K file", __func__, __LINE__);
  }
  if (handle->dev_mode != 0) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K | ZOT_TOPIC_FILE,
            "%sDev mode: just read K from: %s\n", handle->conf_root);
    const int status = zot_priv_read_cur_k_f(handle, tmp_k, handle->conf_root, 0);
    if (status != ZOT_OK) {
      return status;
    }
    if (zot_priv_k_set_root(tmp_k, handle->conf_root) == nullptr) {
      return ZOT_RECORD_NO_MEMORY(handle);
    }
    return ZOT_RECORD(handle, ZOT_OK);
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER | ZOT_TOPIC_K, "%sDo Synchronize K.\n");
  if (handle->fns.download_k == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  const int status = handle->fns.download_k(handle, tmp_k);
  if (zot_util_is_err(status) || status == ZOT_NO_UPDATE) {
    return status;
  }
  return ZOT_RECORD(handle, ZOT_OK);
}
