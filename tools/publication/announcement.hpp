// SPDX-License-Identifier: Apache-2.0
// Replaces the K of one or many elements. Everything new is written beside the files in force and
// flushed once; then each element's files are replaced by renaming: the signature, K, the checksum
// file. So a checksum announces no K and no file that is not on the medium.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/model/manifest.hpp"
#include "tools/model/names.hpp"
#include "tools/output/console.hpp"
#include "tools/publication/publication_store.hpp"

namespace zotconf {

class announcement {
 public:
  // The store must be locked, and outlive this object.
  explicit announcement(const publication_store &store) : store_(store) {}
  announcement(const announcement &) = delete;
  announcement &operator=(const announcement &) = delete;
  // Removes what was added and not announced.
  ~announcement();

  // Without a signature, that of the previous K is removed.
  void add(const element &who, std::string_view k, const std::optional<std::string> &signature);
  // A signature for the K that is there.
  void add_signature(const element &who, std::string_view signature);
  // Before K is replaced, the time of the dropped files is set to now. Returns how many of them it
  // could not set.
  [[nodiscard]] size_t finish(const std::vector<published_file> &dropped, progress &announced);

 private:
  struct addition {
    element who;
    bool has_k = false;
    bool has_signature = false;
  };

  void write(const element &who, const char *suffix, std::string_view bytes) const;
  void replace(const addition &each) const;

  const publication_store &store_;
  std::vector<addition> added_;
  size_t announced_ = 0;
};

}  // namespace zotconf
