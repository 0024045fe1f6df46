// SPDX-License-Identifier: Apache-2.0
#include "bench/pieces/records.hpp"

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "zot_list.hpp"
#include "zot_priv/model/verified_bytes.hpp"

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
  char *const data = std::exchange(k_.data, nullptr);
  const std::uint32_t length = k_.data_len;
  zot_priv_free_k(handle_.get(), &k_);
  k_.data = data;
  k_.data_len = length;
}

void stand_for_verified(zot_gpb &gpb) {
  auto *const made = static_cast<zot_verified *>(std::malloc(sizeof(zot_verified)));
  made->owners = 1;
  made->size = gpb.size;
  std::memcpy(made->checksum, gpb.checksum, sizeof made->checksum);
  gpb.verified = made;
  gpb.content = reinterpret_cast<char *>(made + 1);
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
