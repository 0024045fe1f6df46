// SPDX-License-Identifier: Apache-2.0
#include "zot_parm_log.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "utilities/owner.hpp"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_parm_value.hpp"

namespace zot {

namespace {

constexpr uint32_t option_mask = ZOT_LOG_OPT_FUNC | ZOT_LOG_OPT_LINE;

// Setting a whole log control reports refusals and the new target under the names of these setters
// too.
constexpr const char *set_destination_name = "zot_parm_set_log_destination";
constexpr const char *set_stream_name = "zot_parm_set_log_destination_fp";
constexpr const char *set_path_name = "zot_parm_set_log_destination_path";
constexpr const char *set_level_name = "zot_parm_set_log_level";

// Leaving a path destination drops everything that belonged to it, even if the new destination is a
// path again.
void switch_destination(zot_ctx *handle, uint32_t dst) {
  zot_log_ctl &ctl = log_ctl_of(handle);
  if (ctl.dst == ZOT_LOG_DST_PATH) {
    free_log_path(ctl);
    zot_log_free(handle);
    ctl.fp = nullptr;
    ctl.cb = nullptr;
    ctl.cb_arg = nullptr;
  }
  ctl.dst = dst;
}

// Copies the path in a value of this length; null when out of memory.
c_text copy_path(const void *val, size_t val_len) {
  const auto *const text = static_cast<const char *>(val);
  const size_t length = strnlen(text, std::min<size_t>(val_len, ZOT_PATH_SIZE - 1));
  c_text copy(static_cast<char *>(std::calloc(length + 1, 1)));
  if (copy != nullptr) {
    std::memcpy(copy.get(), text, length);
  }
  return copy;
}

int refuse_option(zot_ctx *handle, const char *func, uint32_t value) {
  return ZOT_RECORD_AT(handle, ZOT_ERR_UNKNOWN_OPT, func, __LINE__, "[%s] unknown options: %x",
                       func, value);
}

int refuse_empty_path(zot_ctx *handle) {
  return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, set_path_name, __LINE__, "[%s] empty path\n",
                       set_path_name);
}

void tell_stream(zot_ctx *handle) {
  ZOT_LOG_AT(handle, set_stream_name, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
             "%sSet logging destination file pointer: Done\n");
  ZOT_LOG_AT(handle, set_stream_name, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sfp: %p\n",
             static_cast<void *>(log_ctl_of(handle).fp));
}

void tell_path(zot_ctx *handle) {
  ZOT_LOG_AT(handle, set_path_name, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
             "%sSet logging destination path: Done\n");
  ZOT_LOG_AT(handle, set_path_name, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sdst: %s\n",
             log_ctl_of(handle).path);
}

// The target that the destination needs and the control lacks; null if nothing is missing.
const char *missing_target(const zot_log_ctl &ctl) {
  switch (ctl.dst) {
    case ZOT_LOG_DST_FP:
      return ctl.fp == nullptr ? "fp" : nullptr;
    case ZOT_LOG_DST_PATH:
      return ctl.path == nullptr ? "path" : nullptr;
    case ZOT_LOG_DST_CB_FUNC:
      return ctl.cb == nullptr ? "callback function" : nullptr;
    default:
      return nullptr;
  }
}

// Sets the target of the new destination and logs that to it.
void set_target(zot_ctx *handle, const zot_log_ctl &wanted, c_text path) {
  zot_log_ctl &ctl = log_ctl_of(handle);
  switch (wanted.dst) {
    case ZOT_LOG_DST_FP:
      ctl.fp = wanted.fp;
      return tell_stream(handle);
    case ZOT_LOG_DST_PATH:
      ctl.path = path.release();
      return tell_path(handle);
    case ZOT_LOG_DST_CB_FUNC:
      ctl.cb = wanted.cb;
      ctl.cb_arg = wanted.cb_arg;
      return;
    default:
      return;
  }
}

}  // namespace

void free_log_path(zot_log_ctl &ctl) {
  std::free(const_cast<char *>(std::exchange(ctl.path, nullptr)));
}

