// SPDX-License-Identifier: Apache-2.0
// Reads the members of a JSON object, each under every type and into buffers that are just large
// enough or just too small. The input is a name to look for, NUL, and the JSON.
#include <cjson/cJSON.h>

#include <array>
#include <cmath>
#include <cstring>

#include "fuzz/check.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace {
using zot::fuzz::check;

constexpr std::array types = {
    cJSON_Invalid, cJSON_False,  cJSON_True, cJSON_NULL, cJSON_Number, cJSON_String,
    cJSON_Array,   cJSON_Object, cJSON_Raw,  3,          -1,           cJSON_Number | cJSON_String};
constexpr unsigned char untouched = 0xa5;

std::int32_t word_of(double number) {
  const double whole = std::trunc(number);
  return std::isnan(whole)       ? 0
         : whole >= 2147483647.  ? INT32_MAX
         : whole <= -2147483648. ? INT32_MIN
                                 : static_cast<std::int32_t>(whole);
}

// The first member with that name. Names are case-insensitive.
const cJSON *find(const cJSON *object, const std::string &name) {
  const auto lower = [](std::string text) {
    for (char &letter : text) {
      letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    }
    return text;
  };
  for (const cJSON *item = object->child; item != nullptr; item = item->next) {
    if (item->string != nullptr && lower(item->string) == lower(name)) {
      return item;
    }
  }
  return nullptr;
}

bool is_untouched(const unsigned char *bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    if (bytes[i] != untouched) {
      return false;
    }
  }
  return true;
}

void look_for_text(const cJSON *object, const std::string &name, const cJSON *item) {
  const std::string text = item != nullptr && cJSON_IsString(item) ? item->valuestring : "";
  for (const std::size_t size : {std::size_t{0}, text.size(), text.size() + 1, text.size() + 9}) {
    const zot::fuzz::exact_copy<unsigned char> out(
        std::basic_string<unsigned char>(size, untouched));
    const int result = get_json_item(object, name.c_str(), cJSON_String, out.get(), size);
    const bool is_text = item != nullptr && cJSON_IsString(item) && !name.empty();
    check(result == (is_text && size > text.size() ? 0 : -1), "a text that fits is found");
    if (result == 0) {
      check(std::memcmp(out.get(), text.c_str(), text.size() + 1) == 0, "it is that text");
    } else {
      check(is_untouched(out.get(), size), "what is not found copies nothing");
    }
  }
}

void look_for_word(const cJSON *object, const std::string &name, const cJSON *item, int type) {
  std::int32_t word = 0x5a5a5a5a;
  const int result = get_json_item(object, name.c_str(), type, &word, sizeof word);
  if (item == nullptr || name.empty()) {
    check(result == -1 && word == 0x5a5a5a5a, "what is absent is not found");
    return;
  }
  if (type != cJSON_False && type != cJSON_True && type != cJSON_Number) {
    check(result == 1 && word == 0x5a5a5a5a, "a type that nothing reads is unsupported");
    return;
  }
  const bool fits = (item->type & 0xff) == type;
  check(result == (fits ? 0 : -1), "a member is found under its own type");
  const std::int32_t wanted = !fits                  ? 0x5a5a5a5a
                              : type == cJSON_Number ? word_of(item->valuedouble)
                                                     : static_cast<int>(type == cJSON_True);
  check(word == wanted, "the word is the member's value");
}

void look_for(const cJSON *object, const std::string &name) {
  const cJSON *const item = find(object, name);
  for (const int type : types) {
    if (type == cJSON_String) {
      look_for_text(object, name, item);
    } else {
      look_for_word(object, name, item, type);
    }
  }
}

void look_at(const cJSON *tree, const std::string &name) {
  look_for(tree, name);
  for (const cJSON *item = tree->child; item != nullptr; item = item->next) {
    if (item->string != nullptr) {
      look_for(tree, item->string);
    }
    look_at(item, name);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  const auto parts = zot::fuzz::parts_of(bytes, size);
  const zot::json_tree tree(cJSON_Parse(parts.back().c_str()));
  if (tree != nullptr) {
    look_at(tree.get(), parts.front());
  }
  std::int32_t word = 0;
  check(get_json_item(nullptr, "a", cJSON_Number, &word, sizeof word) == -1, "no object");
  check(get_json_item(tree.get(), nullptr, cJSON_Number, &word, sizeof word) == -1, "no name");
  check(get_json_item(tree.get(), "a", cJSON_Number, nullptr, sizeof word) == -1, "no output");
  return 0;
}
