// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/cycle/verdict.hpp"

#include "zot_log.hpp"
#include "zot_priv/storage/fetched.hpp"

bool zot::waits_for_verdict(const zot_ctx &handle) {
  return (handle.stat.state & (verdict_given | ZOT_CYCLE_NEW_CONF)) == ZOT_CYCLE_NEW_CONF;
}

bool zot::is_overtaken(const zot_ctx &handle) {
  if (handle.dev_mode != 0) {
    return false;
  }
  const zot_k *const fetched = handle.slot[ZOT_SLOT_TMP].k;
  const bool is_decided = !are_verdicts_as_fetched(handle);
  if (fetched == nullptr) {
    return is_decided;
  }
  // A get that could not read the rolled-back K may have taken it for new.
  const bool may_be_refused =
      is_decided || zot_priv_cmp_k(handle.slot[ZOT_SLOT_CORRUPTED].k, fetched) != 0;
  return (may_be_refused && is_stored_as_corrupted(handle, *fetched)) ||
         (is_decided && !is_in_force(handle, *fetched, nullptr));
}

void zot_done_commit(zot_ctx *handle) {
  if (handle == nullptr) {
    return;
  }
  handle->stat.state = (handle->stat.state & ~zot::verdict_given) | ZOT_CYCLE_DONE_COMMIT;
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_topics, "%sCommit configuration: Done\n");
}

void zot_done_roll_back(zot_ctx *handle) {
  if (handle == nullptr) {
    return;
  }
  handle->stat.state = (handle->stat.state & ~zot::verdict_given) | ZOT_CYCLE_DONE_ROLL_BACK;
  ZOT_LOG(handle, ZOT_LOG_INFO, zot::k_topics, "%sCommit corrupted K files: Done\n");
}
