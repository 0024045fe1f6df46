// SPDX-License-Identifier: Apache-2.0
// Typed access to the members of a JSON object.
#include <cjson/cJSON.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "utilities/own_names.hpp"
#include "zot_conf.h"

namespace {

// Truncates toward zero. A value out of range becomes the nearest limit, and NaN becomes 0.
int32_t word_of(double number) {
  if (std::isnan(number)) {
    return 0;
  }
  if (number >= static_cast<double>(INT32_MAX)) {
    return INT32_MAX;
  }
  if (number <= static_cast<double>(INT32_MIN)) {
    return INT32_MIN;
  }
  return static_cast<int32_t>(number);
}

int store_word(int32_t word, void *out) {
  std::memcpy(out, &word, sizeof word);
  return 0;
}

int store_text(const char *text, void *out, size_t size) {
  const size_t length = std::strlen(text);
  if (length >= size) {
    return -1;
  }
  std::memcpy(out, text, length + 1);
  return 0;
}

}  // namespace

int get_json_item(const struct cJSON *object, const char *name, int type, void *out, size_t size) {
  if (object == nullptr || name == nullptr || name[0] == '\0' || out == nullptr) {
    return -1;
  }
  const cJSON *const item = cJSON_GetObjectItem(object, name);
  if (item == nullptr) {
    return -1;
  }
  switch (type) {
    case cJSON_False:
      return cJSON_IsFalse(item) ? store_word(0, out) : -1;
    case cJSON_True:
      return cJSON_IsTrue(item) ? store_word(1, out) : -1;
    case cJSON_Number:
      return cJSON_IsNumber(item) ? store_word(word_of(item->valuedouble), out) : -1;
    case cJSON_String:
      return cJSON_IsString(item) && item->valuestring != nullptr
                 ? store_text(item->valuestring, out, size)
                 : -1;
    default:
      return 1;
  }
}

void print_cjson(const struct cJSON *tree) {
  char *const text = cJSON_Print(tree);
  if (text == nullptr) {
    return;
  }
  static_cast<void>(std::puts(text));
  cJSON_free(text);
}

ZOT_PLAIN_NAME(get_json_item);
ZOT_PLAIN_NAME(print_cjson);
