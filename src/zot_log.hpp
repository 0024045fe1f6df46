// SPDX-License-Identifier: Apache-2.0
// How the library's own operations log: one macro, which costs a compare when the level is off.
#pragma once

#include "zot_conf.h"

namespace zot {

inline zot_log_ctx *log_of(zot_ctx *handle) {
  return handle != nullptr ? &handle->log_ctx : nullptr;
}
inline zot_log_ctx *log_of(zot_log_ctx *log_ctx) {
  return log_ctx;
}

inline bool log_enabled(const zot_log_ctx *log_ctx, uint32_t level, uint32_t mask) {
  if (log_ctx == nullptr || log_ctx->ctl == nullptr) {
    return level < ZOT_LOG_INFO && (mask & ZOT_TOPIC_DEFAULT) != 0;
  }
  return log_ctx->ctl->level >= level && (mask & log_ctx->ctl->facility) != 0;
}

}  // namespace zot

// Logs as another operation: the function name and line are given.
#define ZOT_LOG_AT(owner, at_func, at_line, at_level, at_mask, fmt, ...)                      \
  do {                                                                                        \
    zot_log_ctx *const zot_ctx_ = zot::log_of(owner);                                         \
    const zot_log_site zot_site_{(at_level), (at_mask), (at_line), (at_func)};                \
    if (zot::log_enabled(zot_ctx_, zot_site_.level, zot_site_.mask) && zot_ctx_ != nullptr) { \
      char zot_prefix_[ZOT_LOG_PREFIX_SIZE];                                                  \
      zot_log(zot_ctx_, zot_site_.level, zot_site_.mask, zot_site_.line, zot_site_.func, fmt, \
              zot_log_get_prefix(zot_ctx_, zot_site_.func, zot_site_.line, zot_prefix_,       \
                                 sizeof zot_prefix_) __VA_OPT__(, ) __VA_ARGS__);             \
    }                                                                                         \
  } while (false)

// Logs under the name of the operation that stands around it. `owner` is a handle or a log context;
// the first conversion of `fmt` is the prefix.
#define ZOT_LOG(owner, level, mask, fmt, ...) \
  ZOT_LOG_AT(owner, __func__, __LINE__, level, mask, fmt __VA_OPT__(, ) __VA_ARGS__)
