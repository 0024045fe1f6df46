// SPDX-License-Identifier: Apache-2.0
// Archives as the service should send them, and as it should not.
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
  std::string target = {};  // for a link
  unsigned mode = 0644;
};

// A tar archive compressed with gzip. Names are stored unchanged.
[[nodiscard]] std::string make_tar_gz(const std::vector<member> &members);

// The names that a request for an archive lists. Throws if the body is not such a request. An empty
// body requests nothing.
[[nodiscard]] std::vector<std::string> requested_names(const std::string &body);

// An archive of the requested files, as "config/<category>/<key>/<version>". Names of unpublished
// files are skipped.
[[nodiscard]] std::string archive_of(const publication &published,
                                     const std::vector<std::string> &names);

}  // namespace zot::test
