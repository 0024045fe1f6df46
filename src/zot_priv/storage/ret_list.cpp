// SPDX-License-Identifier: Apache-2.0
// The list for the caller: filtered from the marked list, with every file verified.
#include <cstdlib>
#include <cstring>

#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/model/verified_bytes.hpp"
#include "zot_priv/storage/gpb_verify.hpp"

namespace {

constexpr uint32_t all_changes =
    ZOT_STAT_UNCHANGED | ZOT_STAT_DELETED | ZOT_STAT_ADDED | ZOT_STAT_MODIFIED;

bool is_wanted(const zot_gpb &gpb, uint32_t mask) {
  if ((mask & ZOT_STAT_FULL) != 0) {
    return gpb.stat != ZOT_STAT_DELETED;
  }
  return (gpb.stat & mask) != 0;
}

bool has_file(uint32_t stat) {
  return stat == ZOT_STAT_UNCHANGED || stat == ZOT_STAT_ADDED || stat == ZOT_STAT_MODIFIED;
}

// The configurations whose files were verified when they were loaded. A file that is read again
// usually equals one of theirs.
class brought_in {
 public:
  explicit brought_in(const zot_ctx *handle)
      : fresh_(zot_priv_get_gpb(handle, ZOT_SLOT_TMP)),
        current_(zot_priv_get_gpb(handle, ZOT_SLOT_CURRENT)) {}

  zot_verified *known_for(const zot_gpb &gpb) {
    zot_verified *const found = fresh_.verified_of(gpb);
    return found != nullptr ? found : current_.verified_of(gpb);
  }

 private:
  zot::listed_files fresh_;
  zot::listed_files current_;
};

// The directories of the files: that of the request, and the persistent directory, which still has
// the files of the configuration in force if the scratch directory has lost them. In that case the
// handle's own list is read from the persistent directory from then on.
class gpb_folders {
 public:
  gpb_folders(zot_ctx &handle, const char *root)
      : handle_(handle),
        asked_(root),
        lasting_(handle.conf_root),
        in_force_(zot_priv_get_gpb(&handle, ZOT_SLOT_CURRENT)) {}

  int load(zot_gpb &gpb, zot_verified *known) {
    if (is_lost_ && in_force_.names(gpb)) {
      return zot::load_content(&handle_, &gpb, lasting_, known);
    }
    const int status = zot::load_content(&handle_, &gpb, asked_, known);
    if (is_lost_ || status != ZOT_ERR_CORRUPTED || !in_force_.names(gpb)) {
      return status;
    }
    is_lost_ = true;
    // Clears the recorded failure: the other directory is still to be tried.
    ZOT_RECORD(&handle_, ZOT_OK);
    // Later requests need not look in the lost directory again.
    if (handle_.ret.root == asked_.root() && handle_.own.marks_waiting == 0) {
      handle_.ret.root = handle_.conf_root;
    }
    return zot::load_content(&handle_, &gpb, lasting_, known);
  }

 private:
  zot_ctx &handle_;
  zot::gpb_folder asked_;
  zot::gpb_folder lasting_;
  // Used only for files that the first directory does not have.
  zot::listed_files in_force_;
  bool is_lost_ = false;
};

// Reads and verifies the file of an entry. Bytes that fail are freed at once: a later request must
// read the file again, not find a buffer that looks loaded.
int read_again(zot_gpb &gpb, gpb_folders &folders, brought_in &files) {
  zot_verified *const own = zot::verified_of(gpb);
  const int status = folders.load(gpb, own != nullptr ? own : files.known_for(gpb));
  if (status != ZOT_OK) {
    zot::drop_content(gpb);
  }
  return status;
}

int load_wanted(zot_gpb &gpb, uint32_t mask, gpb_folders &folders, brought_in &files) {
  const bool is_full = (mask & ZOT_STAT_FULL) != 0;
  const bool is_loaded = is_full && zot::verified_of(gpb) != nullptr;
  const bool is_read = is_full || has_file(gpb.stat);
  return is_read && !is_loaded ? read_again(gpb, folders, files) : ZOT_OK;
}

void fill(zot_ret_data &entry, const zot_gpb &gpb, uint32_t mask) {
  const bool is_full = (mask & ZOT_STAT_FULL) != 0;
  const bool has_data = is_full || gpb.stat != ZOT_STAT_DELETED;
  std::memcpy(entry.key, gpb.key, sizeof entry.key);
  entry.category = gpb.category;
  entry.stat = is_full ? static_cast<uint32_t>(ZOT_STAT_FULL) : gpb.stat;
  entry.data = has_data ? gpb.content : nullptr;
  entry.size = has_data ? gpb.size : 0;
}

const char *category_name(const zot_gpb &gpb) {
  const char *const name = get_cat_str_by_gpb_cat(gpb.category);
  return name != nullptr ? name : "";
}

// Empties the returned list of a request that failed.
int give_up(zot_list *ret, int status) {
  zot_priv_free_ret_data(ret);
  return status;
}

}  // namespace

int zot_priv_get_ret_data_via_gpb(zot_ctx *handle, zot_list *marked, zot_list *ret, uint32_t mask,
                                  const char *root, zot_catset catset) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (marked == nullptr || ret == nullptr || root == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input %p, %p, %p", __func__,
                      zot::address(marked), zot::address(ret), zot::address(root));
  }
  if (zot_list_is_empty(marked)) {
    return ZOT_OK;
  }
  const uint32_t wanted = (mask & ZOT_STAT_CACHED) != 0 ? all_changes : mask;
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sRead from root: %s\n", root);

  gpb_folders folders(*handle, root);
  brought_in files(handle);
  for (zot_gpb &gpb : zot::gpb_range(marked)) {
    if (!zot_catset_has(&catset, gpb.category)) {
      ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sIgnore uninterested cat: %s\n",
              category_name(gpb));
      continue;
    }
    if (!is_wanted(gpb, wanted)) {
      continue;
    }
    auto entry = zot::make_zeroed<zot_ret_data>();
    if (entry == nullptr) {
      return give_up(ret, ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s]:out of memory", __func__));
    }
    if ((wanted & ZOT_STAT_FULL) == 0 && gpb.stat != ZOT_STAT_DELETED && !has_file(gpb.stat)) {
      return give_up(ret, ZOT_RECORD(handle, ZOT_ERR_UNKNOWN_OPT, "[%s]:unknown stat:%d", __func__,
                                     static_cast<int>(gpb.stat)));
    }
    if (const int status = load_wanted(gpb, wanted, folders, files); status != ZOT_OK) {
      return give_up(ret, status);
    }
    fill(*entry, gpb, wanted);
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL,
            "%sAdd cat = %s, stat=0x%x into returned list.\n", category_name(gpb), gpb.stat);
    list_add_tail(ret, &entry.release()->node);
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, "%sBuild returned list: Done\n");
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

int zot_priv_fltr_ret_data(zot_ctx *handle, zot_list *ret, uint32_t mask, zot_catset catset) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  return zot_priv_get_ret_data_via_gpb(handle, handle->ret.list, ret, mask, handle->ret.root,
                                       catset);
}

void zot_priv_free_ret_data(zot_list *ret) {
  if (ret == nullptr || zot_list_is_empty(ret)) {
    return;
  }
  for (zot_list *node = ret->next; node != ret;) {
    zot_list *const next = node->next;
    std::free(&zot::ret_data_of(node));
    node = next;
  }
  zot_list_init(ret);
}