int zot_parm_set_log_destination(zot_ctx *handle, const void *val, size_t val_len) {
  const uint32_t dst = word_of(val, val_len);
  if (dst > ZOT_LOG_DST_CB_FUNC) {
    return refuse_option(handle, set_destination_name, dst);
  }
  switch_destination(handle, dst);
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_log_destination_fp(zot_ctx *handle, const void *val, size_t val_len) {
  if (log_ctl_of(handle).dst != ZOT_LOG_DST_FP) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
            "%sChange logging destination to FILE pointer.\n");
  }
  if (is_short(handle, val_len, sizeof(FILE *), __func__, __LINE__)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  switch_destination(handle, ZOT_LOG_DST_FP);
  // The value is the FILE pointer itself, not the address of one.
  log_ctl_of(handle).fp = static_cast<FILE *>(const_cast<void *>(val));
  tell_stream(handle);
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_log_destination_path(zot_ctx *handle, const void *val, size_t val_len) {
  if (log_ctl_of(handle).dst != ZOT_LOG_DST_PATH) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
            "%sChange logging destination to file path.\n");
  }
  // Copied before the switch, because the value may be the very copy that the switch frees.
  const bool empty = val_len == 0 || *static_cast<const char *>(val) == '\0';
  c_text path = copy_path(val, val_len);
  switch_destination(handle, ZOT_LOG_DST_PATH);
  if (empty) {
    return refuse_empty_path(handle);
  }
  if (path == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s] out of memory\n", __func__);
  }
  log_ctl_of(handle).path = path.release();
  tell_path(handle);
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_log_destination_cb_func(zot_ctx *handle, const void *val, size_t val_len) {
  if (is_short(handle, val_len, sizeof(zot_log_cb_func), __func__, __LINE__)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  const auto wanted = value_of<zot_log_cb_func>(val);
  switch_destination(handle, ZOT_LOG_DST_CB_FUNC);
  if (wanted.cb == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s] Empty callback function pointer\n",
                      __func__);
  }
  log_ctl_of(handle).cb = wanted.cb;
  log_ctl_of(handle).cb_arg = wanted.cb_arg;
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_log_level(zot_ctx *handle, const void *val, size_t val_len) {
  const uint32_t level = word_of(val, val_len);
  if (level > ZOT_LOG_DEBUG) {
    return refuse_option(handle, set_level_name, level);
  }
  log_ctl_of(handle).level = level;
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_log_facility(zot_ctx *handle, const void *val, size_t val_len) {
  if (is_short(handle, val_len, sizeof(uint32_t), __func__, __LINE__)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  log_ctl_of(handle).facility = word_of(val, val_len) & ZOT_TOPIC_DEFAULT;
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_log_option(zot_ctx *handle, const void *val, size_t val_len) {
  log_ctl_of(handle).option = word_of(val, val_len) & option_mask;
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_log_ctl(zot_ctx *handle, const void *val, size_t val_len) {
  if (is_short(handle, val_len, sizeof(zot_log_ctl), __func__, __LINE__)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  if (val == &log_ctl_of(handle)) {
    return ZOT_RECORD(handle, ZOT_OK);
  }
  const auto wanted = value_of<zot_log_ctl>(val);
  c_text path;
  if (wanted.dst == ZOT_LOG_DST_PATH && wanted.path != nullptr) {
    // A control that was read from this handle points to the path copy that the switch frees.
    path = copy_path(wanted.path, ZOT_PATH_SIZE);
    if (path == nullptr) {
      return ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s] out of memory\n", __func__);
    }
  }
  zot_log_ctl &ctl = log_ctl_of(handle);
  ctl.facility = wanted.facility;
  ctl.option = wanted.option & option_mask;
  if (wanted.level > ZOT_LOG_DEBUG) {
    return refuse_option(handle, set_level_name, wanted.level);
  }
  ctl.level = wanted.level;
  if (wanted.dst > ZOT_LOG_DST_CB_FUNC) {
    return refuse_option(handle, set_destination_name, wanted.dst);
  }
  switch_destination(handle, wanted.dst);
  if (const char *const missing = missing_target(wanted); missing != nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s] Null input: %s", __func__, missing);
  }
  if (path != nullptr) {
    switch_destination(handle, ZOT_LOG_DST_PATH);  // drops an earlier callback as well
    if (*path.get() == '\0') {
      return refuse_empty_path(handle);
    }
  }
  // Success is logged only now. Logged field by field, it would have gone to a destination that
  // nobody chose.
  set_target(handle, wanted, std::move(path));
  return ZOT_RECORD(handle, ZOT_OK);
}

}  // namespace zot
