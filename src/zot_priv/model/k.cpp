// SPDX-License-Identifier: Apache-2.0
// The K record: what it owns, how it is copied and compared.
#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>

#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/model/parsed_k.hpp"

namespace {

// Copies before it frees, because `text` may be the field's current text.
char *replace_text(char **field, const char *text) {
  char *const copy = text != nullptr ? strndup(text, ZOT_PATH_SIZE) : nullptr;
  std::free(*field);
  *field = copy;
  return copy;
}

// Shares the parsed tree. A tree that belongs to the record alone is copied.
int duplicate_json(const zot_k &src, zot_k &dst) {
  const bool is_held = src.parsed != nullptr && src.json == src.parsed->tree;
  if (is_held) {
    zot::keep_parsed(dst, zot::share(src.parsed), src.gpbs);
    return ZOT_OK;
  }
  zot::drop_parsed(dst);
  if (src.json == nullptr) {
    return ZOT_OK;
  }
  dst.json = cJSON_Duplicate(src.json, 1);
  dst.gpbs = cJSON_GetObjectItem(dst.json, "gpbs");
  return dst.json != nullptr ? ZOT_OK : ZOT_ERR_NOMEM;
}

}  // namespace

namespace zot {

void drop_k_contents(zot_k *k) {
  std::free(k->root);
  k->root = nullptr;
  drop_parsed(*k);

  std::free(k->path);
  std::free(k->data);
  k->path = nullptr;
  k->data = nullptr;
  k->data_len = 0;
  std::memset(k->checksum, 0, sizeof k->checksum);
}

void k_deleter::operator()(zot_k *k) const {
  drop_k_contents(k);
  std::free(k);
}

k_owner make_k() {
  return k_owner(make_zeroed<zot_k>().release());
}

int duplicate_k(const zot_k *src, zot_k *dst) {
  const int status = zot_priv_k_cpy(src, dst);
  if (status != ZOT_OK) {
    return status;
  }
  if (duplicate_json(*src, *dst) != ZOT_OK) {
    drop_k_contents(dst);
    return ZOT_ERR_NOMEM;
  }
  dst->meta = src->meta;
  return ZOT_OK;
}

}  // namespace zot

int zot_priv_free_k(zot_ctx *handle, zot_k *k) {
  if (handle == nullptr || k == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (k->data_len == 0) {
    return ZOT_ERR_WRONG_INPUT;
  }
  zot::drop_k_contents(k);
  return ZOT_OK;
}

char *zot_priv_k_set_path(zot_k *k, const char *path) {
  return k != nullptr ? replace_text(&k->path, path) : nullptr;
}

char *zot_priv_k_set_root(zot_k *k, const char *root) {
  return k != nullptr ? replace_text(&k->root, root) : nullptr;
}

int zot_priv_k_cpy(const zot_k *src, zot_k *dst) {
  if (src == nullptr || dst == nullptr || src == dst) {
    return ZOT_ERR_WRONG_INPUT;
  }
  if (src->path != nullptr && zot_priv_k_set_path(dst, src->path) == nullptr) {
    return ZOT_ERR_NOMEM;
  }
  if (src->data_len == 0) {
    return ZOT_OK;
  }
  zot::c_text data(static_cast<char *>(std::malloc(src->data_len)));
  if (data == nullptr) {
    zot_priv_k_set_path(dst, nullptr);
    return ZOT_ERR_NOMEM;
  }
  std::memcpy(data.get(), src->data, src->data_len);
  dst->data = data.release();
  dst->data_len = src->data_len;
  std::memcpy(dst->checksum, src->checksum, sizeof dst->checksum);
  return ZOT_OK;
}

int zot_priv_cmp_k(const zot_k *a, const zot_k *b) {
  if (a == nullptr || b == nullptr) {
    return -1;
  }
  if (a->data_len != b->data_len) {
    return 1;
  }
  return a->data_len == 0 || std::memcmp(a->data, b->data, a->data_len) == 0 ? 0 : 1;
}
