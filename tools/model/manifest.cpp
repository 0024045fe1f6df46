// SPDX-License-Identifier: Apache-2.0
#include "tools/model/manifest.hpp"

#include <cjson/cJSON.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

#include "tools/model/names.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

// The list of a K as add() writes it.
constexpr std::string_view begin_of_list = "\n\t\"gpbs\":\t[";
constexpr std::string_view before_path = "{\n\t\t\t\"path\":\t";
constexpr std::string_view before_size = ",\n\t\t\t\"size\":\t";
constexpr std::string_view before_checksum = ",\n\t\t\t\"checksum\":\t";
constexpr std::string_view after_entry = "\n\t\t}";
constexpr std::string_view between_entries = ", ";
constexpr std::string_view end_of_list = "]\n}\n";

// An entry of the list, before its values are checked.
struct entry_values {
  std::string_view path;
  double size = 0;
  std::string_view checksum;
};

struct k_values {
  zot::json_tree root;  // without the entries, if these were read as they are written
  std::vector<entry_values> entries;
};

const char *text_member(const cJSON *object, const char *name) {
  const char *const text = cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
  return text == nullptr ? "" : text;
}

std::string path_of(const published_file &file, uint64_t version) {
  std::string path = "/";
  return path.append(file.category_name)
      .append("/")
      .append(file.key)
      .append("/")
      .append(std::to_string(version));
}

bool is_plain(char c) {
  return c >= 0x20 && c <= 0x7e && c != '"' && c != '\\';
}

// Adds a text as a JSON string, as cJSON prints it.
void add_quoted(std::string &to, const std::string &text) {
  if (std::ranges::all_of(text, is_plain)) {
    to.append(1, '"').append(text).append(1, '"');
    return;
  }
  const zot::json_tree item(cJSON_CreateString(valid_utf8(text).c_str()));
  const zot::c_text printed(cJSON_PrintUnformatted(item.get()));
  if (printed == nullptr) {
    throw std::bad_alloc();
  }
  to += printed.get();
}

bool skip(std::string_view &rest, std::string_view expected) {
  const bool is_there = rest.starts_with(expected);
  rest.remove_prefix(is_there ? expected.size() : 0);
  return is_there;
}

// A JSON string in which no character is escaped.
bool take_plain(std::string_view &rest, std::string_view &text) {
  if (!skip(rest, "\"")) {
    return false;
  }
  const auto *const end = std::ranges::find_if_not(rest, is_plain);
  text = std::string_view(rest.begin(), end);
  rest.remove_prefix(text.size());
  return skip(rest, "\"");
}

bool take_size(std::string_view &rest, double &size) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  rest.remove_prefix(static_cast<size_t>(end - rest.data()));
  size = static_cast<double>(number);
  return error == std::errc();
}

bool take_entry(std::string_view &rest, entry_values &entry) {
  return skip(rest, before_path) && take_plain(rest, entry.path) && skip(rest, before_size) &&
         take_size(rest, entry.size) && skip(rest, before_checksum) &&
         take_plain(rest, entry.checksum) && skip(rest, after_entry);
}

// Reads the text that a manifest_text makes; nullopt for any other text. A tree of all entries
// takes several times as long, and a fleet has millions of entries.
std::optional<k_values> read_as_written(const std::string &text) {
  const size_t at = text.find(begin_of_list);
  if (at == std::string::npos) {
    return std::nullopt;
  }
  const size_t list = at + begin_of_list.size();
  std::string_view rest = std::string_view(text).substr(list);
  std::vector<entry_values> entries;
  do {
    if (!take_entry(rest, entries.emplace_back())) {
      return std::nullopt;
    }
  } while (skip(rest, between_entries));
  if (rest != end_of_list) {
    return std::nullopt;
  }
  const std::string head = text.substr(0, list).append(end_of_list);
  zot::json_tree root(cJSON_ParseWithLength(head.data(), head.size()));
  // Of two lists, the first one counts.
  const cJSON *const found = cJSON_GetObjectItem(root.get(), "gpbs");
  if (!cJSON_IsArray(found) || found->next != nullptr) {
    return std::nullopt;
  }
  return k_values{.root = std::move(root), .entries = std::move(entries)};
}

std::optional<k_values> read_as_json(const std::string &text) {
  k_values values{.root = zot::json_tree(cJSON_ParseWithLength(text.data(), text.size())),
                  .entries = {}};
  const cJSON *const list = cJSON_GetObjectItem(values.root.get(), "gpbs");
  if (!cJSON_IsArray(list)) {
    return std::nullopt;
  }
  for (const cJSON *item = list->child; item != nullptr; item = item->next) {
    values.entries.push_back({.path = text_member(item, "path"),
                              .size = cJSON_GetNumberValue(cJSON_GetObjectItem(item, "size")),
                              .checksum = text_member(item, "checksum")});
  }
  return values;
}

std::optional<published_file> parse_file(const entry_values &entry, other_category others) {
  const std::string_view path = entry.path;
  const size_t key_at = path.find('/', 1);
  const size_t version_at = path.rfind('/');
  if (key_at == std::string_view::npos || key_at < 2 || version_at < key_at + 2 ||
      std::isnan(entry.size) || entry.size < 0 ||
      entry.size > std::numeric_limits<int32_t>::max()) {
    return std::nullopt;
  }
  const auto version = parse_version(path.substr(version_at + 1));
  if (!version) {
    return std::nullopt;
  }
  published_file file{.category = -1,
                      .category_name = std::string(path.substr(1, key_at - 1)),
                      .key = std::string(path.substr(key_at + 1, version_at - key_at - 1)),
                      .version = *version,
                      .size = static_cast<uint64_t>(entry.size),
                      .checksum = std::string(entry.checksum)};
  const bool is_known = get_gpb_cat_by_cat_str(file.category_name.c_str(), &file.category) == 0;
  if (!is_known && others == other_category::refused) {
    return std::nullopt;
  }
  // A path that is written in another way, with 007 for example, names another file in a request.
  return path_of(file, file.version) == path ? std::optional(std::move(file)) : std::nullopt;
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

// The text before the list and its first bracket.
std::string render_head(const manifest &content) {
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
  std::string text = document.text();
  text.resize(text.size() - end_of_list.size());
  return text;
}

}  // namespace

manifest_text::manifest_text(const manifest &head) : text_(render_head(head)) {}

void manifest_text::add(const published_file &file, uint64_t version) {
  text_.append(is_empty_ ? "" : between_entries).append(before_path);
  is_empty_ = false;
  add_quoted(text_, path_of(file, version));
  text_.append(before_size).append(std::to_string(file.size)).append(before_checksum);
  add_quoted(text_, file.checksum);
  text_.append(after_entry);
}

std::string manifest_text::finish() {
  text_.append(end_of_list);
  return std::move(text_);
}

std::string render_manifest(const manifest &content) {
  manifest_text text(content);
  for (const published_file &file : content.files) {
    text.add(file, file.version);
  }
  return text.finish();
}

std::optional<manifest> parse_manifest(const std::string &text, other_category others) {
  auto values = read_as_written(text);
  if (!values) {
    values = read_as_json(text);
  }
  if (!values) {
    return std::nullopt;
  }
  manifest content = head_of(values->root.get());
  content.files.reserve(values->entries.size());
  for (const entry_values &entry : values->entries) {
    auto file = parse_file(entry, others);
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
