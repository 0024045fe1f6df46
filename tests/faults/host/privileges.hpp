// SPDX-License-Identifier: Apache-2.0
// What this process is permitted to do to itself.
#pragma once

#include <string>

namespace zot::test {

[[nodiscard]] bool is_root();
// Whether a process can have mounts of its own.
[[nodiscard]] bool can_mount();
// Becomes nobody, who owns a folder from then on; does nothing when it isn't root.
void become_nobody(const std::string &folder);

}  // namespace zot::test
