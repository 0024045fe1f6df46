// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/archive.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "utilities/owner.hpp"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/storage/leftovers.hpp"
#include "zot_priv/storage/logged.hpp"
#include "zot_priv/storage/names.hpp"
#include "zot_priv/storage/scratch.hpp"

namespace {

// What an archive may take in addition to the bytes that K announces. A member takes up to 6 KiB
// more than its content: a header of 512 bytes, another one with a name of 4 KiB, and the padding
// of its last block. An archive also has entries for its directories and ends with up to 10 KiB of
// zeros. gzip adds a few bytes to data that it cannot compress.
constexpr uint64_t member_overhead = 8192;
constexpr uint64_t archive_overhead = 65536;
constexpr uint64_t shell_block = 512;
// More processor time than an archive of a configuration needs, even on a slow access point.
constexpr uint64_t unpack_seconds = 30;
constexpr uint64_t unpacked_in_a_second = 1048576;

// The command that unpacks the archive. Its limits stop what compresses to almost nothing: a member
// that grows beyond the size of the whole archive, and names so deep that an unpacker takes minutes
// to create their directories. A POSIX shell counts file sizes in blocks; a shell that cannot set a
// limit goes on silently. exec saves a process.
class unpack_command {
 public:
  unpack_command(const char *root, uint64_t largest) {
    const auto known = std::min<uint64_t>(largest, INT32_MAX);
    char limits[limits_size];
    const int length =
        std::snprintf(limits, sizeof limits,
                      "unset TAR_OPTIONS; ulimit -c 0 2> /dev/null; ulimit -t %lu 2> /dev/null; "
                      "ulimit -f %lu 2> /dev/null; exec ",
                      static_cast<unsigned long>(unpack_seconds + known / unpacked_in_a_second),
                      static_cast<unsigned long>(known / shell_block + 1));
    text_ = zot::text_of("%star zxvf %s/%s -C %s > /dev/null 2>&1", limits, root, zot::archive_name,
                         root);
    shown_ = text_ != nullptr ? text_.get() + length : nullptr;
  }

  // Null when out of memory.
  [[nodiscard]] const char *text() const { return text_.get(); }
  // The command without its limits, as the log shows it.
  [[nodiscard]] const char *shown() const { return shown_; }

 private:
  static constexpr size_t limits_size = 160;
  zot::c_text text_;
  const char *shown_;
};

// Cleans up after a failed archive, unless finish() was called.
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

// Unpacks the archive into the scratch directory and watches what it leaves there.
int unpack(zot_ctx *handle, uint64_t largest, zot::scratch_watch &watch, const char *func) {
  const unpack_command command(handle->tmp_root, largest);
  if (command.text() == nullptr) {
    return ZOT_RECORD_NO_MEMORY_AT(handle, func);
  }
  if (!watch.begin(*handle)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_GENERIC, func, __LINE__, "[%s]: fail to clean %s: %s",
                         func, handle->tmp_root, std::strerror(errno));
  }
  int exit_code = 0;
  const int status =
      zot::run_shown_as(handle, command.text(), command.shown(), &exit_code, func, __LINE__);
  const bool is_clean = watch.end(*handle);
  if (status != ZOT_OK) {
    return status;
  }
  if (exit_code != 0) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, func, __LINE__, "[%s]: fail to run \"%s\":%d",
                         func, command.shown(), exit_code);
  }
  if (!is_clean) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, func, __LINE__,
                         "[%s]: archive holds more than GPB files: %s/%s", func, handle->tmp_root,
                         zot::archive_name);
  }
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_INFO, zot::gpb_topics, "%suntar GPB files: Done\n");
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, zot::gpb_file_topics, "%sRun CMD: \"%s\"\n",
             command.shown());
  return ZOT_OK;
}

}  // namespace

namespace zot {

uint64_t largest_archive(const zot_list *gpbs) {
  uint64_t size = archive_overhead;
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    // A larger size is negative in K; its file is refused.
    size += member_overhead + (gpb.size <= INT32_MAX ? gpb.size : 0);
  }
  return size;
}

int unpack_archive(zot_ctx *handle, zot_k *k, zot_list *gpbs, uint64_t largest, const char *func) {
  unfinished_archive unfinished(*handle, *k);
  scratch_watch watch;
  if (const int status = unpack(handle, largest, watch, func); status != ZOT_OK) {
    return status;
  }
  if (const int status = zot_priv_read_gpb(handle, k, gpbs, handle->tmp_root); status != ZOT_OK) {
    return status;
  }
  remove_unlisted_files(*handle, gpbs, watch.found());
  unfinished.finish();
  ZOT_LOG_AT(handle, func, __LINE__, ZOT_LOG_DEBUG, zot::gpb_topics,
             "%sGet new GPB files on tmp: Done\n");
  return ZOT_OK;
}

}  // namespace zot
