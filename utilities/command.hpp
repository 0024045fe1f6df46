// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zot {

// How many commands of this process, in any thread, may have gone on after they were waited for: no
// status came, or a signal ended the shell alone.
int count_commands_out_of_sight();

}  // namespace zot
