// SPDX-License-Identifier: Apache-2.0
// Runs code as root without the rights of root.
#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace zot::test {

// Whether the body returns true in a process without capabilities, where permissions apply to root
// as to any other user.
template <class Body>
bool holds_without_capabilities(Body body) {
  const pid_t child = ::fork();
  if (child == 0) {
    __user_cap_header_struct of_this_process{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
    const bool has_none = ::syscall(SYS_capset, &of_this_process, none.data()) == 0;
    ::_exit(has_none && body() ? 0 : 1);
  }
  int status = -1;
  return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace zot::test
