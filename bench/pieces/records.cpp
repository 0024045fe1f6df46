// SPDX-License-Identifier: Apache-2.0
#include "bench/pieces/records.hpp"

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "zot_list.hpp"

namespace zot::bench {

namespace {

bool is_entry_of(const zot_gpb &gpb, const published_file &file) {
  return file.path() == gpb.path && file.category == gpb.category && file.key == gpb.key &&
         file.version == gpb.version && file.size == gpb.size && file.checksum == gpb.checksum;
}

}  // namespace

bare_handle::bare_handle() {
  zot_util_init_log_ctl(&log_);
  handle_.log_ctx.ctl = &log_;
}

knowledge::knowledge(const document &of) {
  k_.data = strdup(of.text.c_str());
  k_.data_len = static_cast<std::uint32_t>(of.text.size());
}

knowledge::~knowledge() {
  zot_priv_free_k(handle_.get(), &k_);
}

bool knowledge::validate() {
  return zot_priv_chk_vail_k_cont(handle_.get(), &k_) == ZOT_OK;
}

bool knowledge::is_valid(std::size_t entries) const {
  return k_.json != nullptr && std::strlen(k_.meta.cluster_id) == ZOT_UUID_LEN &&
         std::strlen(k_.meta.config_id) == ZOT_UUID_LEN &&
         static_cast<std::size_t>(cJSON_GetArraySize(k_.gpbs)) == entries;
}

void knowledge::forget() {
  cJSON_Delete(k_.json);
  k_.json = nullptr;
  k_.gpbs = nullptr;
}

gpb_list::gpb_list() {
  zot_list_init(&head_);
}

gpb_list::~gpb_list() {
  release();
}

bool gpb_list::build(knowledge &from) {
  return zot_priv_get_gpb_list_via_k_json(handle_.get(), from.get(), &head_) == ZOT_OK;
}

bool gpb_list::holds(const document &all) const {
  const std::vector<published_file> expected = in_list_order(all);
  auto file = expected.begin();
  for (const zot_gpb &gpb : gpb_range(&head_)) {
    if (file == expected.end() || !is_entry_of(gpb, *file)) {
      return false;
    }
    ++file;
  }
  return file == expected.end();
}

void gpb_list::release() {
  zot_priv_free_gpb_list(handle_.get(), &head_);
}

configuration::configuration(const document &of) : k(of) {
  is_ready = k.validate() && gpbs.build(k);
}

}  // namespace zot::bench
