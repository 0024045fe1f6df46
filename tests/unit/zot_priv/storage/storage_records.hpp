// SPDX-License-Identifier: Apache-2.0
// What the tests of the storage operations set up and compare.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/element.hpp"
#include "tests/support/files.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/publication.hpp"
#include "zot_conf.h"
#include "zot_list.hpp"
#include "zot_priv/model/owners.hpp"

namespace zot::test {

inline publication small_publication(std::string_view config_id = "config-1") {
  publication published;
  published.put("Wlan", "office", 5, "wlan office").put("Zone", "hq", 1, "zone hq");
  return published.config_id(std::string(config_id));
}

// Records a status that no operation records, so that a status without its own text is
// recognisable.
inline void mark_status(zot_ctx *handle) {
  zot_priv_err_set_err_str2(handle, 77, "", 0, "an earlier text");
}

inline bool has_marked_status(const zot_ctx *handle) {
  return handle->err == 77 && std::strcmp(handle->err_str, "an earlier text") == 0;
}

template <std::size_t Size>
void set_text(char (&field)[Size], const std::string &text) {
  static_cast<void>(std::snprintf(field, Size, "%s", text.c_str()));
}

inline std::string text_of(const char *text) {
  return text != nullptr ? text : "(none)";
}

inline std::string data_of(const zot_k &k) {
  return k.data != nullptr ? std::string(k.data, k.data_len) : "(none)";
}

// Gives an empty record bytes that a failing operation may or may not remove.
inline void fill_data(zot_k *k, const std::string &bytes) {
  k->data = ::strdup(bytes.c_str());
  k->data_len = static_cast<uint32_t>(bytes.size());
}

// Reads a verified K from a directory that holds "subsys.k" and "subsys.checksum".
inline k_owner read_k(zot_ctx *handle, const std::string &root) {
  k_owner k = make_k();
  if (zot_priv_read_tmp_k(handle, k.get(), root.c_str()) != ZOT_OK ||
      zot_priv_k_set_root(k.get(), root.c_str()) == nullptr) {
    throw std::runtime_error(zot_util_get_err_str(handle));
  }
  return k;
}

// The K of a publication as a separate record, read through a directory beside the element's.
inline k_owner make_k_of(element &tested, const publication &published) {
  const std::string root = tested.dir() / "made-k";
  published.install_k(root, "subsys.k", "subsys.checksum");
  return read_k(tested.handle(), root);
}

inline gpb_list_owner make_list_of(zot_ctx *handle, zot_k *k) {
  gpb_list_owner gpbs = make_gpb_list(handle);
  if (zot_priv_get_gpb_list_via_k_json(handle, k, gpbs.get()) != ZOT_OK) {
    throw std::runtime_error(zot_util_get_err_str(handle));
  }
  return gpbs;
}

inline std::size_t length_of(const zot_list *gpbs) {
  std::size_t length = 0;
  for (const zot_gpb &gpb : gpb_range(gpbs)) {
    static_cast<void>(gpb);
    ++length;
  }
  return length;
}

// "<level> <mask> <text>" of each message that one function logged, in order.
inline std::vector<std::string> lines_of(const log_capture &log, std::string_view func) {
  std::vector<std::string> lines;
  for (const log_record &line : log.lines()) {
    if (line.func == func) {
      lines.push_back(std::to_string(line.level) + " " + std::to_string(line.mask) + " " +
                      line.text);
    }
  }
  return lines;
}

}  // namespace zot::test
