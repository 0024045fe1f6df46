// SPDX-License-Identifier: Apache-2.0
// The archive of GPB files: how large it may be, and how its files come into the scratch directory.
#pragma once

#include "zot_conf.h"

namespace zot {

// The bytes that an archive with the files of a list takes at most.
uint64_t largest_archive(const zot_list *gpbs);

// Unpacks an archive of at most so many bytes and verifies the files of the list, which is freed
// when one of them fails. What the archive brought beside them is removed. Logs and records as
// `func`.
int unpack_archive(zot_ctx *handle, zot_k *k, zot_list *gpbs, uint64_t largest, const char *func);

}  // namespace zot
