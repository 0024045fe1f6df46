// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/share/board.hpp"

#include <sys/mman.h>

#include <cerrno>
#include <new>
#include <system_error>

#include "tests/faults/calls/stage.hpp"

namespace zot::test {

shared_board::shared_board() {
  void *const memory =
      ::mmap(nullptr, sizeof(board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "mmap");
  }
  board_ = new (memory) board{};
}

shared_board::~shared_board() {
  ::munmap(board_, sizeof(board));
}

char published_letter(unsigned publications) {
  return letters[publications % letters.size()];
}

}  // namespace zot::test
