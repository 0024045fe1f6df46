// SPDX-License-Identifier: Apache-2.0
// The content of a K (knowledge file, the manifest of a configuration), and its text form.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/model/names.hpp"

namespace zotconf {

// One file of a configuration.
struct published_file {
  int32_t category = 0;
  std::string category_name;
  std::string key;
  uint64_t version = 0;
  uint64_t size = 0;
  std::string checksum;
};

// The content of a K.
struct manifest {
  std::string cluster;
  std::string config_id;  // empty: not stated
  std::string firmware;   // empty: not stated
  // The element that the configuration is for, and a number that rises with each publication for
  // it. With them a signature is valid for one element and one order. The library reads neither.
  element who{};
  uint64_t sequence = 0;  // 0: not stated, and neither is `who`
  std::vector<published_file> files;
};

std::string render_manifest(const manifest &content);

// The text of a K whose files are not copied into a manifest: the same as render_manifest() writes.
class manifest_text {
 public:
  // The files of `head` are ignored.
  explicit manifest_text(const manifest &head);
  void add(const published_file &file, uint64_t version);
  // The text, once all files are added.
  std::string finish();

 private:
  std::string text_;
  bool is_empty_ = true;
};

// What to do with a file of a category that this version does not know. The library skips such an
// entry, so a newer controller may publish it to an older element.
enum class other_category { refused, kept };

// Returns nullopt when the text is not a valid K. The category number of a kept file of another
// category is -1.
std::optional<manifest> parse_manifest(const std::string &text,
                                       other_category others = other_category::refused);

// Reads everything but the list of files, which it skips without checking it. For a K of 500 files
// this takes a small part of the time of parse_manifest(). Returns nullopt when the text is not a
// JSON object with such a list.
std::optional<manifest> parse_manifest_head(std::string_view text);

}  // namespace zotconf
