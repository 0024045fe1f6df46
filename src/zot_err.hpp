// SPDX-License-Identifier: Apache-2.0
// How the library's own operations record a status.
#pragma once

#include "zot_conf.h"

namespace zot {

// Status and line in one word, so that a call hands over little.
inline constexpr unsigned code_bits = 8;
constexpr uint32_t pack_status(int code, long line) {
  return static_cast<uint8_t>(code) | static_cast<uint32_t>(line) << code_bits;
}

// Records a status and yields its code. A null handle has nowhere to record to: the code alone is
// the answer.
int record(zot_ctx *handle, uint32_t packed, const char *func);
[[gnu::format(printf, 4, 5)]] int record(zot_ctx *handle, uint32_t packed, const char *func,
                                         const char *fmt, ...);

}  // namespace zot

// Records a status as another operation, with a text of its own when a format follows, and yields
// the code.
#define ZOT_RECORD_AT(handle, code, func, line, ...) \
  zot::record(handle, zot::pack_status((code), (line)), func __VA_OPT__(, ) __VA_ARGS__)

// The same under the name of the operation that stands around it.
#define ZOT_RECORD(handle, code, ...) \
  ZOT_RECORD_AT(handle, code, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
