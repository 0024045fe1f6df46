// SPDX-License-Identifier: Apache-2.0
// The library's own operations as a judge of records and files: no handle is created, so no
// directory is, and nothing is logged.
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

// ZOT_ERR_CORRUPTED and so on.
std::string_view name_of_status(int code);

// "text (-8)".
std::string described(const library_status &status);

// The library's record of a file that a node of its list belongs to.
const zot_gpb &gpb_of(const zot_list *node);

class judge {
 public:
  judge();
  judge(const judge &) = delete;
  judge &operator=(const judge &) = delete;

  zot_ctx *handle() { return &handle_; }

  // The recorded status of a call that failed.
  [[nodiscard]] library_status recorded(int code) const;

 private:
  zot_ctx handle_{};
  zot_parm parm_{};
};

}  // namespace zotconf
