// SPDX-License-Identifier: Apache-2.0
// Operations as a client may install them: the GPB files come without an archive and without
// commands, from the offer in this process.
#pragma once

#include "catalogue.hpp"
#include "zot_conf.h"

namespace zot::faults {

void install_file_adapter(zot_ctx &handle);

[[nodiscard]] offer &file_adapter_offer();
[[nodiscard]] unsigned &file_adapter_requests();

}  // namespace zot::faults
