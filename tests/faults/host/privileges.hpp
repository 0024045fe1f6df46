// SPDX-License-Identifier: Apache-2.0
// What this process may do to itself.
#pragma once

#include <string>

namespace zot::test {

[[nodiscard]] bool is_root();
// Whether a process may have its own mounts.
[[nodiscard]] bool can_mount();
// Becomes the user nobody and gives the folder to it. Does nothing when the process is not root.
void become_nobody(const std::string &folder);

}  // namespace zot::test
