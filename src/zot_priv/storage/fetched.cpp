// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/fetched.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "utilities/file_io.hpp"
#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_list.hpp"
#include "zot_priv/model/verified_bytes.hpp"
#include "zot_priv/storage/directory_walk.hpp"
#include "zot_priv/storage/file_id.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

// Identifies a get: each get of any process starts with a new checksum file.
zot_file_id fetched_now(const zot_ctx &handle) {
  return zot::file_id_at(AT_FDCWD,
                         zot::joined_path(handle.tmp_root, zot::temporary_k.checksum).c_str());
}

bool is_untouched(const zot_ctx &handle) {
  return zot::is_same_file(fetched_now(handle), handle.own.fetched);
}

// The path of an entry relative to the GPB directory.
const char *name_below(const zot_gpb &gpb) {
  return gpb.path != nullptr ? gpb.path + std::strspn(gpb.path, "/") : "";
}

bool replace(char *&kept, const char *text) {
  if (kept != nullptr && std::strcmp(kept, text) == 0) {
    return true;
  }
  std::free(kept);
  kept = ::strdup(text);
  return kept != nullptr;
}

bool holds(int directory, const char *name, const char *bytes, size_t size) {
  const zot::descriptor fd(::openat(directory, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  return fd.is_open() && zot::holds_exactly(fd.get(), bytes, size);
}

// Whether a path has a ".." component, even if it leads back.
bool climbs(const char *path) {
  for (const char *at = std::strstr(path, ".."); at != nullptr; at = std::strstr(at + 1, "..")) {
    if ((at == path || at[-1] == '/') && (at[2] == '/' || at[2] == '\0')) {
      return true;
    }
  }
  return false;
}

// Whether the files in a folder hold the verified bytes that memory has of them.
bool hold_verified(const char *path, const zot_list *gpbs) {
  const zot::descriptor folder = zot::directory_walk::open_root(path);
  for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
    if (zot::verified_of(gpb) != nullptr &&
        (!folder.is_open() || !holds(folder.get(), name_below(gpb), gpb.content, gpb.size))) {
      return false;
    }
  }
  return true;
}

// Whether a file was created or changed since the get, or so shortly before it that its time cannot
// tell.
bool is_newer(const struct stat &st, const zot_file_id &get) {
  const auto seconds = static_cast<uint64_t>(st.st_ctim.tv_sec);
  return seconds > get.seconds ||
         (seconds == get.seconds && static_cast<uint64_t>(st.st_ctim.tv_nsec) >= get.nanoseconds);
}

// Whether the scratch files that were touched since their get still hold the verified bytes. The
// caller has checked that all files exist.
bool hold_verified_touched(const zot_ctx &handle, const zot_list *gpbs) {
  const zot::descriptor folder = zot::directory_walk::open_root(handle.tmp_gpb_root);
  for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
    struct stat st {};
    const char *const name = name_below(gpb);
    if (zot::verified_of(gpb) != nullptr &&
        ::fstatat(folder.get(), name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
        is_newer(st, handle.own.fetched) && !holds(folder.get(), name, gpb.content, gpb.size)) {
      return false;
    }
  }
  return true;
}

bool is_absent(const char *path) {
  return ::access(path, F_OK) != 0 && errno == ENOENT;
}

// Whether the checksum file announces a K. With `alone`, nothing may follow the checksum.
bool announces(const char *path, const zot_k &k, bool alone = false) {
  char announced[ZOT_CHECKSUM_LEN + 2] = "";
  char digest[ZOT_CHECKSUM_LEN + 1] = "";
  return read_line(path, announced, ZOT_CHECKSUM_LEN + 1) != nullptr &&
         calc_sha256(k.data, k.data_len, digest, sizeof digest) == 0 &&
         std::memcmp(announced, digest, ZOT_CHECKSUM_LEN) == 0 &&
         !(alone && announced[ZOT_CHECKSUM_LEN] != '\0');
}

// Whether the persistent directory has a K under these names, in a form that can be loaded.
bool is_stored(const zot_ctx &handle, const zot::k_names names, const zot_k &k) {
  return announces(zot::joined_path(handle.conf_root, names.checksum).c_str(), k, true) &&
         holds(AT_FDCWD, zot::joined_path(handle.conf_root, names.k).c_str(), k.data, k.data_len);
}

// The beginning of a checksum as a number. The errno of a failed read, or 0 if there is no such
// file.
uint64_t checksum_number(const zot_ctx &handle, const zot::k_names names) {
  constexpr size_t digits = 16;
  char line[digits + 1] = "";
  errno = 0;
  const zot::joined_path path(handle.conf_root, names.checksum);
  if (read_line(path.c_str(), line, digits) == nullptr && errno != ENOENT) {
    return static_cast<uint32_t>(errno);
  }
  return std::strtoull(line, nullptr, 16);
}

// The two files have different weights in the sum, because a K may move from one to the other.
uint64_t verdicts_now(const zot_ctx &handle) {
  return checksum_number(handle, zot::current_k) + 2 * checksum_number(handle, zot::corrupted_k);
}

}  // namespace

