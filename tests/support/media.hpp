// SPDX-License-Identifier: Apache-2.0
// Media that fail, are full or are interrupted: in a program that links this, syncfs(), fsync() and
// write() can be made to fail, and fstatvfs() to tell other figures.
#pragma once

#include <sys/statvfs.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <vector>

namespace zot::test {

struct media_state {
  std::vector<dev_t> synchronised;  // by syncfs(), in call order
  dev_t broken = 0;                 // each call for this file system fails
  int failing_call = 0;             // this one of the next calls of syncfs() fails: 1 is the next
  std::atomic<int> interruptions = 0;  // by a signal, of so many of the next calls of write()
  std::function<void(struct statvfs &)> change_figures;
};

media_state &media();

}  // namespace zot::test
