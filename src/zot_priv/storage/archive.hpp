// SPDX-License-Identifier: Apache-2.0
// The archive of GPB files: how large it may be, and how it is unpacked into the scratch directory.
#pragma once

#include "zot_conf.h"

namespace zot {

// The maximum size in bytes of an archive with the files of a list.
uint64_t largest_archive(const zot_list *gpbs);

// Unpacks an archive of at most `largest` bytes and verifies the files of the list. If a file
// fails, the list is emptied. Other files from the archive are removed. Logs and records under the
// name `func`.
int unpack_archive(zot_ctx *handle, zot_k *k, zot_list *gpbs, uint64_t largest, const char *func);

}  // namespace zot
