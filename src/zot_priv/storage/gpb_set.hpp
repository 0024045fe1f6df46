// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zot {

// What zot_priv_update_tmp_gpb() answers when the files lie in the dev directory.
inline constexpr int read_from_dev_path = 1;

}  // namespace zot
