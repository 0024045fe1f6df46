/* SPDX-License-Identifier: Apache-2.0 */
/* The layout of the public records in C. This file compiles only if the layout is right. */
#include <stddef.h>

#include "record_layout.h"
#include "zot_conf.h"

#define FOR_THIS_WIDTH(of_32, of_64) (sizeof(void *) == 4 ? (of_32) : (of_64))
#define RECORD(record, size32, size64) \
  _Static_assert(sizeof(record) == FOR_THIS_WIDTH(size32, size64), #record);
#define FIELD(record, field, offset32, size32, offset64, size64)                     \
  _Static_assert(offsetof(record, field) == FOR_THIS_WIDTH(offset32, offset64) &&    \
                     sizeof(((record *)0)->field) == FOR_THIS_WIDTH(size32, size64), \
                 #record "." #field);
ZOT_RECORD_LAYOUT(RECORD, FIELD)

_Static_assert(sizeof(zot_core_stat) == 24 && sizeof(zot_k_meta) == 586,
               "records without a pointer have one size everywhere");
