// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace zot {

// What one read brings; a signal does not end it.
ssize_t read_some(int fd, char *into, size_t size);

// Reads so many bytes from where the descriptor stands; false when there are fewer, or on an error.
bool read_exactly(int fd, char *into, size_t size);

// Whether a plain file holds these bytes and no more, read from where the descriptor stands.
bool holds_exactly(int fd, const char *bytes, size_t size);

}  // namespace zot
