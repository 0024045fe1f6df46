// SPDX-License-Identifier: Apache-2.0
// The JSON content of a K: validation and metadata.
#include <cjson/cJSON.h>

#include <cstring>

#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/k_content.hpp"
#include "zot_priv/model/shared_json.hpp"

namespace {

// Fills the whole field: metadata are handed out as they lie in memory, and what is no part of the
// text is nobody's business.
bool read_text(const cJSON *object, const char *name, char *out, size_t size) {
  if (get_json_item(object, name, cJSON_String, out, size) != 0) {
    return false;
  }
  const size_t length = std::strlen(out);
  std::memset(out + length, 0, size - length);
  return true;
}

// A tree of one's own, or that of a K with the same text.
cJSON *parse(const zot_k &k, const zot_k *known) {
  const bool is_known = known != nullptr && zot_priv_cmp_k(&k, known) == 0;
  return is_known && known->json != nullptr ? zot::share_json(known->json) : cJSON_Parse(k.data);
}

}  // namespace

int zot::check_k_content(zot_ctx *handle, zot_k *k, const zot_k *known) {
  constexpr const char *operation = "zot_priv_chk_vail_k_cont";
  if (handle == nullptr || k == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (k->data == nullptr || k->data[0] == '\0') {
    return zot::record(handle, ZOT_ERR_WRONG_INPUT, operation, __LINE__, "[%s]: json is empty.",
                       operation);
  }
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%sContent of K=\"%s\"\n",
             k->data);
  zot::shared_json json(parse(*k, known));
  if (json == nullptr) {
    return zot::record(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                       "[%s]: unable to parse json str", operation);
  }
  cJSON *const gpbs = cJSON_GetObjectItem(json.get(), "gpbs");
  if (!cJSON_IsArray(gpbs)) {
    return zot::record(handle, ZOT_ERR_CORRUPTED, operation, __LINE__, "[%s]: wrong %s format.",
                       operation, "gpbs");
  }
  zot_k_meta &meta = k->meta;
  char cluster_id[sizeof meta.cluster_id];
  if (!read_text(json.get(), "clusterId", cluster_id, sizeof cluster_id)) {
    return zot::record(handle, ZOT_ERR_CORRUPTED, operation, __LINE__, "[%s]: No %s", operation,
                       "clusterId");
  }
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K,
             "%sGet new K: cluster ID: \"%s\"\n", cluster_id);
  if (read_text(json.get(), "firmwareVersion", meta.firmware_version,
                sizeof meta.firmware_version)) {
    ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K,
               "%sfw version of new K: \"%s\"\n", meta.firmware_version);
  } else {
    ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%sNo %s in K.\n",
               "firmwareVersion");
  }
  if (read_text(json.get(), "configId", meta.config_id, sizeof meta.config_id)) {
    ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K,
               "%sconf UUID of new K: \"%s\"\n", meta.config_id);
  } else {
    ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%sNo %s in K.\n",
               "configId");
  }
  zot::release_json(k->json);
  k->json = json.release();
  k->gpbs = gpbs;
  std::memcpy(meta.cluster_id, cluster_id, sizeof meta.cluster_id);
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K,
             "%sJSON format of K is valid.\n");
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

int zot_priv_chk_vail_k_cont(zot_ctx *handle, zot_k *k) {
  return zot::check_k_content(handle, k, nullptr);
}
