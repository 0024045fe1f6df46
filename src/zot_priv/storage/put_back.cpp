// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/put_back.hpp"

#include <sys/resource.h>

#include <cerrno>
#include <cstring>

#include "utilities/owner.hpp"
#include "zot_list.hpp"
#include "zot_priv/model/verified_bytes.hpp"
#include "zot_priv/storage/directory_walk.hpp"
#include "zot_priv/storage/fetched.hpp"
#include "zot_priv/storage/names.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {

using namespace zot::directory_walk;

bool write_gpb(const zot_ctx &handle, const zot_gpb &gpb) {
  const zot::c_text path = zot::text_of("%s/%s/%s", handle.conf_root, zot::gpb_directory, gpb.path);
  if (path == nullptr) {
    return false;
  }
  char *const name = std::strrchr(path.get(), '/');
  *name = '\0';
  const bool has_folder = ::mkdir_r(path.get()) == 0;
  *name = '/';
  return has_folder && ::write_file(path.get(), gpb.content, gpb.size) == 0;
}

}  // namespace

namespace zot {

bool can_put_back(const zot_list *gpbs) {
  struct rlimit limit {};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    if (verified_of(gpb) == nullptr) {
      return false;
    }
    // Writing beyond this limit would end the process with a signal.
    if (gpb.size > limit.rlim_cur) {
      errno = EFBIG;
      return false;
    }
  }
  return path_outside(gpbs) == nullptr;
}

bool put_back(const zot_ctx &handle, const zot_list *gpbs) {
  const cache_media media(handle);
  const descriptor root = open_root(handle.conf_root);
  struct stat st {};
  if (::fstatat(root.get(), gpb_directory, &st, AT_SYMLINK_NOFOLLOW) == 0) {
    // What cannot be removed is overwritten.
    remove_entry(root.get(), gpb_directory, st);
  }
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    if (!write_gpb(handle, gpb)) {
      return false;
    }
  }
  return media.sync();
}

}  // namespace zot
