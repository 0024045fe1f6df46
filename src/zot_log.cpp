// SPDX-License-Identifier: Apache-2.0
#include "zot_log.hpp"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utilities/owner.hpp"
#include "utilities/standard_streams.hpp"
#include "zot_log_dst.hpp"

namespace {

// A longer message is formatted again, into allocated memory.
constexpr size_t message_size = 4096;

constexpr std::array syslog_priorities{LOG_ERR, LOG_WARNING, LOG_INFO, LOG_DEBUG};

// The connection belongs to the process: all handles share it and none closes it.
std::atomic<bool> syslog_is_open = false;

int write_stderr(const char *text) {
  std::fputs(text, stderr);
  return 0;
}

}  // namespace

int zot_log_dst_syslog(uint32_t level, const char *text) {
  const zot::standard_streams guard;
  if (!syslog_is_open.exchange(true, std::memory_order_relaxed)) {
    openlog(nullptr, LOG_PID | LOG_ODELAY, LOG_USER);
  }
  if (level >= syslog_priorities.size()) {
    return -1;
  }
  syslog(syslog_priorities[level], "%s", text);
  return 0;
}

int zot_log_dst_fp(FILE *stream, const char *text) {
  if (stream == nullptr) {
    std::fprintf(stderr, "[%s]: [ERROR] Null FILE pointer.\n", __func__);
    return -1;
  }
  std::fputs(text, stream);
  return 0;
}

int zot_log_dst_path(zot_log_ctx *log_ctx, const char *path, const char *text) {
  if (path == nullptr || *path == '\0') {
    std::fputs("[ERROR] Null or empty log path.\n", stderr);
    return -1;
  }
  if (log_ctx != nullptr && log_ctx->path_fp != nullptr) {
    return zot_log_dst_fp(log_ctx->path_fp, text);
  }
  const zot::standard_streams guard;
  zot::file_stream opened(std::fopen(path, "a+e"));
  if (opened == nullptr) {
    std::fprintf(stderr, "[ERROR] Unable to open log path = %s: %s\n", path, std::strerror(errno));
    return -1;
  }
  const int result = zot_log_dst_fp(opened.get(), text);
  if (log_ctx != nullptr) {
    log_ctx->path_fp = opened.release();
  }
  return result;
}

int zot_log_dst_cb_func(zot_log_ctx *log_ctx, zot_log_cb *cb, void *cb_arg, const char *text) {
  if (cb == nullptr) {
    std::fprintf(stderr, "[%s]: [ERROR] Null callback function pointer.\n", __func__);
    return -1;
  }
  cb(log_ctx, cb_arg, text);
  return 0;
}

int zot_log_deliver(zot_log_ctx *log_ctx, const zot_log_site &site, const char *text) {
  if (log_ctx == nullptr) {
    return write_stderr(text);
  }
  if (log_ctx->ctl == nullptr) {
    std::fputs("[ERROR]: Null zot_log_ctl Input.\n", stderr);
    return -1;
  }
  const zot_log_ctl &ctl = *log_ctx->ctl;
  switch (ctl.dst) {
    case ZOT_LOG_DST_SYSLOG:
      return zot_log_dst_syslog(site.level, text);
    case ZOT_LOG_DST_STDOUT:
      std::fputs(text, stdout);
      return 0;
    case ZOT_LOG_DST_STDERR:
      return write_stderr(text);
    case ZOT_LOG_DST_FP:
      return ctl.fp != nullptr ? zot_log_dst_fp(ctl.fp, text) : write_stderr(text);
    case ZOT_LOG_DST_PATH:
      return ctl.path != nullptr ? zot_log_dst_path(log_ctx, ctl.path, text) : write_stderr(text);
    case ZOT_LOG_DST_CB_FUNC:
      return ctl.cb != nullptr ? zot_log_dst_cb_func(log_ctx, ctl.cb, ctl.cb_arg, text)
                               : write_stderr(text);
    default:
      std::fprintf(stderr, "[ERROR]: unknon ZOT_LOG_DST enum: %u\n", ctl.dst);
      return 0;
  }
}

