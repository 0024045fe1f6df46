// SPDX-License-Identifier: Apache-2.0
// The access-point adapter: K by two small files, the GPB files as one archive.
#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utilities/http_limits.hpp"
#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/storage/leftovers.hpp"
#include "zot_priv/storage/logged.hpp"
#include "zot_priv/storage/scratch.hpp"

namespace {

constexpr const char *loopback_host = "127.0.0.1";
constexpr const char *archive_name = "gpb.tgz";
constexpr size_t command_size = 12288;
// What an archive may have beside the bytes that K announces. A member takes up to 6 KiB more than
// its content: headers of 512 bytes, the same again with a name of 4 KiB, and what fills its last
// block. An archive ends with up to 10 KiB of nothing and names its directories; gzip adds some
// bytes to what it cannot pack.
constexpr uint64_t member_overhead = 8192;
constexpr uint64_t archive_overhead = 65536;
constexpr uint64_t shell_block = 512;
// Processor time that no archive of a configuration comes near, even on a slow access point.
constexpr uint64_t unpack_seconds = 30;
constexpr uint64_t unpacked_in_a_second = 1048576;
constexpr uint32_t read_topics = ZOT_TOPIC_GENERAL | ZOT_TOPIC_GPB;
constexpr uint32_t transfer_topics = ZOT_TOPIC_TRANSFER | ZOT_TOPIC_GPB;
constexpr uint32_t file_topics = ZOT_TOPIC_FILE | ZOT_TOPIC_GPB;

// The names that one archive is asked for.
class download_set {
 public:
  download_set() { zot_list_init(&names_); }
  download_set(const download_set &) = delete;
  download_set &operator=(const download_set &) = delete;
  ~download_set() { clear(); }

  // The name as the service is asked for it; null without memory. An entry is as long as its name:
  // a page for each of ten thousand would be what the whole configuration takes.
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
      // The node is the first member, so it is the entry's address.
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

// The largest archive that the files of a list can need.
uint64_t largest_archive(const zot_list *gpbs) {
  uint64_t size = archive_overhead;
  for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
    // A larger size is one that K stated as negative; its file is refused.
    size += member_overhead + (gpb.size <= INT32_MAX ? gpb.size : 0);
  }
  return size;
}

// The command that unpacks the archive, with limits on what packs to next to nothing: a member that
// grows beyond what the whole archive may have, and names so deep that their directories take an
// unpacker minutes. POSIX has shells count file sizes in blocks; one that cannot set a limit says
// nothing of it. exec keeps the number of processes.
class unpack_command {
 public:
  unpack_command(const char *root, uint64_t largest) {
    const auto known = std::min<uint64_t>(largest, INT32_MAX);
    const int limits = std::snprintf(
        text_, sizeof text_,
        "ulimit -c 0 2> /dev/null; ulimit -t %lu 2> /dev/null; ulimit -f %lu 2> /dev/null; exec ",
        static_cast<unsigned long>(unpack_seconds + known / unpacked_in_a_second),
        static_cast<unsigned long>(known / shell_block + 1));
    shown_ = text_ + limits;
    static_cast<void>(std::snprintf(text_ + limits, command_size,
                                    "tar zxvf %s/%s -C %s > /dev/null 2>&1", root, archive_name,
                                    root));
  }

  [[nodiscard]] const char *text() const { return text_; }
  // As it is told to whoever reads the log.
  [[nodiscard]] const char *shown() const { return shown_; }

 private:
  static constexpr size_t limits_size = 128;
  char text_[limits_size + command_size];
  const char *shown_;
};

bool is_set(const char *variable) {
  const char *const value = std::getenv(variable);
  return value != nullptr && value[0] != '\0';
}

// Clears up after an archive that failed, unless it came to its end.
class unfinished_archive {
 public:
  unfinished_archive(zot_ctx &handle, const zot_k &k) : handle_(&handle), k_(k) {}
  unfinished_archive(const unfinished_archive &) = delete;
  unfinished_archive &operator=(const unfinished_archive &) = delete;
  ~unfinished_archive() {
    if (handle_ != nullptr) {
      zot::remove_strangers(*handle_, k_);
      zot::make_room(*handle_);
    }
  }
  void finish() { handle_ = nullptr; }

