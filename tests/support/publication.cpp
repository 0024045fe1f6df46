// SPDX-License-Identifier: Apache-2.0
#include "tests/support/publication.hpp"

#include <cjson/cJSON.h>

#include <memory>

#include "tests/support/files.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

std::string path_of(const std::pair<std::string, std::string> &name, const std::string &version) {
  return "/" + name.first + "/" + name.second + "/" + version;
}

void add_text(cJSON *object, const char *name, const std::optional<std::string> &text) {
  if (text.has_value()) {
    cJSON_AddStringToObject(object, name, text->c_str());
  }
}

}  // namespace

publication &publication::put(std::string_view category, std::string_view key,
                              std::uint64_t version, std::string_view bytes) {
  return put(category, key, std::to_string(version), bytes);
}

publication &publication::put(std::string_view category, std::string_view key,
                              std::string_view version, std::string_view bytes) {
  objects_[{std::string(category), std::string(key)}] = {std::string(version), std::string(bytes),
                                                         std::string(bytes)};
  return *this;
}

publication &publication::remove(std::string_view category, std::string_view key) {
  objects_.erase({std::string(category), std::string(key)});
  return *this;
}

publication &publication::clear() {
  objects_.clear();
  return *this;
}

publication &publication::damage(std::string_view category, std::string_view key,
                                 std::string_view bytes) {
  objects_.at({std::string(category), std::string(key)}).stored = bytes;
  return *this;
}

publication &publication::cluster(std::optional<std::string> id) {
  cluster_ = std::move(id);
  return *this;
}

publication &publication::firmware(std::optional<std::string> version) {
  firmware_ = std::move(version);
  return *this;
}

publication &publication::config_id(std::optional<std::string> id) {
  config_id_ = std::move(id);
  return *this;
}

publication &publication::set_k_text(std::string text) {
  k_text_ = std::move(text);
  return *this;
}

publication &publication::set_checksum_text(std::string text) {
  checksum_text_ = std::move(text);
  return *this;
}

std::string publication::k_text() const {
  if (k_text_.has_value()) {
    return *k_text_;
  }
  const json_tree k(cJSON_CreateObject());
  add_text(k.get(), "clusterId", cluster_);
  add_text(k.get(), "firmwareVersion", firmware_);
  add_text(k.get(), "configId", config_id_);
  cJSON *gpbs = cJSON_AddArrayToObject(k.get(), "gpbs");
  for (const auto &[name, content] : objects_) {
    cJSON *gpb = cJSON_CreateObject();
    cJSON_AddStringToObject(gpb, "path", path_of(name, content.version).c_str());
    cJSON_AddNumberToObject(gpb, "size", static_cast<double>(content.stated.size()));
    cJSON_AddStringToObject(gpb, "checksum", sha256_hex(content.stated).c_str());
    cJSON_AddItemToArray(gpbs, gpb);
  }
  return c_text(cJSON_PrintUnformatted(k.get())).get();
}

std::string publication::checksum_text() const {
  return checksum_text_.value_or(sha256_hex(k_text()) + "\n");
}

std::map<std::string, std::string> publication::files() const {
  std::map<std::string, std::string> by_path;
  for (const auto &[name, content] : objects_) {
    by_path.emplace(path_of(name, content.version), content.stored);
  }
  return by_path;
}

void publication::install_cache(const std::string &conf_root) const {
  install_k(conf_root + "/knowledge", "subsys.k", "subsys.checksum");
  for (const auto &[path, bytes] : files()) {
    write_bytes(conf_root + "/config" + path, bytes);
  }
}

void publication::install_dev(const std::string &dir) const {
  install_cache(dir);
}

void publication::install_k(const std::string &dir, const std::string &k_name,
                            const std::string &checksum_name) const {
  write_bytes(dir + "/" + k_name, k_text());
  write_bytes(dir + "/" + checksum_name, checksum_text());
}

}  // namespace zot::test
