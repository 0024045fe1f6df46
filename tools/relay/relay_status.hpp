// SPDX-License-Identifier: Apache-2.0
// `zotconf status --relay URL`: asks a running relay for its state.
#pragma once

#include <string>

#include "tools/output/console.hpp"

namespace zotconf {

// Returns an exit status. Throws std::runtime_error if there is no relay that answers at `url`.
int run_relay_status(const std::string &url, const console &where);

}  // namespace zotconf