 private:
  zot_ctx *handle_;
  const zot_k &k_;
};

// Turns the result of the archive transfer into a status.
int record_transfer(zot_ctx *handle, int result, const char *func, long line) {
  if (result == 0) {
    return ZOT_OK;
  }
  if (result == CURLE_OPERATION_TIMEDOUT) {
    return zot::record(handle, ZOT_ERR_TIMEOUT, func, line, "[%s]: curl timeout get GPB.", func);
  }
  if (result < 0) {
    return zot::record(handle, ZOT_ERR_REMOTE_UNAVAIL, func, line, "Unable to get remote files\n");
  }
  return zot::record(handle, ZOT_ERR_REMOTE_UNAVAIL, func, line, "[%s]: curl error:%s", func,
                     curl_easy_strerror(static_cast<CURLcode>(result)));
}

int record_mkdir_failure(zot_ctx *handle, int error, const char *func, long line) {
  const char *const text = std::strerror(error);
  if (text == nullptr) {
    return zot::record(handle, ZOT_ERR_GENERIC, func, line, "[%s]: mkdir %s: errno: %d", func,
                       handle->tmp_root, error);
  }
  return zot::record(handle, ZOT_ERR_GENERIC, func, line, "[%s]: mkdir %s: %s", func,
                     handle->tmp_root, text);
}

// Unpacks the archive into the scratch directory under the watch of what it leaves there.
int unpack(zot_ctx *handle, const unpack_command &command, zot::scratch_watch &watch,
           const char *func, long line) {
  if (!watch.begin(*handle)) {
    return zot::record(handle, ZOT_ERR_GENERIC, func, line, "[%s]: fail to clean %s: %s", func,
                       handle->tmp_root, std::strerror(errno));
  }
  int exit_code = 0;
  const int status =
      zot::run_shown_as(handle, command.text(), command.shown(), &exit_code, func, line);
  const bool is_clean = watch.end(*handle);
  if (status != ZOT_OK) {
    return status;
  }
  if (exit_code != 0) {
    return zot::record(handle, ZOT_ERR_CORRUPTED, func, line, "[%s]: fail to run \"%s\":%d", func,
                       command.shown(), exit_code);
  }
  if (!is_clean) {
    return zot::record(handle, ZOT_ERR_CORRUPTED, func, line,
                       "[%s]: archive holds more than GPB files: %s/%s", func, handle->tmp_root,
                       archive_name);
  }
  return ZOT_OK;
}

}  // namespace

int ap_download_k(zot_ctx *handle, zot_k *k) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  zot::clear_download_targets(*handle);
  char host[ZOT_PATH_SIZE];
  if (is_set("ZOT_REMOTE_PORT")) {
    static_cast<void>(
        std::snprintf(host, sizeof host, "%s:%u", loopback_host, zot_sub_get_remote_port()));
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER, "%sURL: %s\n", host);
  } else {
    static_cast<void>(std::snprintf(host, sizeof host, "%s:%u", loopback_host,
                                    static_cast<uint32_t>(ZOT_REMOTE_PORT)));
  }
  const int status = zot_priv_get_new_k_by_host(handle, k, host);
  if (zot_util_is_err(status) && status != ZOT_ERR_SAME_AS_CORRUPTED) {
    // A process that ended while it unpacked may have left no room for the K.
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
      return ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s]: out of memory", __func__);
    }
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_DETAIL, "%sAdd GPB file: \"%s\"\n", name);
  }
  if (chk_and_mkdir(handle->tmp_root) != 0) {
    return record_mkdir_failure(handle, errno, __func__, __LINE__);
  }
  uint32_t timeout = 0;
  zot_parm_get(handle, ZOT_PARM_TIMEOUT_GPB, &timeout, sizeof timeout);
  const zot::joined_path archive(handle->tmp_root, archive_name);
  const uint64_t largest = largest_archive(gpbs);
  char url[ZOT_PATH_SIZE];
  static_cast<void>(
      std::snprintf(url, sizeof url, "http://%s:%u/tgz", loopback_host, zot_sub_get_remote_port()));
  remote_file_stat stat{};
  // A new file, never one that a link of this name stands for.
  ::unlink(archive.c_str());
  const int result =
      zot::get_remote_file_set_within(url, archive.c_str(), wanted.names(), largest, &stat);
  // The set is of no further use.
  wanted.clear();
  if (const int status = record_transfer(handle, result, __func__, __LINE__); status != ZOT_OK) {
    zot::make_room(*handle);
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, transfer_topics, "%sDownload GPB files from: \"%s\": Done\n", url);
  handle->stat.bytes_written += stat.bytes;
  ZOT_LOG(handle, ZOT_LOG_DEBUG, file_topics, "%sTotal cost time: %lf, Write Bytes = %llu\n",
          stat.total_time, static_cast<unsigned long long>(stat.bytes));

  unfinished_archive unfinished(*handle, *k);
  const unpack_command command(handle->tmp_root, largest);
  zot::scratch_watch watch;
  if (const int status = unpack(handle, command, watch, __func__, __LINE__); status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, read_topics, "%suntar GPB files: Done\n");
  ZOT_LOG(handle, ZOT_LOG_DEBUG, file_topics, "%sRun CMD: \"%s\"\n", command.shown());
  if (const int status = zot_priv_read_gpb(handle, k, gpbs, handle->tmp_root); status != ZOT_OK) {
    return status;
  }
  zot::remove_unlisted_files(*handle, gpbs, watch.found());
  unfinished.finish();
  ZOT_LOG(handle, ZOT_LOG_DEBUG, read_topics, "%sGet new GPB files on tmp: Done\n");
  return ZOT_OK;
}
