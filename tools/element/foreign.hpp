// SPDX-License-Identifier: Apache-2.0
// Warnings about a cache of another user and a configuration of another element.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>

#include "zot_conf.h"

namespace zotconf {

// Files that a process commits into the cache of another user block every later commit of that
// user.
void warn_of_foreign_owner(const zot_ctx &handle, std::ostream &err);

// The K of a slot may name the element that it was published for. `index` is that of the handle.
void warn_of_foreign_configuration(zot_ctx &handle, uint32_t slot, std::string_view index,
                                   std::ostream &err);

}  // namespace zotconf
