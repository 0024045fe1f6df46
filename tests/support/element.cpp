// SPDX-License-Identifier: Apache-2.0
#include "tests/support/element.hpp"

#include <stdexcept>
#include <utility>

namespace zot::test {
namespace {

std::optional<std::string> port_text(std::optional<std::uint16_t> port) {
  return port.has_value() ? std::optional<std::string>(std::to_string(*port)) : std::nullopt;
}

returned_entry copy_of(const zot_ret_data &data) {
  returned_entry entry;
  entry.category = data.category;
  entry.key = data.key;
  entry.stat = data.stat;
  entry.size = data.size;
  entry.has_data = data.data != nullptr;
  if (entry.has_data) {
    entry.bytes.assign(static_cast<const char *>(data.data), data.size);
  }
  return entry;
}

}  // namespace

const returned_entry *returned_list::find(std::int32_t category, std::string_view key) const {
  for (const returned_entry &entry : entries) {
    if (entry.category == category && entry.key == key) {
      return &entry;
    }
  }
  return nullptr;
}

zot_catset every_category() {
  zot_catset set{};
  for (unsigned category = 0; category < ZOT_CAT_COUNT; ++category) {
    set.word[category / 32] |= 1U << (category % 32);
  }
  return set;
}

std::vector<returned_entry> entries_of(const zot_list *list) {
  std::vector<returned_entry> entries;
  for (const zot_list *node = list->next; node != list; node = node->next) {
    entries.push_back(copy_of(*reinterpret_cast<const zot_ret_data *>(node)));
  }
  return entries;
}

returned_list get(zot_ctx *handle, std::uint32_t mask, const zot_catset &catset) {
  returned_list result;
  zot_list *list = nullptr;
  result.status = zot_conf_get(handle, catset, mask, &list);
  result.error_text = handle != nullptr ? zot_util_get_err_str(handle) : "";
  result.has_list = list != nullptr;
  if (result.has_list) {
    result.entries = entries_of(list);
    result.free_status = zot_conf_free_ret_data(handle, &list);
  }
  return result;
}

element::element(element_options options)
    : options_(std::move(options)),
      conf_prefix_("ZOT_PREFIX_CONF_ROOT", dir_ / "conf"),
      tmp_prefix_("ZOT_PREFIX_TMP_ROOT", dir_ / "scratch"),
      dev_path_("ZOT_DEV_PATH", options_.dev_path),
      port_("ZOT_REMOTE_PORT", port_text(options_.port)) {
  if (options_.start) {
    restart();
  }
}

zot_parm_all element::parm() {
  zot_parm_all all{};
  all.timeout = options_.timeout;
  all.timeout_gpb = options_.timeout_gpb;
  all.log_ctl = log_.ctl();
  return all;
}

bool element::start() {
  handle_.reset();
  handle_.reset(zot_conf_init_args(options_.subsys_id.c_str(), options_.sub_idx.c_str(),
                                   options_.sub_idx.size(), parm()));
  return handle_ != nullptr;
}

void element::restart() {
  if (!start()) {
    throw std::runtime_error("no handle:\n" + log_.dump());
  }
}

std::string element::error_text() const {
  return zot_util_get_err_str(handle());
}

returned_list element::get(std::uint32_t mask, const zot_catset &catset) const {
  return test::get(handle(), mask, catset);
}

void element::set_port(std::optional<std::uint16_t> port) const {
  port_.set(port_text(port));
}

}  // namespace zot::test
