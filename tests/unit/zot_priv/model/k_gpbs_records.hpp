// SPDX-License-Identifier: Apache-2.0
// Elements of "gpbs" as text, and the list that the library builds from a K with them.
#pragma once

#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"

namespace zot::test::model {

inline const std::string digest(64, 'd');

inline std::string element(const std::string &path, const std::string &size = "3",
                           const std::string &checksum = "\"" + digest + "\"") {
  return R"({"path":")" + path + R"(","size":)" + size + R"(,"checksum":)" + checksum + "}";
}

inline std::string joined(const std::vector<std::string> &elements) {
  std::string text;
  for (const std::string &one : elements) {
    text += (text.empty() ? "" : ",") + one;
  }
  return text;
}

// The list of a K with the given elements.
struct built_list {
  explicit built_list(const std::vector<std::string> &elements, uint32_t log_level = ZOT_LOG_DEBUG)
      : k(k_with_data(R"({"clusterId":"c-1","gpbs":[)" + joined(elements) + "]}")),
        gpbs(make_gpb_list(handle.get())) {
    handle.ctl().level = log_level;
    checked = zot_priv_chk_vail_k_cont(handle.get(), k.get());
    status = zot_priv_get_gpb_list_via_k_json(handle.get(), k.get(), gpbs.get());
  }

  std::vector<std::string> paths() { return paths_of(gpbs.get()); }
  std::vector<std::string> logged() {
    return logged_by(handle.log(), "zot_priv_get_gpb_list_via_k_json");
  }

  model_handle handle;
  k_owner k;
  gpb_list_owner gpbs;
  int checked = ZOT_OK;
  int status = ZOT_OK;
};

}  // namespace zot::test::model
