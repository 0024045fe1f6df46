// SPDX-License-Identifier: Apache-2.0
// Archives as the service sends them, and as it should not.
#pragma once

#include <string>
#include <vector>

#include "tests/support/publication.hpp"

namespace zot::test {

enum class member_type { file, dir, symlink, hardlink, fifo, chardev };

struct member {
  std::string path;
  std::string bytes = {};
  member_type type = member_type::file;
  std::string target = {};  // of a link
  unsigned mode = 0644;
};

// A tar archive, compressed with gzip; the names go in as they stand.
[[nodiscard]] std::string make_tar_gz(const std::vector<member> &members);

// The names that a request for an archive asks for; throws when the body is no such request. An
// empty body asks for nothing.
[[nodiscard]] std::vector<std::string> requested_names(const std::string &body);

// The files asked for, as "config/<category>/<key>/<version>"; names that nothing is published
// under are left out.
[[nodiscard]] std::string archive_of(const publication &published,
                                     const std::vector<std::string> &names);

}  // namespace zot::test
