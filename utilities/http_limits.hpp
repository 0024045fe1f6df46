// SPDX-License-Identifier: Apache-2.0
// The two transfers with a size limit on the body, for callers that do not trust the service to
// stop sending.
#pragma once

#include <cstdint>

#include "zot_conf.h"

namespace zot {

// As get_remote_file_stat(), but a body of more than `limit` bytes ends the transfer with
// CURLE_FILESIZE_EXCEEDED. If the service announces such a length, nothing of the body is fetched.
// The limit applies to what is written to the file; 0 means no limit. Headers of more than 256 KiB
// end any transfer in the same way.
int get_remote_file_within(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout,
                           uint64_t limit, remote_file_stat *stat);

// As get_remote_file_set_stat(), with the same limit.
int get_remote_file_set_within(const char *url, const char *path, const zot_list *names,
                               uint64_t limit, remote_file_stat *stat);

}  // namespace zot
