// SPDX-License-Identifier: Apache-2.0
// The versions that a publication folder has for each object, with those that a publication adds.
// Each stored file is read at most once, however many elements use it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/model/manifest.hpp"
#include "tools/publication/publication_store.hpp"

namespace zotconf {

// What a publication has to do with a version that it uses.
enum class version_state {
  stored,         // nothing: the folder has these bytes
  to_write,       // write the file
  being_written,  // nothing more: an earlier call returned to_write
  taken           // use another version: this publication uses this one for other bytes
};

class version_catalog {
 public:
  // The store must be locked, and outlive this object.
  explicit version_catalog(const publication_store &store);

  // The highest version with these bytes, or a version above `known` that was never used. The
  // version of `file` is ignored.
  [[nodiscard]] uint64_t choose(const published_file &file, uint64_t known);
  // Uses the version of `file` for its bytes. A stored file is what repairs a damaged one, so its
  // bytes are compared and not only its size.
  [[nodiscard]] version_state use(const published_file &file);

 private:
  struct version_info {
    std::string checksum;  // empty: no regular file of the size that was wanted
    version_state state = version_state::stored;
    bool is_used = false;
  };
  // The versions of an object that have one size.
  struct size_group {
    std::vector<uint64_t> unread;  // lowest first
    std::unordered_map<std::string, uint64_t> highest;
  };
  struct object_info {
    bool is_listed = false;
    uint64_t highest = 0;
    std::unordered_map<uint64_t, version_info> versions;
    std::map<uint64_t, size_group> sizes;
  };

  object_info &object_of(const published_file &file);
  void list(object_info &object, const published_file &file) const;
  void read_until(object_info &object, size_group &group, const published_file &file) const;
  static void forget(object_info &object, uint64_t version);
  static void add(object_info &object, const published_file &file);

  const publication_store &store_;
  uint64_t spent_;
  std::string name_;  // of an object; kept for its memory
  std::unordered_map<std::string, object_info> objects_;
};

}  // namespace zotconf
