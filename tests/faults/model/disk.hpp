// SPDX-License-Identifier: Apache-2.0
// The two directories of an element in the model, and changes to them from outside.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "catalogue.hpp"
#include "steps.hpp"

namespace zot::faults {

// What a commit that has not come to its end keeps of what was there before it.
struct undo_folder {
  std::map<std::string, std::optional<std::string>> k_files;  // none: it was not there
  bool keeps_config = false;
  bool had_config = false;
  files config;
};

struct directory {
  bool exists = false;         // itself
  bool has_config = false;     // the directory below it, with or without files
  bool has_knowledge = false;  // of the cache only
  files held;
  std::optional<undo_folder> undo = {};  // of the cache only

  [[nodiscard]] bool has(const std::string &name) const { return held.contains(name); }
  // False when there is no such file, or no directory to copy it into.
  [[nodiscard]] bool copy(const directory &from, const std::string &name, const std::string &to);
  void rename(const std::string &name, const std::string &to);
  void remove_below(const std::string &prefix);
  [[nodiscard]] files below(const std::string &prefix) const;
  // False when there is no directory to keep anything of.
  [[nodiscard]] bool begin_undo(bool keeps_config);
  // False when there is no directory to put anything back into.
  bool restore_from_undo();
};

// To do to the files: write the bytes, or remove the name with everything below it. An empty name
// is the whole directory.
struct change {
  area where;
  std::string name;
  std::optional<std::string> bytes;
};

[[nodiscard]] std::vector<change> damage_of(const step &one, const directory &hit);
void apply(const change &what, directory &to);

// A K with its checksum file, read and verified.
struct read_k {
  int status = 0;
  std::string bytes;  // also of a K that did not pass, when it could be read
  std::string digest;
  const configuration *found = nullptr;
};
[[nodiscard]] read_k read_and_verify(const directory &from, const std::string &name);

// Whether the file of an entry can be handed out.
[[nodiscard]] int verify(const directory &from, const gpb &file);

}  // namespace zot::faults
