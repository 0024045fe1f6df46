// SPDX-License-Identifier: Apache-2.0
// Keeps the file of `zotconf watch --state` up to date.
#pragma once

#include <iosfwd>
#include <string>

#include "tools/cache/kept_configurations.hpp"
#include "tools/element/element_state.hpp"

namespace zotconf {

class state_tracker {
 public:
  // Reads what an earlier run has written. Create it before the handle, because creating that one
  // may undo an interrupted commit. Without a file it does nothing.
  state_tracker(fs::path file, const element &who, std::ostream &err);

  // A handle was created.
  void started();
  // A get, and what followed from it, has succeeded. After a roll-back, `refusal` is its reason.
  void succeeded(const std::string &refusal = "");
  void failed(const std::string &why);

 private:
  void recall(element_state previous);
  void note_undo();
  void note_configurations();
  void note_cache();
  // Writes the file if the state has changed. Warns once until that succeeds again.
  void update();
  void write_change();

  fs::path file_;
  std::ostream &err_;
  cache_paths cache_;
  kept_configurations kept_;
  element_state state_;
  std::string written_;  // without its time
  bool is_undo_due_ = false;
  bool is_failing_ = false;
};

}  // namespace zotconf
