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
  // Adds an object, or replaces an earlier version of it. The text form accepts any spelling of the
  // version, such as "0x10".
  publication &put(std::string_view category, std::string_view key, std::uint64_t version,
                   std::string_view bytes);
  publication &put(std::string_view category, std::string_view key, std::string_view version,
                   std::string_view bytes);
  publication &remove(std::string_view category, std::string_view key);
  publication &clear();

  // Gives the file content other than K states for it.
  publication &damage(std::string_view category, std::string_view key, std::string_view bytes);

  publication &cluster(std::optional<std::string> id);
  publication &firmware(std::optional<std::string> version);
  publication &config_id(std::optional<std::string> id);

  // Texts to publish instead of the correct ones.
  publication &set_k_text(std::string text);
  publication &set_checksum_text(std::string text);

  [[nodiscard]] std::string k_text() const;
  // The digits and a newline.
  [[nodiscard]] std::string checksum_text() const;
  // Indexed by path, as K names it: /category/key/version.
  [[nodiscard]] std::map<std::string, std::string> files() const;

  // Writes K and checksum below "knowledge" and the GPB files below "config", in the layout of an
  // element's cache and of a dev mode directory. Files of an earlier configuration stay.
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
