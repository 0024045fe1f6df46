// SPDX-License-Identifier: Apache-2.0
// The setting of a sweep: configurations, their services, and the folders of one element.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "tests/support/element.hpp"
#include "tests/support/files.hpp"
#include "tests/support/publication.hpp"

namespace zot::test {

// Configurations are told by letters; no configuration is none.
inline constexpr std::string_view letters = "abcd";
inline constexpr char none = '-';

[[nodiscard]] const publication &configuration(char letter);

// The configuration that bytes are the K of.
[[nodiscard]] char letter_of_k(const zot_k *k);

// The configuration whose files the entries are, all of them and no other; those that are told to
// be deleted don't count. Throws when they are a mixture, or when one has other bytes.
[[nodiscard]] char letter_of_entries(const returned_list &list);

// Everything below a folder: files with their bytes, folders with a slash at the end.
using file_tree = std::map<std::string, std::string>;

[[nodiscard]] file_tree read_tree(const std::string &root);
// Makes a folder hold just that.
void write_tree(const std::string &root, const file_tree &tree);
// Adds it to what is there.
void add_tree(const std::string &root, const file_tree &tree);

// The folders of an element below one root, as file_tree names them.
inline constexpr const char *conf_folder = "conf/writable/zot/";
inline constexpr const char *tmp_folder = "scratch/tmp/zot/";

// The configuration that a cache holds with everything that belongs to it.
[[nodiscard]] char letter_on_disk(const file_tree &tree);

// One service for each configuration, in a process of their own: this one stays without threads
// and can be forked.
class services {
 public:
  services();
  services(const services &) = delete;
  services &operator=(const services &) = delete;
  ~services();

  // A port where nothing listens for no configuration.
  [[nodiscard]] std::uint16_t port(char letter) const;

 private:
  std::array<std::uint16_t, letters.size() + 1> ports_{};
  pid_t process_ = -1;
  int life_line_ = -1;
};

}  // namespace zot::test
