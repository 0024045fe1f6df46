// SPDX-License-Identifier: Apache-2.0
// How the library's own operations record a status.
#pragma once

#include "zot_conf.h"

namespace zot {

// Packs status and line into 32 bits, so that each call passes few arguments. The codes are those
// of ZOT_STATUS_MAP; the assertions below check that each one fits.
inline constexpr unsigned code_bits = 5;
inline constexpr uint32_t code_mask = (1U << code_bits) - 1;
constexpr uint32_t pack_status(int code, long line) {
  return (static_cast<uint32_t>(code) & code_mask) | static_cast<uint32_t>(line) << code_bits;
}
constexpr int unpack_code(uint32_t packed) {
  constexpr uint32_t sign = 1U << (code_bits - 1);
  return static_cast<int>((packed & code_mask) ^ sign) - static_cast<int>(sign);
}
#define ZOT_STATUS_FITS(name, code, text) \
  static_assert(unpack_code(pack_status(name, 0)) == (name));
ZOT_STATUS_MAP(ZOT_STATUS_FITS)
#undef ZOT_STATUS_FITS

// Records a status and returns its code. With a null handle nothing is recorded, and the code is
// returned.
int record(zot_ctx *handle, uint32_t packed, const char *func);
[[gnu::format(printf, 4, 5)]] int record(zot_ctx *handle, uint32_t packed, const char *func,
                                         const char *fmt, ...);

// The same for an operation that ran out of memory.
int record_no_memory(zot_ctx *handle, long line, const char *func);

}  // namespace zot

// Records a status under the name and line of another operation and returns the code. If a format
// follows, it replaces the default text.
#define ZOT_RECORD_AT(handle, code, func, line, ...) \
  zot::record(handle, zot::pack_status((code), (line)), func __VA_OPT__(, ) __VA_ARGS__)

// The same under the name of the enclosing function.
#define ZOT_RECORD(handle, code, ...) \
  ZOT_RECORD_AT(handle, code, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#define ZOT_RECORD_NO_MEMORY_AT(handle, func) zot::record_no_memory((handle), __LINE__, (func))
#define ZOT_RECORD_NO_MEMORY(handle) ZOT_RECORD_NO_MEMORY_AT(handle, __func__)
