// SPDX-License-Identifier: Apache-2.0
// Owners of a K and of a GPB list while no slot holds them yet.
#pragma once

#include <memory>

#include "zot_conf.h"

namespace zot {

// Converts a pointer for "%p".
inline const void *address(const void *pointer) {
  return pointer;
}

// A K is freed in steps. drop_k_contents() frees what its record owns, k_owner also frees the
// record, release_k() also empties the slot, and zot_priv_free_k_ex_safe() does that only if no
// other slot holds the K.

// Frees everything that a K record owns, even if it holds no K. The metadata stays.
void drop_k_contents(zot_k *k);

// Frees the entries of a list and its head.
void destroy_gpb_list(zot_ctx *handle, zot_list *gpbs);

struct k_deleter {
  void operator()(zot_k *k) const;
};
using k_owner = std::unique_ptr<zot_k, k_deleter>;

struct gpb_list_deleter {
  zot_ctx *handle;
  void operator()(zot_list *gpbs) const { destroy_gpb_list(handle, gpbs); }
};
using gpb_list_owner = std::unique_ptr<zot_list, gpb_list_deleter>;

// A zero-filled K, and an empty list; null when out of memory.
k_owner make_k();
gpb_list_owner make_gpb_list(zot_ctx *handle);

// Frees the head of a list whose entries are already freed.
void free_gpb_head(zot_list *gpbs);

// Gives a marked list to the handle and frees the previous one. Its files are below `root`, which
// must live as long as the list.
void set_marks(zot_ctx &handle, zot_list *marked, const char *root);

// Frees what a slot holds, even if another slot holds it too. Logs under the name `func`.
void release_k(zot_ctx *handle, uint32_t slot, const char *func);
void release_gpbs(zot_ctx *handle, uint32_t slot, const char *func);

// Copies a K with its parsed content and metadata into an empty record. On failure the copy is left
// empty.
int duplicate_k(const zot_k *src, zot_k *dst);

}  // namespace zot
