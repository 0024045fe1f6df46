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

// What an unfinished commit keeps of the previous state.
struct undo_folder {
  std::map<std::string, std::optional<std::string>> k_files;  // nullopt: the file did not exist
  bool keeps_config = false;
  bool had_config = false;
  files config;
};

struct directory {
  bool exists = false;         // the directory itself
  bool has_config = false;     // its subdirectory config, even if empty
  bool has_knowledge = false;  // only in the cache
  files held;
  std::optional<undo_folder> undo = {};  // only in the cache

  [[nodiscard]] bool has(const std::string &name) const { return held.contains(name); }
  // Returns false when the file or the target directory does not exist.
  [[nodiscard]] bool copy(const directory &from, const std::string &name, const std::string &to);
  void rename(const std::string &name, const std::string &to);
  void remove_below(const std::string &prefix);
  [[nodiscard]] files below(const std::string &prefix) const;
  // Returns false when the directory does not exist.
  [[nodiscard]] bool begin_undo(bool keeps_config);
  // Returns false when the directory does not exist.
  bool restore_from_undo();
};

// A change to a file: write the bytes, or remove the path with everything below it. An empty name
// is the directory itself.
struct change {
  area where;
  std::string name;
  std::optional<std::string> bytes;
};

[[nodiscard]] std::vector<change> damage_of(const step &one, const directory &hit);
void apply(const change &what, directory &to);

// A K that was read with its checksum file and verified.
struct read_k {
  int status = 0;
  std::string bytes;  // also when the verification failed, if it could be read
  std::string digest;
  const configuration *found = nullptr;
};
[[nodiscard]] read_k read_and_verify(const directory &from, const std::string &name);

// Returns whether the file of an entry may be returned to the client, as a status.
[[nodiscard]] int verify(const directory &from, const gpb &file);

}  // namespace zot::faults