namespace zot {

bool remember_get(zot_ctx &handle) {
  // Its time must be later than that of every fetched file.
  touch_fetched(handle);
  handle.own.fetched = fetched_now(handle);
  handle.own.verdicts = verdicts_now(handle);
  return replace(handle.own.conf_root, handle.conf_root) &&
         replace(handle.own.tmp_root, handle.tmp_root);
}

void forget_get(zot_ctx &handle) {
  std::free(handle.own.conf_root);
  std::free(handle.own.tmp_root);
  handle.own.conf_root = nullptr;
  handle.own.tmp_root = nullptr;
}

bool is_k_as_fetched(const zot_ctx &handle, const zot_k &k) {
  const joined_path path(handle.tmp_root, temporary_k.k);
  const joined_path checksum(handle.tmp_root, temporary_k.checksum);
  // A get that ran out of memory for the path of K has dropped the bytes of K.
  const bool has_k = k.data == nullptr || holds(AT_FDCWD, path.c_str(), k.data, k.data_len);
  // Where file times are coarse, a recreated checksum file may look like the one before.
  return (has_k || is_absent(path.c_str())) &&
         (is_untouched(handle) || is_absent(checksum.c_str()) || announces(checksum.c_str(), k));
}

bool is_in_force(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs) {
  // An adapter may keep its files elsewhere.
  return is_stored(handle, current_k, k) &&
         (handle.fns.commit_gpb != nullptr ||
          hold_verified(joined_path(handle.conf_root, "/config").c_str(), gpbs));
}

bool is_stored_as_corrupted(const zot_ctx &handle, const zot_k &k) {
  return is_stored(handle, corrupted_k, k);
}

bool are_verdicts_as_fetched(const zot_ctx &handle) {
  return verdicts_now(handle) == handle.own.verdicts;
}

bool are_files_in(const char *folder_path, const zot_list *gpbs) {
  const descriptor folder = directory_walk::open_root(folder_path);
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    struct stat st {};
    if (::fstatat(folder.get(), name_below(gpb), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) != gpb.size) {
      return false;
    }
  }
  return true;
}

bool are_files_stored(const zot_ctx &handle, const zot_list *gpbs) {
  const joined_path folder(handle.conf_root, "/config");
  const descriptor root = directory_walk::open_root(handle.conf_root);
  struct stat st {};
  const bool folds_case = ::fstatat(root.get(), "CONFIG", &st, 0) == 0;
  return are_files_in(folder.c_str(), gpbs) && (!folds_case || hold_verified(folder.c_str(), gpbs));
}

const char *path_outside(const zot_list *gpbs) {
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    if (gpb.path != nullptr && climbs(gpb.path)) {
      return gpb.path;
    }
  }
  return nullptr;
}

void touch_fetched(const zot_ctx &handle) {
  ::utimensat(AT_FDCWD, joined_path(handle.tmp_root, temporary_k.checksum).c_str(), nullptr,
              AT_SYMLINK_NOFOLLOW);
}

bool is_set_as_fetched(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs) {
  // An adapter may keep its files elsewhere. If the folder is missing, the copy reports that
  // better.
  if (handle.fns.commit_gpb == nullptr && !is_absent(handle.tmp_gpb_root) &&
      !are_files_in(handle.tmp_gpb_root, gpbs)) {
    return false;
  }
  if (is_absent(joined_path(handle.tmp_root, temporary_k.checksum).c_str())) {
    // Without the checksum file the copy of the K files fails, and nothing of the set is used.
    return true;
  }
  return is_k_as_fetched(handle, k) &&
         (is_untouched(handle) ? hold_verified_touched(handle, gpbs)
                               : hold_verified(handle.tmp_gpb_root, gpbs));
}

}  // namespace zot
