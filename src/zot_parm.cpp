// SPDX-License-Identifier: Apache-2.0
#include "zot_parm.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "utilities/owner.hpp"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_parm_log.hpp"
#include "zot_parm_value.hpp"

namespace zot {

bool is_short(zot_ctx *handle, size_t val_len, size_t wanted, const char *func, long line) {
  if (val_len >= wanted) {
    return false;
  }
  ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, func, line, "[%s] wrong length: %lu < %lu", func,
                static_cast<unsigned long>(val_len), static_cast<unsigned long>(wanted));
  return true;
}

}  // namespace zot

namespace {

using zot::is_short;
using zot::log_ctl_of;
using zot::value_of;
using zot::word_of;

constexpr uint32_t ret_proto_type_max = 1;

int zot_parm_set_timeout(zot_ctx *handle, const void *val, size_t val_len) {
  if (is_short(handle, val_len, sizeof(uint32_t), __func__, __LINE__)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  handle->parm->all.timeout = word_of(val, val_len);
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_timeout_gpb(zot_ctx *handle, const void *val, size_t val_len) {
  handle->parm->all.timeout_gpb = word_of(val, val_len);
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_return_proto_type(zot_ctx *handle, const void *val, size_t val_len) {
  const uint32_t type = word_of(val, val_len);
  if (type > ret_proto_type_max) {
    return ZOT_ERR_UNKNOWN_OPT;
  }
  handle->parm->ret_proto_type = type;
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_parm_set_all(zot_ctx *handle, const void *val, size_t val_len) {
  if (is_short(handle, val_len, sizeof(zot_parm_all), __func__, __LINE__)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  if (val == &handle->parm->all) {
    return ZOT_RECORD(handle, ZOT_OK);
  }
  const auto wanted = value_of<zot_parm_all>(val);
  int status = zot::zot_parm_set_log_ctl(handle, &wanted.log_ctl, sizeof wanted.log_ctl);
  if (status == ZOT_OK) {
    status = zot_parm_set_timeout(handle, &wanted.timeout, sizeof wanted.timeout);
  }
  if (status == ZOT_OK) {
    status = zot_parm_set_timeout_gpb(handle, &wanted.timeout_gpb, sizeof wanted.timeout_gpb);
  }
  return status == ZOT_OK ? ZOT_RECORD(handle, ZOT_OK) : status;
}

struct parm_row {
  int id;
  const char *name;
  int (*set)(zot_ctx *handle, const void *val, size_t val_len);
  int (*get)(zot_ctx *handle, const parm_row &row, void *val, size_t val_len);
  const char *get_name;
  size_t offset;  // of the stored value in the record
  size_t size;
};

int get_value(zot_ctx *handle, const parm_row &row, void *val, size_t val_len) {
  if (is_short(handle, val_len, row.size, row.get_name, __LINE__)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  const char *const stored = reinterpret_cast<const char *>(handle->parm) + row.offset;
  if (val != stored) {
    std::memmove(val, stored, row.size);
  }
  return ZOT_RECORD_AT(handle, ZOT_OK, row.get_name, __LINE__);
}

int get_stream(zot_ctx *handle, const parm_row &row, void *val, size_t val_len) {
  if (is_short(handle, val_len, row.size, row.get_name, __LINE__)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  FILE *const stream = log_ctl_of(handle).fp;
  std::memcpy(val, &stream, sizeof stream);
  ZOT_LOG_AT(handle, row.get_name, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
             "%sGet logging destination file pointer: Done\n");
  ZOT_LOG_AT(handle, row.get_name, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sfp: %p\n",
             static_cast<void *>(stream));
  return ZOT_RECORD_AT(handle, ZOT_OK, row.get_name, __LINE__);
}

int get_path(zot_ctx *handle, const parm_row &row, void *val, size_t val_len) {
  const char *const path = log_ctl_of(handle).path;
  if (path != nullptr) {
    const size_t size = std::strlen(path) + 1;
    if (is_short(handle, val_len, size, row.get_name, __LINE__)) {
      return ZOT_ERR_WRONG_INPUT;
    }
    std::memmove(val, path, size);
    ZOT_LOG_AT(handle, row.get_name, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL,
               "%sGet logging destination path: Done\n");
    ZOT_LOG_AT(handle, row.get_name, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sdst: %s\n",
               path);
  }
  return ZOT_RECORD_AT(handle, ZOT_OK, row.get_name, __LINE__);
}

// A callback and its argument are adjacent, so one copy reads both.
static_assert(offsetof(zot_log_ctl, cb_arg) - offsetof(zot_log_ctl, cb) ==
              offsetof(zot_log_cb_func, cb_arg));

constexpr std::array para_fns{
    parm_row{ZOT_PARM_TIMEOUT, "ZOT_PARM_TIMEOUT", zot_parm_set_timeout, get_value,
             "zot_parm_get_timeout", offsetof(zot_parm, all.timeout), sizeof(uint32_t)},
    parm_row{ZOT_PARM_TIMEOUT_GPB, "ZOT_PARM_TIMEOUT_GPB", zot_parm_set_timeout_gpb, get_value,
             "zot_parm_get_timeout_gpb", offsetof(zot_parm, all.timeout_gpb), sizeof(uint32_t)},
    parm_row{ZOT_PARM_RETURN_PROTO_TYPE, "ZOT_PARM_RETURN_PROTO_TYPE",
             zot_parm_set_return_proto_type, get_value, "zot_parm_get_return_proto_type",
             offsetof(zot_parm, ret_proto_type), sizeof(uint32_t)},
    parm_row{ZOT_PARM_LOG_DESTINATION, "ZOT_PARM_LOG_DESTINATION",
             zot::zot_parm_set_log_destination, get_value, "zot_parm_get_log_destination",
             offsetof(zot_parm, all.log_ctl.dst), sizeof(uint32_t)},
    parm_row{ZOT_PARM_LOG_DESTINATION_FP, "ZOT_PARM_LOG_DESTINATION_FP",
             zot::zot_parm_set_log_destination_fp, get_stream, "zot_parm_get_log_destination_fp",
             offsetof(zot_parm, all.log_ctl.fp), sizeof(FILE *)},
    parm_row{ZOT_PARM_LOG_DESTINATION_PATH, "ZOT_PARM_LOG_DESTINATION_PATH",
             zot::zot_parm_set_log_destination_path, get_path, "zot_parm_get_log_destination_path",
             offsetof(zot_parm, all.log_ctl.path), sizeof(char *)},
    parm_row{ZOT_PARM_LOG_DESTINATION_CB_FUNC, "ZOT_PARM_LOG_DESTINATION_CB_FUNC",
             zot::zot_parm_set_log_destination_cb_func, get_value,
             "zot_parm_get_log_destination_cb_func", offsetof(zot_parm, all.log_ctl.cb),
             sizeof(zot_log_cb_func)},
    parm_row{ZOT_PARM_LOG_LEVEL, "ZOT_PARM_LOG_LEVEL", zot::zot_parm_set_log_level, get_value,
             "zot_parm_get_log_level", offsetof(zot_parm, all.log_ctl.level), sizeof(uint32_t)},
    parm_row{ZOT_PARM_LOG_FACILITY, "ZOT_PARM_LOG_FACILITY", zot::zot_parm_set_log_facility,
             get_value, "zot_parm_get_log_facility", offsetof(zot_parm, all.log_ctl.facility),
             sizeof(uint32_t)},
    parm_row{ZOT_PARM_LOG_OPTION, "ZOT_PARM_LOG_OPTION", zot::zot_parm_set_log_option, get_value,
             "zot_parm_get_log_option", offsetof(zot_parm, all.log_ctl.option), sizeof(uint32_t)},
    parm_row{ZOT_PARM_LOG_CTL, "ZOT_PARM_LOG_CTL", zot::zot_parm_set_log_ctl, get_value,
             "zot_parm_get_log_ctl", offsetof(zot_parm, all.log_ctl), sizeof(zot_log_ctl)},
    parm_row{ZOT_PARM_ALL, "ZOT_PARM_ALL", zot_parm_set_all, get_value, "zot_parm_get_all",
             offsetof(zot_parm, all), sizeof(zot_parm_all)},
};

const parm_row *find_row(int id) {
  const auto *const row = std::find_if(para_fns.begin(), para_fns.end(),
                                       [id](const parm_row &each) { return each.id == id; });
  return row != para_fns.end() ? row : nullptr;
}

// Checks the arguments of both public calls and records a failure under the name of the call.
int check_input(zot_ctx *handle, const void *val, size_t val_len, const char *func) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (handle->parm == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, func, __LINE__, "[%s] parameter is NULL",
                         func);
  }
  if (val == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_NULL_INPUT, func, __LINE__, "[%s] input %s is NULL", func,
                         "val");
  }
  if (val_len == 0) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, func, __LINE__, "[%s] input %s is zero", func,
                         "val_len");
  }
  return ZOT_OK;
}

}  // namespace

int zot_parm_set(zot_ctx *handle, int id, const void *val, size_t val_len) {
  if (const int status = check_input(handle, val, val_len, __func__); status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sSet parameter \"%s\": Done\n",
          zot_util_parm2str(id));
  return zot_priv_err_set_errno(handle, zot_priv_parm_set(handle, id, val, val_len));
}

int zot_parm_get(zot_ctx *handle, int id, void *val, size_t val_len) {
  if (const int status = check_input(handle, val, val_len, __func__); status != ZOT_OK) {
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sGet parameter \"%s\": Done\n",
          zot_util_parm2str(id));
  return zot_priv_err_set_errno(handle, zot_priv_parm_get(handle, id, val, val_len));
}

const char *zot_util_parm2str(int id) {
  const parm_row *const row = find_row(id);
  return row != nullptr ? row->name : "";
}

int zot_priv_parm_set(zot_ctx *handle, int id, const void *val, size_t val_len) {
  const parm_row *const row = find_row(id);
  if (row == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_UNKNOWN_OPT, "[%s] known options %d", __func__, id);
  }
  return row->set(handle, val, val_len);
}

int zot_priv_parm_get(zot_ctx *handle, int id, void *val, size_t val_len) {
  const parm_row *const row = find_row(id);
  if (row == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_UNKNOWN_OPT, "[%s] known options %d", __func__, id);
  }
  return row->get(handle, *row, val, val_len);
}

int zot_priv_parm_new(zot_ctx *handle) {
  auto parm = zot::make_zeroed<zot_parm>();
  if (parm == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NOMEM);
  }
  parm->handle = handle;
  handle->parm = parm.release();
  handle->log_ctx.ctl = &log_ctl_of(handle);
  return ZOT_OK;
}

void zot_priv_parm_free(zot_ctx *handle) {
  if (handle == nullptr || handle->parm == nullptr) {
    return;
  }
  zot_log_ctl &ctl = log_ctl_of(handle);
  zot::free_log_path(ctl);
  ctl.fp = nullptr;
  handle->log_ctx.ctl = nullptr;
  std::free(std::exchange(handle->parm, nullptr));
}
