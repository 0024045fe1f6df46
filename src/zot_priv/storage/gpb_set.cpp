// SPDX-License-Identifier: Apache-2.0
// The GPB files of a configuration as one set: fetches them and verifies each.
#include "zot_priv/storage/gpb_set.hpp"

#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/verified_bytes.hpp"
#include "zot_priv/storage/gpb_verify.hpp"

int zot_priv_read_gpb(zot_ctx *handle, zot_k * /*k*/, zot_list *gpbs, const char *root) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (gpbs == nullptr || root == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null gpb input", __func__);
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, zot::gpb_topics, "%sRead from root: %s\n", root);
  zot::gpb_folder folder(root);
  // An update leaves most files as they are.
  zot::listed_files in_force(zot_priv_get_gpb(handle, ZOT_SLOT_CURRENT));
  for (zot_gpb &gpb : zot::gpb_range(gpbs)) {
    const int status = zot::load_content(handle, &gpb, folder, in_force.verified_of(gpb));
    if (status != ZOT_OK) {
      zot_priv_free_gpb_list(handle, gpbs);
      return status;
    }
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, zot::gpb_topics, "%sVerify all GPB files: Done\n");
  return ZOT_RECORD(handle, ZOT_OK);
}

int zot_priv_update_tmp_gpb(zot_ctx *handle, zot_k *tmp_k, zot_list *gpbs) {
  if (const int status = zot_priv_get_gpb_list_via_k_json(handle, tmp_k, gpbs); status != ZOT_OK) {
    return status;
  }
  if (handle->dev_mode == 0) {
    ZOT_LOG(handle, ZOT_LOG_DEBUG, zot::gpb_topics, "%sUpdate temporary GPB files: Done\n");
    if (handle->fns.download_gpb == nullptr) {
      return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT);
    }
    return handle->fns.download_gpb(handle, tmp_k, gpbs);
  }
  if (const int status = zot_priv_read_gpb(handle, tmp_k, gpbs, handle->conf_root);
      status != ZOT_OK) {
    return status;
  }
  if (zot_priv_k_set_root(tmp_k, handle->conf_root) == nullptr) {
    return ZOT_RECORD_NO_MEMORY(handle);
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, zot::gpb_topics, "%sDev mode: read from %s: Done\n",
          handle->conf_root);
  return ZOT_RECORD(handle, zot::read_from_dev_path);
}
