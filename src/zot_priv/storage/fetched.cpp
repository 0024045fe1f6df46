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
#include "zot_priv/storage/file_id.hpp"

namespace {

constexpr const char *k_name = "subsys.k";
// Each get of any process begins with a new file of this name.
constexpr const char *checksum_name = "subsys.checksum";

zot_file_id fetched_now(const zot_ctx &handle) {
  return zot::file_id_at(AT_FDCWD, zot::joined_path(handle.tmp_root, checksum_name).c_str());
}

// A checksum file that is gone is found when it is copied.
bool is_untouched(const zot_ctx &handle) {
  const zot_file_id found = fetched_now(handle);
  return !zot::is_known(found) || zot::is_same_file(found, handle.own.fetched);
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
  struct stat st {};
  if (!fd.is_open() || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
      static_cast<uint64_t>(st.st_size) != size) {
    return false;
  }
  char chunk[ZOT_PATH_SIZE];
  for (size_t at = 0; at < size; at += sizeof chunk) {
    const size_t count = size - at < sizeof chunk ? size - at : sizeof chunk;
    if (!zot::read_exactly(fd.get(), chunk, count) || std::memcmp(chunk, bytes + at, count) != 0) {
      return false;
    }
  }
  return true;
}

}  // namespace

namespace zot {

bool remember_get(zot_ctx &handle) {
  handle.own.fetched = fetched_now(handle);
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
  if (is_untouched(handle)) {
    return true;
  }
  const joined_path path(handle.tmp_root, k_name);
  return holds(AT_FDCWD, path.c_str(), k.data, k.data_len) ||
         (::access(path.c_str(), F_OK) != 0 && errno == ENOENT);
}

bool is_set_as_fetched(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs) {
  if (is_untouched(handle)) {
    return true;
  }
  if (!is_k_as_fetched(handle, k)) {
    return false;
  }
  const descriptor folder(::open(handle.tmp_gpb_root, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    const char *const name = gpb.path != nullptr ? gpb.path + std::strspn(gpb.path, "/") : "";
    if (gpb.content != nullptr && !holds(folder.get(), name, gpb.content, gpb.size)) {
      return false;
    }
  }
  return true;
}

}  // namespace zot
