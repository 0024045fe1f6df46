// SPDX-License-Identifier: Apache-2.0
// A configuration as a controller publishes it: K, its checksum and the GPB files.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zot::test {

class publication {
 public:
  // One object; another version of the same object replaces it. The text form takes any spelling of
  // the version, such as "0x10".
  publication &put(std::string_view category, std::string_view key, std::uint64_t version,
                   std::string_view bytes);
  publication &put(std::string_view category, std::string_view key, std::string_view version,
                   std::string_view bytes);
  publication &remove(std::string_view category, std::string_view key);
  publication &clear();

  // Lets the file hold other bytes than K states for it.
  publication &damage(std::string_view category, std::string_view key, std::string_view bytes);

  publication &cluster(std::optional<std::string> id);
  publication &firmware(std::optional<std::string> version);
  publication &config_id(std::optional<std::string> id);

  // Texts to publish in place of the right ones.
  publication &set_k_text(std::string text);
  publication &set_checksum_text(std::string text);

  [[nodiscard]] std::string k_text() const;
  // Digits and a newline.
  [[nodiscard]] std::string checksum_text() const;
  // By path, as K names it: /category/key/version.
  [[nodiscard]] std::map<std::string, std::string> files() const;

  // Writes K and checksum below "knowledge" and the GPB files below "config", as the cache of an
  // element and a directory for dev mode have them. Files of an earlier configuration stay.
  void install_cache(const std::string &conf_root) const;
  void install_dev(const std::string &dir) const;
  void install_k(const std::string &dir, const std::string &k_name,
                 const std::string &checksum_name) const;

 private:
  struct object {
    std::string version;
    std::string stated;
    std::string stored;
  };
  using object_name = std::pair<std::string, std::string>;

  std::map<object_name, object> objects_;
  std::optional<std::string> cluster_ = "cluster-1";
  std::optional<std::string> firmware_ = "1.0.0";
  std::optional<std::string> config_id_ = "00000000-0000-0000-0000-000000000001";
  std::optional<std::string> k_text_;
  std::optional<std::string> checksum_text_;
};

}  // namespace zot::test
