// SPDX-License-Identifier: Apache-2.0
// Owners of a K and of a GPB list while no slot holds them yet.
#pragma once

#include <memory>

#include "zot_conf.h"

namespace zot {

// What "%p" takes.
inline const void *address(const void *pointer) {
  return pointer;
}

// A K is given up in steps: drop_k_contents() frees what its record owns, the owner below the
// record as well, release_k() empties its slot too, and zot_priv_free_k_ex_safe() does so only when
// no other slot has it.

// Frees all that a K record owns, whether it holds a K or not; the metadata stays.
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

// A zero-filled K, and a list head without entries; null without memory.
k_owner make_k();
gpb_list_owner make_gpb_list(zot_ctx *handle);

// Frees a list head whose entries are gone.
void free_gpb_head(zot_list *gpbs);

// Hands a marked list over to the handle, in place of the one before. Its files lie below root,
// which has to last as long.
void set_marks(zot_ctx &handle, zot_list *marked, const char *root);

// Frees what a slot holds, whoever else does. The log tells it under the name of func.
void release_k(zot_ctx *handle, uint32_t slot, const char *func);
void release_gpbs(zot_ctx *handle, uint32_t slot, const char *func);

// Copies a K with its parsed content and metadata into an empty record; on failure nothing is left
// in the copy.
int duplicate_k(const zot_k *src, zot_k *dst);

}  // namespace zot
