// SPDX-License-Identifier: Apache-2.0
// JSON as the tests read it. Throws when a value is missing or has another type.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "utilities/owner.hpp"

namespace zot::test {

class json_value {
 public:
  explicit json_value(const std::string &text)
      : tree_(cJSON_ParseWithOpts(text.c_str(), nullptr, 1), cJSON_Delete), item_(tree_.get()) {
    require(item_ != nullptr, "no JSON: " + text);
  }

  json_value operator[](const char *name) const {
    return json_value(tree_, cJSON_GetObjectItemCaseSensitive(item_, name), name);
  }
  json_value operator[](int index) const {
    return json_value(tree_, cJSON_GetArrayItem(item_, index), "element");
  }
  [[nodiscard]] std::string text() const {
    require(cJSON_IsString(item_) != 0, "no text");
    return item_->valuestring;
  }
  [[nodiscard]] double number() const {
    require(cJSON_IsNumber(item_) != 0, "no number");
    return item_->valuedouble;
  }
  [[nodiscard]] bool flag() const {
    require(cJSON_IsBool(item_) != 0, "no flag");
    return cJSON_IsTrue(item_) != 0;
  }
  [[nodiscard]] bool is_null() const { return cJSON_IsNull(item_) != 0; }
  [[nodiscard]] int size() const {
    require(cJSON_IsArray(item_) != 0, "no array");
    return cJSON_GetArraySize(item_);
  }

 private:
  json_value(std::shared_ptr<cJSON> tree, const cJSON *item, const std::string &name)
      : tree_(std::move(tree)), item_(item) {
    require(item_ != nullptr, "no " + name);
  }

  static void require(bool holds, const std::string &otherwise) {
    if (!holds) {
      throw std::runtime_error(otherwise);
    }
  }

  std::shared_ptr<cJSON> tree_;
  const cJSON *item_;
};

}  // namespace zot::test
