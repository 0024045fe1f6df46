// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/cycle/marks.hpp"

#include "zot_err.hpp"
#include "zot_priv/cycle/verdict.hpp"
#include "zot_priv/model/owners.hpp"
#include "zot_priv/storage/undo.hpp"

namespace zot {

int renew_marks(zot_ctx &handle) {
  const zot_slot &current = handle.slot[ZOT_SLOT_CURRENT];
  int status = ZOT_OK;
  if (current.k != nullptr && current.gpbs != nullptr) {
    // If the undo folder could not be put back, its files are still where they were loaded from.
    const char *const root =
        has_undo(handle) && current.k->root != nullptr ? current.k->root : handle.conf_root;
    status = zot_priv_update_cached_ret_gpb_list(&handle, current.k, current.gpbs, root);
  } else {
    gpb_list_owner nothing = make_gpb_list(&handle);
    if (nothing == nullptr) {
      return ZOT_RECORD_NO_MEMORY(&handle);
    }
    set_marks(handle, nothing.release(), handle.conf_root);
  }
  handle.own.marks_waiting = status == ZOT_OK ? 0 : handle.own.marks_waiting;
  return status;
}

int ensure_marks(zot_ctx &handle) {
  if (waits_for_verdict(handle)) {
    return ZOT_OK;
  }
  const bool is_in_force = handle.slot[ZOT_SLOT_CURRENT].k != nullptr;
  const bool is_settled =
      is_in_force && handle.own.marks_waiting == 0 && handle.ret.list != nullptr;
  return is_settled ? ZOT_OK : renew_marks(handle);
}

}  // namespace zot
