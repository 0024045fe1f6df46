// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publication_store.hpp"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>

#include "zot_conf.h"

namespace zotconf {
namespace {

std::vector<std::string> latest_path(const element &who, const std::string &suffix) {
  return {"file", "knowledge", who.subsys, who.index, "latest", who.index + suffix};
}

std::optional<uint64_t> parse_version(std::string_view text) {
  uint64_t version = 0;
  const char *const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, version);
  if (error != std::errc{} || stop != end) {
    return std::nullopt;
  }
  return version;
}

std::string text_member(const cJSON *object, const char *name) {
  const char *const text = cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
  return text == nullptr ? "" : text;
}

void add_text(cJSON *object, const char *name, const std::string &text) {
  if (cJSON_AddStringToObject(object, name, text.c_str()) == nullptr) {
    throw std::bad_alloc();
  }
}

void add_file(cJSON *list, const published_file &file) {
  cJSON *const item = cJSON_CreateObject();
  if (!cJSON_AddItemToArray(list, item)) {
    throw std::bad_alloc();
  }
  add_text(item, "path",
           "/" + file.category_name + "/" + file.key + "/" + std::to_string(file.version));
  if (cJSON_AddNumberToObject(item, "size", static_cast<double>(file.size)) == nullptr) {
    throw std::bad_alloc();
  }
  add_text(item, "checksum", file.checksum);
}

std::optional<published_file> parse_file(const cJSON *item) {
  published_file file;
  const std::string path = text_member(item, "path");
  const double size = cJSON_GetNumberValue(cJSON_GetObjectItem(item, "size"));
  file.checksum = text_member(item, "checksum");
  const size_t key_at = path.find('/', 1);
  const size_t version_at = path.rfind('/');
  if (key_at == std::string::npos || version_at <= key_at || std::isnan(size) || size < 0 ||
      size > std::numeric_limits<int32_t>::max()) {
    return std::nullopt;
  }
  file.category_name = path.substr(1, key_at - 1);
  file.key = path.substr(key_at + 1, version_at - key_at - 1);
  const auto version = parse_version(std::string_view(path).substr(version_at + 1));
  if (!version || get_gpb_cat_by_cat_str(file.category_name.c_str(), &file.category) != 0) {
    return std::nullopt;
  }
  file.version = *version;
  file.size = static_cast<uint64_t>(size);
  return file;
}

}  // namespace

std::string render_manifest(const manifest &content) {
  const zot::json_tree root(cJSON_CreateObject());
  add_text(root.get(), "clusterId", content.cluster);
  if (!content.firmware.empty()) {
    add_text(root.get(), "firmwareVersion", content.firmware);
  }
  if (!content.config_id.empty()) {
    add_text(root.get(), "configId", content.config_id);
  }
  cJSON *const list = cJSON_AddArrayToObject(root.get(), "gpbs");
  if (list == nullptr) {
    throw std::bad_alloc();
  }
  for (const published_file &file : content.files) {
    add_file(list, file);
  }
  const zot::c_text text(cJSON_Print(root.get()));
  if (text == nullptr) {
    throw std::bad_alloc();
  }
  return std::string(text.get()) + "\n";
}

std::optional<manifest> parse_manifest(const std::string &text) {
  const zot::json_tree root(cJSON_ParseWithLength(text.data(), text.size()));
  const cJSON *const list = cJSON_GetObjectItem(root.get(), "gpbs");
  if (!cJSON_IsArray(list)) {
    return std::nullopt;
  }
  manifest content{.cluster = text_member(root.get(), "clusterId"),
                   .config_id = text_member(root.get(), "configId"),
                   .firmware = text_member(root.get(), "firmwareVersion"),
                   .files = {}};
  for (const cJSON *item = list->child; item != nullptr; item = item->next) {
    auto file = parse_file(item);
    if (!file) {
      return std::nullopt;
    }
    content.files.push_back(std::move(*file));
  }
  return content;
}

void publication_store::lock() {
  fs::create_directories(root_);
  const fs::path path = root_ / ".lock";
  lock_ = zot::descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!lock_.is_open()) {
    throw_errno("cannot open " + path.string());
  }
  while (::flock(lock_.get(), LOCK_EX) != 0) {
    if (errno != EINTR) {
      throw_errno("cannot lock " + path.string());
    }
  }
}

std::optional<std::string> publication_store::read_latest(const element &who,
                                                          const std::string &suffix) const {
  const auto parts = latest_path(who, suffix);
  const zot::descriptor file = open_beneath(root_, parts);
  if (!file.is_open()) {
    return std::nullopt;
  }
  return read_file_at(file.get(), parts.back());
}

std::optional<std::string> publication_store::read_k(const element &who) const {
  return read_latest(who, ".k");
}

std::optional<std::string> publication_store::read_checksum(const element &who) const {
  return read_latest(who, ".checksum");
}

fs::path publication_store::object_folder(const published_file &file) const {
  return root_ / "config" / file.category_name / file.key;
}

uint64_t publication_store::highest_version(const published_file &file) const {
  const fs::path folder = object_folder(file);
  if (!fs::exists(folder)) {
    return 0;
  }
  uint64_t highest = 0;
  for (const auto &entry : fs::directory_iterator(folder)) {
    highest = std::max(highest, parse_version(entry.path().filename().string()).value_or(0));
  }
  return highest;
}

bool publication_store::holds(const published_file &file) const {
  std::error_code absent;
  const auto size = fs::file_size(object_folder(file) / std::to_string(file.version), absent);
  return !absent && size == file.size;
}

void publication_store::write(const published_file &file, std::string_view bytes) const {
  const fs::path folder = object_folder(file);
  fs::create_directories(folder);
  replace_file(folder / std::to_string(file.version), bytes, durability::buffered);
}

// Everything reaches the medium before K names it: bytes, and the names of new files and folders.
void publication_store::flush() const {
  if (::syncfs(lock_.get()) != 0) {
    throw_errno("cannot flush " + root_.string());
  }
}

void publication_store::announce(const element &who, const std::string &k) const {
  fs::path path = root_;
  for (const std::string &part : latest_path(who, ".k")) {
    path /= part;
  }
  fs::create_directories(path.parent_path());
  flush();
  replace_file(path, k, durability::flushed);
  replace_file(path.replace_extension(".checksum"), sha256_text(k) + "\n", durability::flushed);
  flush();
}

zot::descriptor publication_store::open_member(const std::vector<std::string> &parts) const {
  return open_beneath(root_, parts);
}

}  // namespace zotconf
