// SPDX-License-Identifier: Apache-2.0
// The client of own_names.c in C++, with the C++ layer in place of the C header.
#define ZOT_CONF_CLIENT
#include <zot_conf.hpp>
#undef ZOT_CONF_CLIENT

#include "own_names.c"
