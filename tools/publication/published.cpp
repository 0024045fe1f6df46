// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/published.hpp"

#include <algorithm>
#include <system_error>
#include <tuple>

#include "tools/publication/publication_store.hpp"

namespace zotconf {

stored_k read_published(const fs::path &publication, const element &who) {
  return read_k_file(latest_file(publication, who, ".k"),
                     latest_file(publication, who, ".checksum"), publication);
}

std::vector<element> published_elements(const fs::path &publication) {
  std::vector<element> found;
  std::error_code absent;
  for (const auto &subsys : fs::directory_iterator(publication / "file" / "knowledge", absent)) {
    std::error_code no_folder;
    for (const auto &index : fs::directory_iterator(subsys.path(), no_folder)) {
      const element who{.subsys = subsys.path().filename().string(),
                        .index = index.path().filename().string()};
      std::error_code unreadable;
      if (fs::exists(latest_file(publication, who, ".k"), unreadable)) {
        found.push_back(who);
      }
    }
  }
  std::ranges::sort(found, {}, [](const element &who) { return std::tie(who.subsys, who.index); });
  return found;
}

}  // namespace zotconf
