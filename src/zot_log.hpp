// SPDX-License-Identifier: Apache-2.0
// How the library's own operations log: one macro that adds little code at each use.
#pragma once

#include "zot_conf.h"

namespace zot {

inline bool log_enabled(const zot_log_ctx *log_ctx, uint32_t level, uint32_t mask) {
  if (log_ctx == nullptr || log_ctx->ctl == nullptr) {
    return level < ZOT_LOG_INFO && (mask & ZOT_TOPIC_DEFAULT) != 0;
  }
  return log_ctx->ctl->level >= level && (mask & log_ctx->ctl->facility) != 0;
}

// Combinations of topics that many messages share.
inline constexpr uint32_t k_topics = ZOT_TOPIC_K | ZOT_TOPIC_GENERAL;
inline constexpr uint32_t k_file_topics = ZOT_TOPIC_K | ZOT_TOPIC_FILE;
inline constexpr uint32_t gpb_topics = ZOT_TOPIC_GPB | ZOT_TOPIC_GENERAL;
inline constexpr uint32_t gpb_file_topics = ZOT_TOPIC_GPB | ZOT_TOPIC_FILE;

// Packs level, topics and line of a message into one word, so that each call passes few arguments.
inline constexpr unsigned level_bits = 4;
inline constexpr unsigned topic_bits = 8;
inline constexpr uint32_t level_mask = (1U << level_bits) - 1;
inline constexpr uint32_t topic_mask = (1U << topic_bits) - 1;
constexpr uint32_t pack_site(uint32_t level, uint32_t topics, long line) {
  return level | topics << level_bits | static_cast<uint32_t>(line) << (level_bits + topic_bits);
}

// Writes a message if it is enabled. The first conversion of `fmt` is "%s" and stands for the
// prefix, which is not among the arguments. With a null handle or context nothing is written.
void write_line(zot_ctx *handle, uint32_t packed, const char *func, const char *fmt, ...);
void write_line(zot_log_ctx *log_ctx, uint32_t packed, const char *func, const char *fmt, ...);

// Never called. It makes the compiler check the arguments against the format.
[[gnu::format(printf, 1, 2)]] void check_format(const char *fmt, ...);

}  // namespace zot

// Logs under a given function name and line.
#define ZOT_LOG_AT(owner, at_func, at_line, at_level, at_mask, fmt, ...)                \
  do {                                                                                  \
    zot::write_line(owner, zot::pack_site((at_level), (at_mask), (at_line)), (at_func), \
                    fmt __VA_OPT__(, ) __VA_ARGS__);                                    \
    if constexpr (false) {                                                              \
      zot::check_format(fmt, "" __VA_OPT__(, ) __VA_ARGS__);                            \
    }                                                                                   \
  } while (false)

// Logs under the name of the enclosing function. `owner` is a handle or a log context. The first
// conversion of `fmt` stands for the prefix.
#define ZOT_LOG(owner, level, mask, fmt, ...) \
  ZOT_LOG_AT(owner, __func__, __LINE__, level, mask, fmt __VA_OPT__(, ) __VA_ARGS__)
