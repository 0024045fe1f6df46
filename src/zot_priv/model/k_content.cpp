// SPDX-License-Identifier: Apache-2.0
// The JSON content of a K: validation and metadata.
#include <cjson/cJSON.h>

#include <cstring>
#include <utility>

#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/k_content.hpp"
#include "zot_priv/model/parsed_k.hpp"

namespace {

// Zeroes the field behind the text: callers receive the metadata as it lies in memory, and it must
// show nothing else.
bool read_text(const cJSON *object, const char *name, char *out, size_t size) {
  if (get_json_item(object, name, cJSON_String, out, size) != 0) {
    return false;
  }
  const size_t length = std::strlen(out);
  std::memset(out + length, 0, size - length);
  return true;
}

constexpr const char *operation = "zot_priv_chk_vail_k_cont";

struct text_field {
  char *text;
  size_t size;
};

// Reads a member that a K may lack. The log calls it `label`.
void read_optional(zot_ctx *handle, const cJSON *json, const char *name, const char *label,
                   const text_field &out) {
  if (read_text(json, name, out.text, out.size)) {
    ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K, "%s%s of new K: \"%s\"\n",
               label, out.text);
  } else {
    ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%sNo %s in K.\n", name);
  }
}

// Shares the parsed tree of a K with the same checksum, or parses the text.
zot::parsed_k parse(const char *text, const char *checksum, zot_parsed_k *known) {
  const bool is_known =
      checksum != nullptr && known != nullptr && std::strcmp(checksum, known->checksum) == 0;
  return is_known ? zot::share(known) : zot::parse_k(text, checksum);
}

}  // namespace

int zot::check_k_content(zot_ctx *handle, zot_k *k, const char *checksum, zot_parsed_k *known) {
  if (handle == nullptr || k == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (k->data == nullptr || k->data[0] == '\0') {
    return ZOT_RECORD_AT(handle, ZOT_ERR_WRONG_INPUT, operation, __LINE__, "[%s]: json is empty.",
                         operation);
  }
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_DEBUG, ZOT_TOPIC_K, "%sContent of K=\"%s\"\n",
             k->data);
  parsed_k parsed = parse(k->data, checksum, known);
  if (parsed == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                         "[%s]: unable to parse json str", operation);
  }
  const cJSON *const json = parsed->tree;
  cJSON *const gpbs = cJSON_GetObjectItem(json, "gpbs");
  if (!cJSON_IsArray(gpbs)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__, "[%s]: wrong %s format.",
                         operation, "gpbs");
  }
  zot_k_meta &meta = k->meta;
  char cluster_id[sizeof meta.cluster_id];
  if (!read_text(json, "clusterId", cluster_id, sizeof cluster_id)) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__, "[%s]: No %s", operation,
                         "clusterId");
  }
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K,
             "%sGet new K: cluster ID: \"%s\"\n", cluster_id);
  read_optional(handle, json, "firmwareVersion", "fw version",
                {meta.firmware_version, sizeof meta.firmware_version});
  read_optional(handle, json, "configId", "conf UUID", {meta.config_id, sizeof meta.config_id});
  keep_parsed(*k, std::move(parsed), gpbs);
  std::memcpy(meta.cluster_id, cluster_id, sizeof meta.cluster_id);
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_INFO, ZOT_TOPIC_K,
             "%sJSON format of K is valid.\n");
  return zot_priv_err_set_errno(handle, ZOT_OK);
}

int zot_priv_chk_vail_k_cont(zot_ctx *handle, zot_k *k) {
  return zot::check_k_content(handle, k, nullptr, nullptr);
}
