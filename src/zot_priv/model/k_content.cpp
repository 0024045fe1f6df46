// SPDX-License-Identifier: Apache-2.0
// The JSON content of a K: validation, metadata, and the sorted GPB list.
#include <cjson/cJSON.h>

#include <cstring>

#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/owners.hpp"

namespace {

constexpr size_t name_size = 255;

// One element of "gpbs", read into buffers.
struct element {
  char path[ZOT_PATH_SIZE];
  char category_name[name_size];
  char key[name_size];
  char checksum[ZOT_CHECKSUM_LEN + 1];
  int32_t category;
  int32_t size;
  uint64_t version;
};

bool read_text(const cJSON *object, const char *name, char *out, size_t size) {
  return get_json_item(object, name, cJSON_String, out, size) == 0;
}

bool split_path(element &read) {
  return get_gpb_meta_by_path(read.path, &read.category, read.key, sizeof read.key, &read.version,
                              read.category_name, sizeof read.category_name) == 0;
}

int compare_nodes(void * /*priv*/, zot_list *a, zot_list *b) {
  return zot_priv_cmp_gpb(&zot::gpb_of(a), &zot::gpb_of(b), nullptr);
}

// Frees the entries of a list that is still being built, unless the build ends well.
class unfinished_list {
 public:
  unfinished_list(zot_ctx *handle, zot_list *gpbs) : handle_(handle), gpbs_(gpbs) {}
  unfinished_list(const unfinished_list &) = delete;
  unfinished_list &operator=(const unfinished_list &) = delete;
  ~unfinished_list() {
    if (gpbs_ != nullptr) {
      zot_priv_free_gpb_list(handle_, gpbs_);
    }
  }
  void finish() { gpbs_ = nullptr; }

 private:
  zot_ctx *handle_;
  zot_list *gpbs_;
};

}  // namespace

int zot_priv_chk_vail_k_cont(zot_ctx *handle, zot_k *k) {
  if (handle == nullptr || k == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (k->data == nullptr || k->data[0] == '\0') {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s]: json is empty.", __func__);
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%sContent of K=\"%s\"\n", k->data);
  zot::json_tree json(cJSON_Parse(k->data));
  if (json == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: unable to parse json str", __func__);
  }
  cJSON *const gpbs = cJSON_GetObjectItem(json.get(), "gpbs");
  if (!cJSON_IsArray(gpbs)) {
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: wrong %s format.", __func__, "gpbs");
  }
  zot_k_meta &meta = k->meta;
  char cluster_id[sizeof meta.cluster_id];
  if (!read_text(json.get(), "clusterId", cluster_id, sizeof cluster_id)) {
    return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: No %s", __func__, "clusterId");
  }
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sGet new K: cluster ID: \"%s\"\n", cluster_id);
  if (read_text(json.get(), "firmwareVersion", meta.firmware_version,
                sizeof meta.firmware_version)) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sfw version of new K: \"%s\"\n",
            meta.firmware_version);
  } else {
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%sNo %s in K.\n", "firmwareVersion");
  }
  if (read_text(json.get(), "configId", meta.config_id, sizeof meta.config_id)) {
    ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sconf UUID of new K: \"%s\"\n", meta.config_id);
  } else {
    ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%sNo %s in K.\n", "configId");
  }
  cJSON_Delete(k->json);
  k->json = json.release();
  k->gpbs = gpbs;
  std::memcpy(meta.cluster_id, cluster_id, sizeof meta.cluster_id);
  ZOT_LOG(handle, ZOT_LOG_INFO, ZOT_TOPIC_K, "%sJSON format of K is valid.\n");
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

int zot_priv_get_gpb_list_via_k_json(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (k == nullptr || gpbs == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input", __func__);
  }
  if (k->json == nullptr || !cJSON_IsArray(k->gpbs)) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s]: empty JSON content", __func__);
  }
  unfinished_list build(handle, gpbs);
  for (const cJSON *item = k->gpbs->child; item != nullptr; item = item->next) {
    element read;
    if (!read_text(item, "path", read.path, sizeof read.path)) {
      return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: unable to get %s", __func__, "path");
    }
    read.category_name[0] = '\0';
    if (!split_path(read)) {
      ZOT_LOG(handle, ZOT_LOG_WARN, ZOT_TOPIC_K,
              "%s[Warning] Unknown category = %s or wrong path format = %s.\n", read.category_name,
              read.path);
      continue;
    }
    if (get_json_item(item, "size", cJSON_Number, &read.size, sizeof read.size) != 0) {
      return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: unable to get %s of GPB", __func__,
                        "size");
    }
    if (!read_text(item, "checksum", read.checksum, sizeof read.checksum)) {
      return ZOT_RECORD(handle, ZOT_ERR_CORRUPTED, "[%s]: unable to get %s of GPB", __func__,
                        "checksum");
    }
    zot_gpb *const gpb = zot_priv_gpb_new(read.path, static_cast<uint32_t>(read.size),
                                          read.category, read.checksum, read.key, read.version);
    if (gpb == nullptr) {
      return ZOT_RECORD(handle, ZOT_ERR_NOMEM, "[%s] out of memory.", __func__);
    }
    list_add_tail(gpbs, &gpb->node);
  }
  zot_list_sort(nullptr, gpbs, compare_nodes);
  if (const int status = zot_priv_chk_dup_gpb(handle, gpbs); status != ZOT_OK) {
    return status;
  }
  build.finish();
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GPB, "%sGet GPB list from K: Done\n");
  return zot_priv_err_set_errno(handle, ZOT_OK);
}
