// SPDX-License-Identifier: Apache-2.0
// JSON that the commands write and read. Members keep the order in which they are set.
#pragma once

#include <chrono>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tools/output/plain_text.hpp"
#include "utilities/owner.hpp"

namespace zotconf {

// Returns nullopt, which becomes null in JSON, for an empty text.
inline std::optional<std::string> stated(const std::string &text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

// Null unless the whole text is one JSON object.
inline zot::json_tree parse_json_object(const std::string &text) {
  // For the parser a NUL byte is the end.
  const bool has_nul = text.find('\0') != std::string::npos;
  zot::json_tree tree(has_nul ? nullptr : cJSON_ParseWithOpts(text.c_str(), nullptr, 1));
  return cJSON_IsObject(tree.get()) != 0 ? std::move(tree) : zot::json_tree();
}

// An object or array inside a document. The document must outlive it.
class json_node {
 public:
  explicit json_node(cJSON *item) : item_(item) {}

  json_node &set(const char *name, std::string_view value) {
    return put(name, cJSON_CreateString(valid_utf8(std::string(value)).c_str()));
  }
  json_node &set(const char *name, const char *value) { return set(name, std::string_view(value)); }
  // Written as digits, because a double cannot hold every 64-bit number.
  template <std::integral T>
  json_node &set(const char *name, T value) {
    if constexpr (std::same_as<T, bool>) {
      return put(name, cJSON_CreateBool(value ? 1 : 0));
    } else {
      return put(name, cJSON_CreateRaw(std::to_string(value).c_str()));
    }
  }
  json_node &set(const char *name, double value) { return put(name, cJSON_CreateNumber(value)); }
  // The unit is milliseconds; the name of the member should say so.
  json_node &set(const char *name, std::chrono::milliseconds value) {
    return set(name, value.count());
  }
  // nullopt becomes null.
  template <class T>
  json_node &set(const char *name, const std::optional<T> &value) {
    return value ? set(name, *value) : put(name, cJSON_CreateNull());
  }

  // Sets all members that are not set to null, so that every key is present.
  void set_missing(std::initializer_list<const char *> names) {
    for (const char *const name : names) {
      if (cJSON_HasObjectItem(item_, name) == 0) {
        put(name, cJSON_CreateNull());
      }
    }
  }

  json_node object(const char *name) { return child(name, cJSON_CreateObject()); }
  json_node array(const char *name) { return child(name, cJSON_CreateArray()); }

  // Adds an object to an array.
  json_node append() {
    cJSON *const item = cJSON_CreateObject();
    append_item(item);
    return json_node(item);
  }
  void append(std::string_view text) {
    append_item(cJSON_CreateString(valid_utf8(std::string(text)).c_str()));
  }

 private:
  json_node &put(const char *name, cJSON *item) {
    if (item == nullptr || !cJSON_AddItemToObject(item_, name, item)) {
      throw std::bad_alloc();
    }
    return *this;
  }
  json_node child(const char *name, cJSON *item) {
    put(name, item);
    return json_node(item);
  }
  void append_item(cJSON *item) {
    if (item == nullptr || !cJSON_AddItemToArray(item_, item)) {
      throw std::bad_alloc();
    }
  }

  cJSON *item_;
};

class json_document {
 public:
  json_document() : tree_(cJSON_CreateObject()) {
    if (tree_ == nullptr) {
      throw std::bad_alloc();
    }
  }

  json_node root() { return json_node(tree_.get()); }

  // Text with line breaks and indentation, for a single document.
  [[nodiscard]] std::string text() const { return printed(cJSON_Print(tree_.get())); }
  // Text on one line, for a stream of documents.
  [[nodiscard]] std::string line() const { return printed(cJSON_PrintUnformatted(tree_.get())); }

 private:
  static std::string printed(char *text) {
    const zot::c_text owner(text);
    if (owner == nullptr) {
      throw std::bad_alloc();
    }
    return std::string(text) + "\n";
  }

  zot::json_tree tree_;
};

}  // namespace zotconf
