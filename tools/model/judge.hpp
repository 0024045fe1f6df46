// SPDX-License-Identifier: Apache-2.0
// Runs the library's own checks on records and files. Creates no handle, so it creates no directory
// and logs nothing.
#pragma once

#include <string>
#include <string_view>

#include "zot_conf.h"

namespace zotconf {

// A status of the library with its text.
struct library_status {
  int code = 0;
  std::string text;
};

// Returns a name such as "ZOT_ERR_CORRUPTED".
std::string_view name_of_status(int code);

// Returns a text such as "text (-8)".
std::string described(const library_status &status);

// The library's file record that contains a list node.
const zot_gpb &gpb_of(const zot_list *node);

class judge {
 public:
  judge();
  judge(const judge &) = delete;
  judge &operator=(const judge &) = delete;

  zot_ctx *handle() { return &handle_; }

  // The status that a failed call has recorded.
  [[nodiscard]] library_status recorded(int code) const;

 private:
  zot_ctx handle_{};
  zot_parm parm_{};
};

}  // namespace zotconf
