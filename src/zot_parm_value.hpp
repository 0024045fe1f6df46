// SPDX-License-Identifier: Apache-2.0
// What the setters and getters of the parameters share: the record, and the value as the caller
// passes it.
#pragma once

#include <algorithm>
#include <cstring>

#include "zot_conf.h"

namespace zot {

inline zot_log_ctl &log_ctl_of(zot_ctx *handle) {
  return handle->parm->all.log_ctl;
}

// A value shorter than a word fills the word's first bytes.
inline uint32_t word_of(const void *val, size_t val_len) {
  uint32_t word = 0;
  std::memcpy(&word, val, std::min(val_len, sizeof word));
  return word;
}

template <class T>
T value_of(const void *val) {
  T value{};
  std::memcpy(&value, val, sizeof value);
  return value;
}

// Whether a length is too short. If so, records that under the name of the operation.
bool is_short(zot_ctx *handle, size_t val_len, size_t wanted, const char *func, long line);

}  // namespace zot
