// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/leftovers.hpp"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_list.hpp"
#include "zot_priv/storage/directory_walk.hpp"
#include "zot_priv/storage/fetched.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

using namespace zot::directory_walk;

constexpr std::array download_targets = {zot::temporary_k.k, zot::temporary_k.checksum,
                                         "subsys.k.tmp", "subsys.checksum.tmp", zot::archive_name};
// From this index on, the files are of no use after their download.
constexpr size_t first_passing = 2;

int compare_numbers(const void *a, const void *b) {
  return cmp_uint64(*static_cast<const ino_t *>(a), *static_cast<const ino_t *>(b));
}

// The inode numbers of expected files: files are identified by inode number, so the form of a path
// does not matter. A file larger than its stated size does not count.
class kept_files {
 public:
  explicit kept_files(const zot_ctx &handle) : root_(open_root(handle.tmp_gpb_root)) {}

  // Reserves space for `more` additional numbers. False when out of memory.
  bool reserve(size_t more) {
    void *const grown = std::realloc(inodes_.get(), (count_ + more + 1) * sizeof(ino_t));
    if (grown == nullptr) {
      return false;
    }
    static_cast<void>(inodes_.release());
    inodes_.reset(static_cast<ino_t *>(grown));
    return true;
  }

  // False if there is no such file, or only a larger one.
  bool add(const char *path, uint64_t size) {
    struct stat st {};
    if (::fstatat(root_.get(), path + std::strspn(path, "/"), &st, 0) != 0 ||
        !S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) > size) {
      return false;
    }
    inodes_.get()[count_++] = st.st_ino;
    return true;
  }

  // Must be called before holds().
  void sort() {
    if (count_ != 0) {
      std::qsort(inodes_.get(), count_, sizeof(ino_t), compare_numbers);
    }
  }

  [[nodiscard]] bool holds(ino_t inode) const {
    return std::binary_search(inodes_.get(), inodes_.get() + count_, inode);
  }

 private:
  zot::descriptor root_;
  zot::c_ptr<ino_t> inodes_;
  size_t count_ = 0;
};

size_t length_of(const zot_list *gpbs) {
  size_t count = 0;
  for (const zot_list *node = gpbs->next; node != gpbs; node = node->next) {
    ++count;
  }
  return count;
}

// Whether a path has exactly three components, none of which is empty, "." or "..".
bool is_straight(const char *path) {
  int components = 0;
  for (const char *slash = path; *slash == '/'; ++components) {
    const char *const name = slash + 1;
    const size_t length = std::strcspn(name, "/");
    const bool leads_elsewhere =
        length == 0 || (length <= 2 && std::strncmp(name, "..", length) == 0);
    if (leads_elsewhere) {
      return false;
    }
    slash = name + length;
  }
  return components == 3;
}

// Whether each entry certainly has a file of its own.
bool have_a_file_each(const zot_list *gpbs) {
  const zot_gpb *before = nullptr;
  for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
    const bool is_other = before == nullptr || zot_priv_cmp_gpb(before, &gpb, nullptr) < 0;
    if (!is_other || !is_straight(gpb.path)) {
      return false;
    }
    before = &gpb;
  }
  return true;
}

// Whether cached requests are answered from files of the scratch directory.
bool is_cached_here(const zot_ctx &handle) {
  return handle.ret.list != nullptr && std::strcmp(handle.ret.root, handle.tmp_root) == 0;
}

// Adds the files that answer cached requests. False when out of memory.
bool add_cached(const zot_ctx &handle, kept_files &files) {
  if (!is_cached_here(handle)) {
    return true;
  }
  if (!files.reserve(length_of(handle.ret.list))) {
    return false;
  }
  for (const zot_gpb &gpb : zot::gpb_range(handle.ret.list)) {
    files.add(gpb.path, gpb.size);
  }
  files.sort();
  return true;
}

