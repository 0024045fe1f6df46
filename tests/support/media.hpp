// SPDX-License-Identifier: Apache-2.0
// Media that fail: in a program that includes this, syncfs() can be made to fail.
#pragma once

#include <sys/types.h>

#include <vector>

namespace zot::test {

struct media_state {
  std::vector<dev_t> synchronised;  // in call order
  dev_t broken = 0;                 // each call for this file system fails
  int failing_call = 0;             // this one of the next calls fails: 1 is the next
};

media_state &media();

}  // namespace zot::test
