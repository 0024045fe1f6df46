// SPDX-License-Identifier: Apache-2.0
#include "zot_err.hpp"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "utilities/text.hpp"
#include "zot_assert.hpp"
#include "zot_log.hpp"

namespace {

struct status_text {
  int code;
  const char *text;
};

#define ZOT_STATUS_ROW(name, code, text) status_text{name, text},
constexpr std::array status_texts{ZOT_STATUS_MAP(ZOT_STATUS_ROW)};
#undef ZOT_STATUS_ROW

constexpr char unnamed_status[] = "Generic Error";

constexpr uint32_t level_of(int code) {
  if (code == ZOT_OK) {
    return ZOT_LOG_DEBUG;
  }
  return code < 0 ? ZOT_LOG_ERROR : ZOT_LOG_INFO;
}

// Formats into a separate buffer, because the arguments may point into the handle's own text.
[[gnu::format(printf, 3, 0)]] void store_text(zot_ctx *handle, int code, const char *fmt,
                                              va_list args) {
  char text[ZOT_ERR_STR_SIZE] = "";
  if (!zot::is_blank(fmt)) {
    std::vsnprintf(text, sizeof text, fmt, args);
  } else {
    const char *const known = zot_priv_err_get_map_str(code);
    std::snprintf(text, sizeof text, "%s", zot::is_blank(known) ? unnamed_status : known);
  }
  std::memcpy(handle->err_str, text, sizeof text);
}

[[gnu::format(printf, 5, 0)]] int set_status(zot_ctx *handle, int code, const char *func, long line,
                                             const char *fmt, va_list args) {
  handle->err = code;
  store_text(handle, code, fmt, args);
  zot_log_ctx *const log_ctx = &handle->log_ctx;
  const uint32_t level = level_of(code);
  if (!zot::is_blank(func) && line != 0 && zot::log_enabled(log_ctx, level, ZOT_TOPIC_GENERAL)) {
    char prefix[ZOT_LOG_PREFIX_SIZE];
    zot_log_get_prefix(log_ctx, func, line, prefix, sizeof prefix);
    zot_log(log_ctx, level, ZOT_TOPIC_GENERAL, line, func, "%s%s\n", prefix, handle->err_str);
  }
  return code;
}

}  // namespace

namespace zot {

int record(zot_ctx *handle, uint32_t packed, const char *func) {
  return record(handle, packed, func, nullptr);
}

int record(zot_ctx *handle, uint32_t packed, const char *func, const char *fmt, ...) {
  const int code = unpack_code(packed);
  if (handle == nullptr) {
    return code;
  }
  va_list args;
  va_start(args, fmt);
  set_status(handle, code, func, static_cast<long>(packed >> code_bits), fmt, args);
  va_end(args);
  return code;
}

int record_no_memory(zot_ctx *handle, long line, const char *func) {
  return record(handle, pack_status(ZOT_ERR_NOMEM, line), func, "[%s]: out of memory", func);
}

}  // namespace zot

int zot_priv_err_set_err_str2(zot_ctx *handle, int code, const char *func, long line,
                              const char *fmt, ...) {
  // Without a handle the status would be lost silently.
  zot::require(handle != nullptr, "reg_data != ((void *)0)", "src/zot_err", __func__);
  va_list args;
  va_start(args, fmt);
  set_status(handle, code, func, line, fmt, args);
  va_end(args);
  return code;
}

int zot_priv_err_set_err2(zot_ctx *handle, int code, const char *func, long line) {
  return zot_priv_err_set_err_str2(handle, code, func, line, nullptr);
}

int zot_priv_err_set_errno(zot_ctx *handle, int code) {
  if (handle != nullptr) {
    handle->err = code;
  }
  return code;
}

int zot_priv_err_get_errno(const zot_ctx *handle) {
  return handle != nullptr ? handle->err : ZOT_ERR_WRONG_INPUT;
}

const char *zot_priv_err_get_map_str(int code) {
  for (const status_text &row : status_texts) {
    if (row.code == code) {
      return row.text;
    }
  }
  return nullptr;
}

const char *zot_priv_err_get_err_str(const zot_ctx *handle) {
  return handle->err_str;
}

int zot_util_get_err(const zot_ctx *handle) {
  return zot_priv_err_get_errno(handle);
}

const char *zot_util_get_err_str(const zot_ctx *handle) {
  return zot_priv_err_get_err_str(handle);
}

bool zot_util_is_err(int code) {
  return code < 0;
}
