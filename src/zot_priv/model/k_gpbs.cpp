// SPDX-License-Identifier: Apache-2.0
// The GPB list of a K.
#include <cjson/cJSON.h>

#include <cstring>
#include <optional>
#include <string_view>

#include "utilities/gpb_path.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_list.hpp"
#include "zot_log.hpp"

namespace {

constexpr const char *operation = "zot_priv_get_gpb_list_via_k_json";

// Member names are case-insensitive. `name` is in lower case.
bool is_called(const cJSON &member, std::string_view name) {
  constexpr unsigned char lower_case = 0x20;
  const char *found = member.string;
  if (found == nullptr) {
    return false;
  }
  for (const char letter : name) {
    if (static_cast<char>(static_cast<unsigned char>(*found) | lower_case) != letter) {
      return false;
    }
    ++found;
  }
  return *found == '\0';
}

// The members of an element that are used. If a name occurs twice, the first one counts.
struct element {
  explicit element(const cJSON &item) {
    for (const cJSON *member = item.child; member != nullptr; member = member->next) {
      keep(path, *member, "path");
      keep(size, *member, "size");
      keep(checksum, *member, "checksum");
    }
  }

  static void keep(const cJSON *&kept, const cJSON &member, std::string_view name) {
    if (kept == nullptr && is_called(member, name)) {
      kept = &member;
    }
  }

  const cJSON *path = nullptr;
  const cJSON *size = nullptr;
  const cJSON *checksum = nullptr;
};

// The text of a member; null if it is not a text or is too long.
const char *text_of(const cJSON *member, size_t longest) {
  const char *const text = member != nullptr ? cJSON_GetStringValue(member) : nullptr;
  return text != nullptr && std::strlen(text) <= longest ? text : nullptr;
}

void warn_of_unknown(zot_ctx *handle, const char *path) {
  char name[255] = "";
  char key[ZOT_KEY_LEN + 1];
  int32_t category = 0;
  uint64_t version = 0;
  get_gpb_meta_by_path(path, &category, key, sizeof key, &version, name, sizeof name);
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_WARN, ZOT_TOPIC_K,
             "%s[Warning] Unknown category = %s or wrong path format = %s.\n", name, path);
}

int refuse_element(zot_ctx *handle, const char *member) {
  return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                       "[%s]: unable to get %s of GPB", operation, member);
}

// Appends what an element states. Elements of unknown categories are skipped.
int append(zot_ctx *handle, zot_list *gpbs, const element &stated) {
  const char *const path = text_of(stated.path, ZOT_PATH_SIZE - 1);
  if (path == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_CORRUPTED, operation, __LINE__, "[%s]: unable to get %s",
                         operation, "path");
  }
  const std::optional<zot::gpb_path> parts = zot::split_gpb_path(path);
  const std::optional<int32_t> category = parts ? zot::category_of(parts->category) : std::nullopt;
  if (!category) {
    warn_of_unknown(handle, path);
    return ZOT_OK;
  }
  if (stated.size == nullptr || cJSON_IsNumber(stated.size) == 0) {
    return refuse_element(handle, "size");
  }
  const char *const checksum = text_of(stated.checksum, ZOT_CHECKSUM_LEN);
  if (checksum == nullptr) {
    return refuse_element(handle, "checksum");
  }
  char key[ZOT_KEY_LEN + 1] = "";
  std::memcpy(key, parts->key.data(), parts->key.size());
  // libcjson has limited the number to the range of an int.
  zot_gpb *const gpb = zot_priv_gpb_new(path, static_cast<uint32_t>(stated.size->valueint),
                                        *category, checksum, key, parts->version);
  if (gpb == nullptr) {
    return ZOT_RECORD_AT(handle, ZOT_ERR_NOMEM, operation, __LINE__, "[%s] out of memory.",
                         operation);
  }
  list_add_tail(gpbs, &gpb->node);
  return ZOT_OK;
}

int compare(void * /*unused*/, zot_list *a, zot_list *b) {
  return zot_priv_cmp_gpb(&zot::gpb_of(a), &zot::gpb_of(b), nullptr);
}

bool is_sorted(zot_list *gpbs) {
  for (zot_list *node = gpbs->next; node->next != gpbs; node = node->next) {
    if (compare(nullptr, node, node->next) > 0) {
      return false;
    }
  }
  return true;
}

int build(zot_ctx *handle, zot_list *gpbs, const cJSON &elements) {
  for (const cJSON *item = elements.child; item != nullptr; item = item->next) {
    if (const int status = append(handle, gpbs, element(*item)); status != ZOT_OK) {
      return status;
    }
  }
  // Publishers mostly list the files in this order already.
  if (!is_sorted(gpbs)) {
    zot_list_sort(nullptr, gpbs, compare);
  }
  return zot_priv_chk_dup_gpb(handle, gpbs);
}

}  // namespace

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
  if (const int status = build(handle, gpbs, *k->gpbs); status != ZOT_OK) {
    zot_priv_free_gpb_list(handle, gpbs);
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GPB, "%sGet GPB list from K: Done\n");
  return zot_priv_err_set_errno(handle, ZOT_OK);
}
