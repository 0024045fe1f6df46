// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zot {

// The result of zot_priv_update_tmp_gpb() if the files are in the dev directory.
inline constexpr int read_from_dev_path = 1;

}  // namespace zot