// Adds the files that K names. The list of K may be gone: it is freed when the first damaged
// file is found. False when out of memory.
bool add_announced(const zot_k &k, kept_files &files) {
  const int count = cJSON_GetArraySize(k.gpbs);
  if (!files.reserve(static_cast<size_t>(count))) {
    return false;
  }
  const cJSON *item = nullptr;
  cJSON_ArrayForEach(item, k.gpbs) {
    const char *const path = cJSON_GetStringValue(cJSON_GetObjectItem(item, "path"));
    int32_t size = 0;
    if (path != nullptr && get_json_item(item, "size", cJSON_Number, &size, sizeof size) == 0 &&
        size >= 0) {
      files.add(path, static_cast<uint64_t>(size));
    }
  }
  files.sort();
  return true;
}

// Whether there is enough space to start a download.
bool has_room_for_download(int directory) {
  constexpr uint64_t least_bytes = 65536;
  constexpr fsfilcnt_t least_files = 8;
  struct statvfs room {};
  if (::fstatvfs(directory, &room) != 0) {
    return true;
  }
  // A file system in memory without a limit reports totals of 0.
  const bool counts_blocks = room.f_blocks != 0;
  const bool counts_files = room.f_files != 0;
  return (!counts_blocks || uint64_t{room.f_bavail} * room.f_frsize >= least_bytes) &&
         (!counts_files || room.f_favail >= least_files);
}

void prune(int directory, const kept_files &listed, int depth) {
  for_each_entry(directory, [&](int fd, const char *name, const struct stat &st) {
    if (S_ISDIR(st.st_mode) && depth < max_depth) {
      make_accessible(fd, name, st);
      if (const zot::descriptor child = open_directory(fd, name); child.is_open()) {
        prune(child.get(), listed, depth + 1);
      }
      // This removes only a directory that is empty now.
      ::unlinkat(fd, name, AT_REMOVEDIR);
    } else if (!listed.holds(st.st_ino)) {
      remove_entry(fd, name, st);
    }
    return true;
  });
}

void prune_gpb_directory(const zot_ctx &handle, int scratch, const kept_files &listed) {
  zot::touch_fetched(handle);
  if (const zot::descriptor directory = open_directory(scratch, zot::gpb_directory);
      directory.is_open()) {
    prune(directory.get(), listed, 0);
  }
}

}  // namespace

namespace zot {

void remove_unlisted_files(const zot_ctx &handle, const zot_list *gpbs,
                           const gpb_directory_census &found) {
  const size_t expected = length_of(gpbs);
  if (found.files == expected && !found.has_empty_directory && have_a_file_each(gpbs)) {
    return;
  }
  kept_files listed(handle);
  if (!listed.reserve(expected)) {
    return;
  }
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    if (!listed.add(gpb.path, gpb.size)) {
      return;
    }
  }
  listed.sort();
  if (const descriptor scratch = open_root(handle.tmp_root); scratch.is_open()) {
    prune_gpb_directory(handle, scratch.get(), listed);
  }
}

void clear_download_targets(const zot_ctx &handle) {
  const descriptor scratch = open_root(handle.tmp_root);
  for (const char *const name : download_targets) {
    struct stat st {};
    if (::fstatat(scratch.get(), name, &st, AT_SYMLINK_NOFOLLOW) == 0 && !is_plain_file(st)) {
      remove_entry(scratch.get(), name, st);
    }
  }
}

void remove_strangers(const zot_ctx &handle, const zot_k &k) {
  const descriptor scratch = open_root(handle.tmp_root);
  kept_files kept(handle);
  if (scratch.is_open() && add_announced(k, kept) && add_cached(handle, kept)) {
    prune_gpb_directory(handle, scratch.get(), kept);
  }
}

void make_room(const zot_ctx &handle) {
  const descriptor scratch = open_root(handle.tmp_root);
  if (!scratch.is_open() || has_room_for_download(scratch.get())) {
    return;
  }
  for (size_t i = first_passing; i < download_targets.size(); ++i) {
    struct stat st {};
    if (::fstatat(scratch.get(), download_targets[i], &st, AT_SYMLINK_NOFOLLOW) == 0) {
      remove_entry(scratch.get(), download_targets[i], st);
    }
  }
  kept_files kept(handle);
  if (add_cached(handle, kept)) {
    prune_gpb_directory(handle, scratch.get(), kept);
  }
}

}  // namespace zot
