// SPDX-License-Identifier: Apache-2.0
// K records, GPB lists and a handle that frees them, for the tests of the model.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/unit/bare_handle.hpp"
#include "zot_conf.h"
#include "zot_list.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/model/verified_bytes.hpp"

namespace zot::test::model {

// Frees its slots and its marked list at the end.
class model_handle : public bare_handle {
 public:
  model_handle() = default;
  model_handle(const model_handle &) = delete;
  model_handle &operator=(const model_handle &) = delete;
  ~model_handle() {
    zot_priv_free_ret_gpb_list(get());
    for (uint32_t slot = 0; slot < ZOT_SLOT_COUNT; ++slot) {
      zot_priv_free_k_ex_safe(get(), slot, nullptr);
      zot_priv_free_gpb_ex_safe(get(), slot, nullptr);
    }
  }

  std::string error_text() { return get()->err_str; }
};

// A status that no operation records.
inline constexpr int marked_status = 77;

inline void mark_status(zot_ctx *handle) {
  zot_priv_err_set_err_str2(handle, marked_status, "", 0, "an earlier text");
}

inline bool has_marked_status(const zot_ctx *handle) {
  return handle->err == marked_status && std::strcmp(handle->err_str, "an earlier text") == 0;
}

// As "%p" prints it.
inline std::string address_text(const void *pointer) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%p", pointer);
  return text.data();
}

// "<level> <mask> <text>" of each message that one function logged, in order.
inline std::vector<std::string> logged_by(const log_capture &log, std::string_view func) {
  std::vector<std::string> lines;
  for (const log_record &line : log.lines()) {
    if (line.func == func) {
      lines.push_back(std::to_string(line.level) + " " + std::to_string(line.mask) + " " +
                      line.text);
    }
  }
  return lines;
}

inline k_owner k_with_data(const std::string &data) {
  k_owner k = make_k();
  k->data = ::strdup(data.c_str());
  k->data_len = static_cast<uint32_t>(data.size());
  return k;
}

inline k_owner k_of_cluster(const std::string &cluster_id) {
  k_owner k = k_with_data("{}");
  std::snprintf(k->meta.cluster_id, sizeof k->meta.cluster_id, "%s", cluster_id.c_str());
  return k;
}

struct entry {
  int32_t category;
  std::string key;
  uint64_t version;
  uint32_t stat = 0;
  std::string bytes = "bytes";

  [[nodiscard]] std::string path() const {
    return std::string("/") + get_cat_str_by_gpb_cat(category) + "/" + key + "/" +
           std::to_string(version);
  }
};

// The caller links it into a list, or frees it.
inline zot_gpb *new_gpb(const entry &from) {
  zot_gpb *const gpb =
      zot_priv_gpb_new(from.path().c_str(), static_cast<uint32_t>(from.bytes.size()), from.category,
                       sha256_hex(from.bytes).c_str(), from.key.c_str(), from.version);
  if (gpb == nullptr) {
    throw std::runtime_error("no memory for an entry");
  }
  gpb->stat = from.stat;
  return gpb;
}

inline gpb_list_owner list_of(zot_ctx *handle, const std::vector<entry> &entries) {
  gpb_list_owner gpbs = make_gpb_list(handle);
  for (const entry &from : entries) {
    list_add_tail(gpbs.get(), &new_gpb(from)->node);
  }
  return gpbs;
}

// Bytes as verification creates them, with any checksum. If such bytes pass with a wrong one, no
// digest was computed.
inline verified_bytes verified_as(const std::string &bytes, const std::string &checksum) {
  auto *const made = static_cast<zot_verified *>(std::malloc(sizeof(zot_verified) + bytes.size()));
  made->owners = 1;
  made->size = static_cast<uint32_t>(bytes.size());
  std::snprintf(made->checksum, sizeof made->checksum, "%s", checksum.c_str());
  std::memcpy(bytes_of(made), bytes.data(), bytes.size());
  return verified_bytes(made);
}

// Makes bytes the verified content of an entry, with the checksum that it states.
inline void keep_as_verified(zot_gpb &gpb, const std::string &bytes) {
  keep_content(gpb, verified_as(bytes, gpb.checksum));
}

inline void state_checksum(zot_gpb &gpb, const std::string &checksum) {
  std::snprintf(gpb.checksum, sizeof gpb.checksum, "%s", checksum.c_str());
}

inline zot_gpb &entry_at(zot_list *gpbs, size_t place) {
  for (zot_gpb &gpb : gpb_range(gpbs)) {
    if (place-- == 0) {
      return gpb;
    }
  }
  throw std::out_of_range("the list is shorter");
}

// "/category/key/version stat" of each entry.
inline std::vector<std::string> marks_of(const zot_list *gpbs) {
  std::vector<std::string> marks;
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    std::array<char, 16> stat{};
    std::snprintf(stat.data(), stat.size(), " 0x%02x", gpb.stat);
    marks.push_back(std::string(gpb.path) + stat.data());
  }
  return marks;
}

inline std::vector<std::string> paths_of(const zot_list *gpbs) {
  std::vector<std::string> paths;
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    paths.emplace_back(gpb.path);
  }
  return paths;
}

}  // namespace zot::test::model
