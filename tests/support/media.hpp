// SPDX-License-Identifier: Apache-2.0
// Media that fail: syncfs() of a program that includes this is one that can be told to.
#pragma once

#include <sys/types.h>

#include <vector>

namespace zot::test {

struct media_state {
  std::vector<dev_t> synchronised;  // in the order of the calls
  dev_t broken = 0;                 // each call for this file system fails
  int failing_call = 0;             // this one of the next calls fails: 1 is the next
};

media_state &media();

}  // namespace zot::test
