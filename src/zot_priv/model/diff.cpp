// SPDX-License-Identifier: Apache-2.0
// The difference between two configurations as a list of marked entries.
#include <cstring>

#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/difference.hpp"
#include "zot_priv/model/owners.hpp"

namespace {

const char *cluster_of(const zot_k *k) {
  return k != nullptr ? k->meta.cluster_id : "Null";
}

bool is_other_cluster(const zot_k *current, const zot_k *fresh) {
  return current == nullptr || fresh == nullptr ||
         std::strcmp(current->meta.cluster_id, fresh->meta.cluster_id) != 0;
}

// A publication may give a version in force to another file, or spell that version differently. The
// caller receives the bytes that the new K states.
bool is_same_file(const zot_gpb &current, const zot_gpb &fresh) {
  return current.size == fresh.size && std::strcmp(current.checksum, fresh.checksum) == 0 &&
         (current.path == nullptr || fresh.path == nullptr ||
          std::strcmp(current.path, fresh.path) == 0);
}

// One entry of the merge: its source, its mark, and which of the two lists advance.
struct merge_step {
  const zot_gpb *source;
  uint32_t mark;
  bool advances_current;
  bool advances_fresh;
};

merge_step next_step(const zot_gpb &current, const zot_gpb &fresh, const zot_gpb_cmp &order,
                     bool other_cluster) {
  if (order.kind == zot::other_version || (order.result == 0 && other_cluster)) {
    return {&fresh, ZOT_STAT_MODIFIED, true, true};
  }
  if (order.result == 0) {
    return {is_same_file(current, fresh) ? &current : &fresh, ZOT_STAT_UNCHANGED, true, true};
  }
  if (order.result > 0) {
    return {&fresh, ZOT_STAT_ADDED, false, true};
  }
  return {&current, ZOT_STAT_DELETED, true, false};
}

// Appends a marked copy. The blank entry joins the list first, so that the list owns it.
int append_copy(zot_ctx *handle, zot_list *out, zot_gpb *blank, const merge_step &step) {
  list_add_tail(out, &blank->node);
  const int status = zot_priv_gpb_list_cpy(handle, blank, step.source);
  if (status == ZOT_OK) {
    blank->stat = step.mark;
  }
  return status;
}

}  // namespace

int zot_priv_build_full_diff_gpb_list(zot_ctx *handle, zot_k *cur_k, zot_k *new_k, zot_list *cur,
                                      zot_list *new_gpbs, zot_list *out) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (cur == nullptr || new_gpbs == nullptr || out == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input %p %p", __func__,
                      zot::address(cur), zot::address(new_gpbs));
  }
  if (cur_k == nullptr && new_k == nullptr) {
    return ZOT_OK;
  }
  const bool other_cluster = is_other_cluster(cur_k, new_k);
  if (other_cluster) {
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sDifferent cluster: original:%s, new:%s\n",
            cluster_of(cur_k), cluster_of(new_k));
  }
  const zot_list *cur_node = cur->next;
  const zot_list *new_node = new_gpbs->next;
  while (cur_node != cur || new_node != new_gpbs) {
    auto blank = zot::make_zeroed<zot_gpb>();
    if (blank == nullptr) {
      const int status = ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s]:out of memory", __func__);
      zot_priv_free_gpb_list(handle, out);
      return status;
    }
    merge_step step{};
    if (cur_node == cur) {
      step = {&zot::gpb_of(new_node), ZOT_STAT_ADDED, false, true};
    } else if (new_node == new_gpbs) {
      step = {&zot::gpb_of(cur_node), ZOT_STAT_DELETED, true, false};
    } else {
      zot_gpb_cmp order{};
      zot_priv_cmp_gpb(&zot::gpb_of(cur_node), &zot::gpb_of(new_node), &order);
      ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_DETAIL, "%sCompare res: %d\n", order.kind);
      step = next_step(zot::gpb_of(cur_node), zot::gpb_of(new_node), order, other_cluster);
    }
    if (const int status = append_copy(handle, out, blank.release(), step); status != ZOT_OK) {
      zot_priv_free_gpb_list(handle, out);
      return status;
    }
    cur_node = step.advances_current ? cur_node->next : cur_node;
    new_node = step.advances_fresh ? new_node->next : new_node;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sBuild diff list: Done\n");
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

zot_list *zot_priv_build_ret_gpb_list(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs,
                                      const char * /*root*/) {
  if (handle == nullptr) {
    return nullptr;
  }
  zot::gpb_list_owner marked = zot::make_gpb_list(handle);
  if (marked == nullptr) {
    ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s]:out of memory", __func__);
    return nullptr;
  }
  zot_list nothing;
  zot_list_init(&nothing);
  zot_list *const current = zot_priv_get_gpb(handle, ZOT_SLOT_CURRENT);
  const int status = zot_priv_build_full_diff_gpb_list(
      handle, zot_priv_get_k(handle, ZOT_SLOT_CURRENT), new_k,
      current != nullptr ? current : &nothing, new_gpbs, marked.get());
  return status == ZOT_OK ? marked.release() : nullptr;
}

int zot_priv_update_cached_ret_gpb_list(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs,
                                        const char *root) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (new_k == nullptr || new_gpbs == nullptr || root == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input", __func__);
  }
  if (root[0] == '\0') {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s]: empty GPB root", __func__);
  }
  zot_list *const marked = zot_priv_build_ret_gpb_list(handle, new_k, new_gpbs, root);
  if (marked == nullptr) {
    return zot_priv_err_get_errno(handle);
  }
  zot::set_marks(*handle, marked, root);
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "%sUpdate Cached return list memory: Done\n");
  return ZOT_OK;
}