namespace {

// Delivers a prefix followed by a message. Either may be empty.
int write_message(zot_log_ctx *log_ctx, const zot_log_site &site, const char *prefix,
                  const char *fmt, va_list args) {
  // A caller may log between a failure and its report, so logging must not change errno.
  const zot::errno_keeper keep_errno;
  log_ctx->site = site;
  char message[message_size];
  const size_t begin = std::strlen(prefix);
  std::memcpy(message, prefix, begin + 1);
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(message + begin, sizeof message - begin, fmt, args);
  const size_t size = begin + static_cast<size_t>(std::max(length, 0)) + 1;
  int result = length < 0 ? length : 0;
  if (size > sizeof message) {
    const zot::c_text whole(static_cast<char *>(std::calloc(size, 1)));
    if (whole != nullptr) {
      static_cast<void>(std::snprintf(whole.get(), size, "%s", prefix));
      std::vsnprintf(whole.get() + begin, size - begin, fmt, again);
      result = zot_log_deliver(log_ctx, site, whole.get());
    } else {
      zot_log_deliver(log_ctx, site, message);
      result = -1;
    }
  } else if (size > 1) {
    result = zot_log_deliver(log_ctx, site, message);
  }
  va_end(again);
  return result;
}

}  // namespace

int zot_log(zot_log_ctx *log_ctx, uint32_t level, uint32_t mask, long line, const char *func,
            const char *fmt, ...) {
  if (log_ctx == nullptr || fmt == nullptr || *fmt == '\0' ||
      !zot::log_enabled(log_ctx, level, mask)) {
    return 0;
  }
  va_list args;
  va_start(args, fmt);
  const int result = write_message(log_ctx, {level, mask, line, func}, "", fmt, args);
  va_end(args);
  return result;
}

namespace {

void write_packed(zot_log_ctx *log_ctx, uint32_t packed, const char *func, const char *fmt,
                  va_list args) {
  constexpr size_t prefix_conversion = 2;
  const zot_log_site site{packed & zot::level_mask, packed >> zot::level_bits & zot::topic_mask,
                          static_cast<long>(packed >> (zot::level_bits + zot::topic_bits)), func};
  char prefix[ZOT_LOG_PREFIX_SIZE];
  zot_log_get_prefix(log_ctx, func, site.line, prefix, sizeof prefix);
  write_message(log_ctx, site, prefix, fmt + prefix_conversion, args);
}

bool is_enabled(const zot_log_ctx *log_ctx, uint32_t packed) {
  return zot::log_enabled(log_ctx, packed & zot::level_mask,
                          packed >> zot::level_bits & zot::topic_mask);
}

}  // namespace

void zot::write_line(zot_ctx *handle, uint32_t packed, const char *func, const char *fmt, ...) {
  if (handle == nullptr || !is_enabled(&handle->log_ctx, packed)) {
    return;
  }
  va_list args;
  va_start(args, fmt);
  write_packed(&handle->log_ctx, packed, func, fmt, args);
  va_end(args);
}

void zot::write_line(zot_log_ctx *log_ctx, uint32_t packed, const char *func, const char *fmt,
                     ...) {
  if (log_ctx == nullptr || !is_enabled(log_ctx, packed)) {
    return;
  }
  va_list args;
  va_start(args, fmt);
  write_packed(log_ctx, packed, func, fmt, args);
  va_end(args);
}

char *zot_log_get_prefix(const zot_log_ctx *log_ctx, const char *func, long line, char *buf,
                         size_t size) {
  const char *const name = func != nullptr ? func : "";
  uint32_t option = ZOT_LOG_OPT_FUNC;
  if (log_ctx != nullptr) {
    option = log_ctx->ctl != nullptr ? log_ctx->ctl->option : 0;
  }
  switch (option & (ZOT_LOG_OPT_FUNC | ZOT_LOG_OPT_LINE)) {
    case ZOT_LOG_OPT_FUNC:
      std::snprintf(buf, size, "[%s] ", name);
      break;
    case ZOT_LOG_OPT_LINE:
      std::snprintf(buf, size, "[ (%ld)] ", line);
      break;
    case ZOT_LOG_OPT_FUNC | ZOT_LOG_OPT_LINE:
      std::snprintf(buf, size, "[%s (%ld)] ", name, line);
      break;
    default:
      std::snprintf(buf, size, "%s", "");
  }
  return buf;
}

int zot_log_init(zot_ctx *handle) {
  zot_log_ctl defaults{};
  zot_util_init_log_ctl(&defaults);
  return zot_parm_set(handle, ZOT_PARM_LOG_CTL, &defaults, sizeof defaults);
}

void zot_log_free(zot_ctx *handle) {
  if (handle == nullptr || handle->log_ctx.path_fp == nullptr) {
    return;
  }
  std::fclose(handle->log_ctx.path_fp);
  handle->log_ctx.path_fp = nullptr;
}
