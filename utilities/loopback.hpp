// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zot {

// Whether a URL names this machine. Also true for a URL that cannot be parsed, perhaps for lack of
// memory: no request to an element's own service may go to a proxy by mistake.
bool may_name_loopback(const char *url);

}  // namespace zot
