// SPDX-License-Identifier: Apache-2.0
// Protects the descriptors of standard input, output and error.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "utilities/owner.hpp"

namespace zot {

// Occupies the descriptors of closed standard streams as long as it lives. Otherwise a file or a
// socket that is opened in the meantime takes such a descriptor, and output of the host or of a
// command goes into it.
class standard_streams {
 public:
  standard_streams() {
    const errno_keeper keep_errno;
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
      if (::fcntl(fd, F_GETFD) >= 0) {
        continue;
      }
      // Commands inherit it, because they print like the host.
      descriptor null(::open("/dev/null", O_RDWR));
      if (null.get() == fd) {
        is_held_[static_cast<size_t>(null.release())] = true;
      }
    }
  }
  standard_streams(const standard_streams &) = delete;
  standard_streams &operator=(const standard_streams &) = delete;
  ~standard_streams() {
    const errno_keeper keep_errno;
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
      if (is_held_[static_cast<size_t>(fd)]) {
        ::close(fd);
      }
    }
  }

 private:
  std::array<bool, STDERR_FILENO + 1> is_held_{};
};

}  // namespace zot
