// SPDX-License-Identifier: Apache-2.0
#include "tools/model/manifest.hpp"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <string_view>

#include "tools/model/names.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

constexpr std::string_view end_of_list = "]\n}\n";

std::string text_member(const cJSON *object, const char *name) {
  const char *const text = cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
  return text == nullptr ? "" : text;
}

std::string path_of(const published_file &file) {
  return "/" + file.category_name + "/" + file.key + "/" + std::to_string(file.version);
}

bool is_plain(char c) {
  return c >= 0x20 && c <= 0x7e && c != '"' && c != '\\';
}

// A text as a JSON string, as cJSON prints it.
std::string quoted(const std::string &text) {
  if (std::ranges::all_of(text, is_plain)) {
    return '"' + text + '"';
  }
  const zot::json_tree item(cJSON_CreateString(valid_utf8(text).c_str()));
  const zot::c_text printed(cJSON_PrintUnformatted(item.get()));
  if (printed == nullptr) {
    throw std::bad_alloc();
  }
  return printed.get();
}

// One object of the list, as cJSON prints it there. A tree of 500 entries takes several times as
// long, and a fleet has millions of entries.
void add_entry(std::string &list, const published_file &file) {
  list.append(list.empty() ? "{\n" : ", {\n")
      .append("\t\t\t\"path\":\t")
      .append(quoted(path_of(file)))
      .append(",\n\t\t\t\"size\":\t")
      .append(std::to_string(file.size))
      .append(",\n\t\t\t\"checksum\":\t")
      .append(quoted(file.checksum))
      .append("\n\t\t}");
}

std::optional<published_file> parse_file(const cJSON *item, other_category others) {
  published_file file;
  const std::string path = text_member(item, "path");
  const double size = cJSON_GetNumberValue(cJSON_GetObjectItem(item, "size"));
  file.checksum = text_member(item, "checksum");
  const size_t key_at = path.find('/', 1);
  const size_t version_at = path.rfind('/');
  if (key_at == std::string::npos || key_at < 2 || version_at < key_at + 2 || std::isnan(size) ||
      size < 0 || size > std::numeric_limits<int32_t>::max()) {
    return std::nullopt;
  }
  file.category_name = path.substr(1, key_at - 1);
  file.key = path.substr(key_at + 1, version_at - key_at - 1);
  const auto version = parse_version(std::string_view(path).substr(version_at + 1));
  const bool is_known = get_gpb_cat_by_cat_str(file.category_name.c_str(), &file.category) == 0;
  if (!version || (!is_known && others == other_category::refused)) {
    return std::nullopt;
  }
  if (!is_known) {
    file.category = -1;
  }
  file.version = *version;
  file.size = static_cast<uint64_t>(size);
  // A path that is written in another way, with 007 for example, names another file in a request.
  return path_of(file) == path ? std::optional(std::move(file)) : std::nullopt;
}

// A number that is no whole one, or more than a double can count to, counts as absent.
uint64_t parse_sequence(const cJSON *item) {
  constexpr double highest = 9007199254740992;
  const double number = cJSON_GetNumberValue(item);
  const bool counts = number >= 1 && number <= highest && std::floor(number) == number;
  return counts ? static_cast<uint64_t>(number) : 0;
}

// Everything but the files.
manifest head_of(const cJSON *root) {
  manifest content{.cluster = text_member(root, "clusterId"),
                   .config_id = text_member(root, "configId"),
                   .firmware = text_member(root, "firmwareVersion"),
                   .who = {},
                   .sequence = parse_sequence(cJSON_GetObjectItem(root, "sequence")),
                   .files = {}};
  if (content.sequence != 0) {
    content.who = {.subsys = text_member(root, "subsys"), .index = text_member(root, "index")};
  }
  return content;
}

// Returns the position behind the string that begins at `at`.
size_t end_of_string(std::string_view text, size_t at) {
  do {
    at = text.find_first_of("\"\\", at + 1);
    if (at == std::string_view::npos) {
      return text.size();
    }
  } while (text[at] == '\\' && ++at < text.size());
  return std::min(at + 1, text.size());
}

// A JSON text with empty lists and objects inside its outermost object.
std::string without_inner_values(std::string_view text) {
  std::string outer;
  size_t depth = 0;
  for (size_t at = 0; at < text.size();) {
    const char c = text[at];
    const bool closes = c == '}' || c == ']';
    depth -= closes && depth > 0 ? 1 : 0;
    const size_t end = c == '"' ? end_of_string(text, at) : at + 1;
    if (depth < 2) {
      outer.append(text.substr(at, end - at));
    }
    depth += c == '{' || c == '[' ? 1 : 0;
    at = end;
  }
  return outer;
}

}  // namespace

std::string render_manifest(const manifest &content) {
  json_document document;
  json_node root = document.root();
  root.set("clusterId", content.cluster);
  if (!content.firmware.empty()) {
    root.set("firmwareVersion", content.firmware);
  }
  if (!content.config_id.empty()) {
    root.set("configId", content.config_id);
  }
  if (content.sequence != 0) {
    root.set("subsys", content.who.subsys)
        .set("index", content.who.index)
        .set("sequence", content.sequence);
  }
  root.array("gpbs");
  std::string list;
  for (const published_file &file : content.files) {
    add_entry(list, file);
  }
  const std::string text = document.text();
  return text.substr(0, text.size() - end_of_list.size()) + list + std::string(end_of_list);
}

std::optional<manifest> parse_manifest(const std::string &text, other_category others) {
  const zot::json_tree root(cJSON_ParseWithLength(text.data(), text.size()));
  const cJSON *const list = cJSON_GetObjectItem(root.get(), "gpbs");
  if (!cJSON_IsArray(list)) {
    return std::nullopt;
  }
  manifest content = head_of(root.get());
  for (const cJSON *item = list->child; item != nullptr; item = item->next) {
    auto file = parse_file(item, others);
    if (!file) {
      return std::nullopt;
    }
    content.files.push_back(std::move(*file));
  }
  return content;
}

std::optional<manifest> parse_manifest_head(std::string_view text) {
  const std::string outer = without_inner_values(text);
  const zot::json_tree root(cJSON_ParseWithOpts(outer.c_str(), nullptr, 1));
  if (!cJSON_IsArray(cJSON_GetObjectItem(root.get(), "gpbs"))) {
    return std::nullopt;
  }
  return head_of(root.get());
}

}  // namespace zotconf
