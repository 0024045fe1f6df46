// SPDX-License-Identifier: Apache-2.0
// The two transfers with a ceiling on the body, for callers that don't trust the service to end.
#pragma once

#include <cstdint>

#include "zot_conf.h"

namespace zot {

// As get_remote_file_stat(), but a body of more than limit bytes ends the transfer with
// CURLE_FILESIZE_EXCEEDED, before any of it is fetched when the service announces the length.
// The limit holds for what is written to the file; 0: none. Headers of more than 256 KiB end any
// transfer in the same way.
int get_remote_file_within(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout,
                           uint64_t limit, remote_file_stat *stat);

// As get_remote_file_set_stat(), with the same limit.
int get_remote_file_set_within(const char *url, const char *path, const zot_list *names,
                               uint64_t limit, remote_file_stat *stat);

}  // namespace zot
