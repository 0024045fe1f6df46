// SPDX-License-Identifier: Apache-2.0
// `zotconf publish --fleet`: makes one folder the latest configuration of many elements.
#pragma once

#include "tools/output/console.hpp"
#include "tools/publication/publish.hpp"

namespace zotconf {

// Publishes every element, or none if one of them is refused. Returns an exit status. Throws
// std::exception when the publication folder cannot be read or written.
int run_fleet(const publish_options &options, const console &where);

}  // namespace zotconf
