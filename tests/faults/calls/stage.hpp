// SPDX-License-Identifier: Apache-2.0
// The environment of a sweep: configurations, their services, and the folders of one element.
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

// Each configuration has a letter; '-' stands for none.
inline constexpr std::string_view letters = "abcd";
inline constexpr char none = '-';

[[nodiscard]] const publication &configuration(char letter);

// The configuration to which a K belongs.
[[nodiscard]] char letter_of_k(const zot_k *k);

// The configuration whose files the entries are, exactly; deleted entries do not count. Throws when
// they are a mixture, or when one has wrong bytes.
[[nodiscard]] char letter_of_entries(const returned_list &list);

// Everything below a folder: files with their bytes, folders with a slash at the end of the name.
using file_tree = std::map<std::string, std::string>;

[[nodiscard]] file_tree read_tree(const std::string &root);
// Makes the content of a folder exactly this.
void write_tree(const std::string &root, const file_tree &tree);
// Adds this to a folder.
void add_tree(const std::string &root, const file_tree &tree);

// The folders of an element below its root, as keys of file_tree.
inline constexpr const char *conf_folder = "conf/writable/zot/";
inline constexpr const char *tmp_folder = "scratch/tmp/zot/";

// The configuration that a cache contains completely.
[[nodiscard]] char letter_on_disk(const file_tree &tree);

// One service for each configuration, in a separate process: so this process has no threads and can
// fork.
class services {
 public:
  services();
  services(const services &) = delete;
  services &operator=(const services &) = delete;
  ~services();

  // For `none`, returns a port where nothing listens.
  [[nodiscard]] std::uint16_t port(char letter) const;

 private:
  std::array<std::uint16_t, letters.size() + 1> ports_{};
  pid_t process_ = -1;
  int life_line_ = -1;
};

}  // namespace zot::test
