// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace zot {

// Reads so many bytes from where the descriptor stands; false when there are fewer, or on an error.
bool read_exactly(int fd, char *into, size_t size);

}  // namespace zot
