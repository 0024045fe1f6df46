// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace zot {

// Reads once. A signal does not end the read.
ssize_t read_some(int fd, char *into, size_t size);

// Reads exactly `size` bytes from the current position. False if there are fewer, or on an error.
bool read_exactly(int fd, char *into, size_t size);

// Whether a plain file holds exactly these bytes, read from the current position.
bool holds_exactly(int fd, const char *bytes, size_t size);

}  // namespace zot
