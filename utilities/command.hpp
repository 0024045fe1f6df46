// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zot {

// How many commands of this process, in any thread, may still run after the wait for them ended: no
// status came, or a signal ended only the shell.
int count_commands_out_of_sight();

}  // namespace zot
