// SPDX-License-Identifier: Apache-2.0
// How the library's own operations record a status.
#pragma once

#include "zot_conf.h"

namespace zot {

// A null handle has nowhere to record to: the code alone is the answer.
inline int record(zot_ctx *handle, int code, const char *func, long line) {
  return handle == nullptr ? code : zot_priv_err_set_err2(handle, code, func, line);
}

[[gnu::format(printf, 5, 6)]] int record(zot_ctx *handle, int code, const char *func, long line,
                                         const char *fmt, ...);

}  // namespace zot

// Records a status, with a text of its own when a format follows, and yields the code.
#define ZOT_RECORD(handle, code, ...) \
  zot::record(handle, code, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
