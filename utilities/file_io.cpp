// SPDX-License-Identifier: Apache-2.0
#include "utilities/file_io.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

ssize_t zot::read_some(int fd, char *into, size_t size) {
  ssize_t got = 0;
  do {
    got = ::read(fd, into, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

bool zot::read_exactly(int fd, char *into, size_t size) {
  for (size_t have = 0; have < size;) {
    const ssize_t got = read_some(fd, into + have, size - have);
    if (got <= 0) {
      return false;
    }
    have += static_cast<size_t>(got);
  }
  return true;
}

bool zot::holds_exactly(int fd, const char *bytes, size_t size) {
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) != size) {
    return false;
  }
  char chunk[4096];
  for (size_t at = 0; at < size; at += sizeof chunk) {
    const size_t count = std::min(sizeof chunk, size - at);
    if (!read_exactly(fd, chunk, count) || std::memcmp(chunk, bytes + at, count) != 0) {
      return false;
    }
  }
  return true;
}
