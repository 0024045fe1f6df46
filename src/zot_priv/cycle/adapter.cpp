// SPDX-License-Identifier: Apache-2.0
// The access-point adapter. It fetches K as two small files and the GPB files as one archive.
#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utilities/http_limits.hpp"
#include "utilities/own_names.hpp"
#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "utilities/text.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/storage/archive.hpp"
#include "zot_priv/storage/leftovers.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

constexpr const char *loopback_host = "127.0.0.1";
// Enough for the host name and a port.
constexpr size_t host_size = 64;
constexpr uint32_t transfer_topics = ZOT_TOPIC_TRANSFER | ZOT_TOPIC_GPB;

// The names of the files to request in one archive.
class download_set {
 public:
  download_set() { zot_list_init(&names_); }
  download_set(const download_set &) = delete;
  download_set &operator=(const download_set &) = delete;
  ~download_set() { clear(); }

  // Adds a file and returns its name as the request states it; null when out of memory. An entry is
  // only as long as its name: a full path buffer for each of ten thousand names would take as much
  // memory as the whole configuration.
  const char *add(const zot_gpb &gpb) {
    constexpr size_t longest = sizeof(remote_file_name::name);
    const char *const path = gpb.path != nullptr ? gpb.path : "";
    const size_t size = std::min(std::strlen(directory) + 1 + std::strlen(path) + 1, longest);
    zot::c_ptr<remote_file_name> entry(
        static_cast<remote_file_name *>(std::malloc(offsetof(remote_file_name, name) + size)));
    if (entry == nullptr) {
      return nullptr;
    }
    char *const name = reinterpret_cast<char *>(entry.get()) + offsetof(remote_file_name, name);
    static_cast<void>(std::snprintf(name, size, "%s/%s", directory, path));
    list_add_tail(&names_, &entry.release()->node);
    return name;
  }

  void clear() {
    for (zot_list *node = names_.next; node != &names_;) {
      zot_list *const next = node->next;
      // The node is the first member, so its address is the entry's.
      std::free(node);
      node = next;
    }
    zot_list_init(&names_);
  }

  [[nodiscard]] const zot_list *names() const { return &names_; }

 private:
  static constexpr const char *directory = "/config";

  zot_list names_;
};

int record_transfer(zot_ctx *handle, int result, const char *func, long line) {
  if (result == 0) {
    return ZOT_OK;
  }
  if (result == CURLE_OPERATION_TIMEDOUT) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_TIMEOUT, func, line, "[%s]: curl timeout get GPB.", func);
  }
  if (result < 0) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_REMOTE_UNAVAIL, func, line,
                         "Unable to get remote files\n");
  }
  return ZOT_RECORD_AT(handle, ZOT_ERR_REMOTE_UNAVAIL, func, line, "[%s]: curl error:%s", func,
                       curl_easy_strerror(static_cast<CURLcode>(result)));
}

int record_mkdir_failure(zot_ctx *handle, int error, const char *func, long line) {
  const char *const text = std::strerror(error);
  if (text == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, func, line, "[%s]: mkdir %s: errno: %d", func,
                         handle->tmp_root, error);
  }
  return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, func, line, "[%s]: mkdir %s: %s", func,
                       handle->tmp_root, text);
}

int fetch_archive(zot_ctx *handle, download_set &wanted, uint64_t largest, const char *func) {
  const zot::joined_path archive(handle->tmp_root, zot::archive_name);
  char url[sizeof "http:///tgz" + host_size];
  static_cast<void>(
      std::snprintf(url, sizeof url, "http://%s:%u/tgz", loopback_host, zot_sub_get_remote_port()));
  // Always a new file: a link of this name must not be followed.
  ::unlink(archive.c_str());
  remote_file_stat stat{};
  const int result =
      zot::get_remote_file_set_within(url, archive.c_str(), wanted.names(), largest, &stat);
  // The names are no longer needed.
  wanted.clear();
  if (const int status = record_transfer(handle, result, func, __LINE__); status != ZOT_OK) {
    return status;
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, transfer_topics,
             "%sDownload GPB files from: \"%s\": Done\n", url);
  handle->stat.bytes_written += stat.bytes;
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, zot::gpb_file_topics,
             "%sTotal cost time: %lf, Write Bytes = %llu\n", stat.total_time,
             static_cast<unsigned long long>(stat.bytes));
  return ZOT_OK;
}

}  // namespace

int ap_download_k(zot_ctx *handle, zot_k *k) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  zot::clear_download_targets(*handle);
  char host[host_size];
  static_cast<void>(
      std::snprintf(host, sizeof host, "%s:%u", loopback_host, zot_sub_get_remote_port()));
  if (zot::environment("ZOT_REMOTE_PORT") != nullptr) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER, "%sURL: %s\n", host);
  }
  const int status = zot_priv_get_new_k_by_host(handle, k, host);
  if (zot_util_is_err(status) && status != ZOT_ERR_SAME_AS_CORRUPTED) {
    // A process that ended while unpacking may have left no space for K.
    zot::make_room(*handle);
  }
  return status;
}

int ap_download_gpb(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  if (handle == nullptr || k == nullptr || gpbs == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
  }
  download_set wanted;
  for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
    const char *const name = wanted.add(gpb);
    if (name == nullptr) {
      return ZOT_RECORD_NO_MEMORY(handle);
    }
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_DETAIL, "%sAdd GPB file: \"%s\"\n", name);
  }
  if (chk_and_mkdir(handle->tmp_root) != 0) {
    return record_mkdir_failure(handle, errno, __func__, __LINE__);
  }
  const uint64_t largest = zot::largest_archive(gpbs);
  if (const int status = fetch_archive(handle, wanted, largest, __func__); status != ZOT_OK) {
    zot::make_room(*handle);
    return status;
  }
  return zot::unpack_archive(handle, k, gpbs, largest, __func__);
}

ZOT_PLAIN_NAME(ap_download_k);
ZOT_PLAIN_NAME(ap_download_gpb);
