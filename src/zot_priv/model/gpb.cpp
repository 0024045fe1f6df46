// SPDX-License-Identifier: Apache-2.0
// The GPB record and the lists that own it.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/difference.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/model/verified_bytes.hpp"

namespace {

zot_gpb_cmp compare(const zot_gpb &a, const zot_gpb &b) {
  if (const int result = cmp_int(a.category, b.category); result != 0) {
    return {result, zot::other_category};
  }
  if (const int result = std::strcmp(a.key, b.key); result != 0) {
    return {result, zot::other_key};
  }
  if (const int result = cmp_uint64(a.version, b.version); result != 0) {
    return {result, zot::other_version};
  }
  return {0, zot::same_entry};
}

// Copies a text into a zeroed field, truncated if it does not fit, and returns its length there.
template <size_t Size>
uint32_t copy_text(const char *text, char (&field)[Size]) {
  const size_t length = text != nullptr ? strnlen(text, Size - 1) : 0;
  std::memcpy(field, text, length);
  return static_cast<uint32_t>(length);
}

}  // namespace

namespace zot {

gpb_list_owner make_gpb_list(zot_ctx *handle) {
  auto head = make_zeroed<zot_gpb>();
  if (head == nullptr) {
    return gpb_list_owner(nullptr, {handle});
  }
  zot_list *const node = &head.release()->node;
  zot_list_init(node);
  return gpb_list_owner(node, {handle});
}

void free_gpb_head(zot_list *gpbs) {
  std::free(&gpb_of(gpbs));
}

void destroy_gpb_list(zot_ctx *handle, zot_list *gpbs) {
  zot_priv_free_gpb_list(handle, gpbs);
  free_gpb_head(gpbs);
}

}  // namespace zot

zot_gpb *zot_priv_gpb_new(const char *path, uint32_t size, int32_t category, const char *checksum,
                          const char *key, uint64_t version) {
  auto gpb = zot::make_zeroed<zot_gpb>();
  if (gpb == nullptr) {
    return nullptr;
  }
  gpb->path = strndup(path, ZOT_PATH_SIZE);
  if (gpb->path == nullptr) {
    return nullptr;
  }
  copy_text(checksum, gpb->checksum);
  gpb->key_len = copy_text(key, gpb->key);
  gpb->size = size;
  gpb->category = category;
  gpb->version = version;
  return gpb.release();
}

int zot_priv_free_gpb(zot_ctx *handle, zot_gpb *gpb) {
  if (handle == nullptr || gpb == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  zot::drop_content(*gpb);
  if (gpb->path != nullptr) {
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_DETAIL, "%sfree GPB file: %s\n", gpb->path);
    std::free(gpb->path);
  }
  const void *const where = gpb;
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_DETAIL, "%sfree GPB: %p: Done\n", where);
  std::free(gpb);
  return ZOT_OK;
}

int zot_priv_free_gpb_list(zot_ctx *handle, zot_list *gpbs) {
  if (handle == nullptr || gpbs == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (zot_list_is_empty(gpbs)) {
    return ZOT_OK;
  }
  for (zot_list *node = gpbs->next; node != gpbs;) {
    zot_list *const next = node->next;
    zot_priv_free_gpb(handle, &zot::gpb_of(node));
    node = next;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_RELEASE, "%sfree GPB list %p: Done\n",
          zot::address(gpbs));
  zot_list_init(gpbs);
  return ZOT_OK;
}

int zot_priv_cmp_gpb(const zot_gpb *a, const zot_gpb *b, zot_gpb_cmp *out) {
  const zot_gpb_cmp found = compare(*a, *b);
  if (out != nullptr) {
    *out = found;
  }
  return found.result;
}

int zot_priv_chk_dup_gpb(zot_ctx *handle, zot_list *gpbs) {
  const zot_gpb *before = nullptr;
  for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
    if (before != nullptr && compare(*before, gpb).kind == zot::other_version) {
      return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "duplicate entry in K");
    }
    before = &gpb;
  }
  return ZOT_OK;
}

int zot_priv_gpb_list_cpy(zot_ctx *handle, zot_gpb *dst, const zot_gpb *src) {
  if (dst == nullptr || src == nullptr || dst == src) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input", __func__);
  }
  if (src->path == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s]: src path is null", __func__);
  }
  dst->path = strndup(src->path, ZOT_PATH_SIZE);
  if (dst->path == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  std::memcpy(dst->checksum, src->checksum, sizeof dst->checksum);
  std::memcpy(dst->key, src->key, sizeof dst->key);
  dst->size = src->size;
  dst->version = src->version;
  dst->category = src->category;
  dst->stat = src->stat;
  dst->key_len = src->key_len;
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

void zot_priv_free_ret_gpb_list(zot_ctx *handle) {
  if (handle == nullptr || handle->ret.list == nullptr) {
    return;
  }
  zot::destroy_gpb_list(handle, handle->ret.list);
  handle->ret.list = nullptr;
}

void zot::set_marks(zot_ctx &handle, zot_list *marked, const char *root) {
  zot_priv_free_ret_gpb_list(&handle);
  handle.ret.list = marked;
  handle.ret.root = root;
}

void zot_priv_prune_deleted_gpb(zot_ctx *handle, zot_list *gpbs) {
  if (gpbs == nullptr) {
    return;
  }
  for (zot_list *node = gpbs->next; node != gpbs;) {
    zot_list *const next = node->next;
    zot_gpb &gpb = zot::gpb_of(node);
    if (gpb.stat == ZOT_STAT_DELETED) {
      list_del(node);
      zot_priv_free_gpb(handle, &gpb);
    } else {
      gpb.stat = ZOT_STAT_UNCHANGED;
    }
    node = next;
  }
}
