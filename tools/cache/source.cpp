// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/source.hpp"

#include <stdexcept>

#include "tools/cache/cache.hpp"
#include "tools/output/error_text.hpp"
#include "tools/publication/published.hpp"

namespace zotconf {

stored_k read_source(const std::string &name, const element &who) {
  if (const auto slot = slot_of(name)) {
    const cache_paths paths = find_cache();
    require_readable(paths);
    return read_slot(paths, *slot);
  }
  const fs::path path(name);
  if (fs::is_regular_file(path)) {
    const fs::path checksum = fs::path(path).replace_extension(".checksum");
    return read_k_file(path, fs::exists(checksum) && checksum != path ? checksum : fs::path(), "");
  }
  if (!fs::is_directory(path)) {
    throw advised_error(name +
                            ": not a slot (current, last, refused, scratch), a publication "
                            "folder or a K file",
                        "zotconf show --help");
  }
  if (!who.index.empty()) {
    return read_published(path, {.subsys = who.subsys, .index = upper_case(who.index)});
  }
  const auto elements = published_elements(path);
  if (elements.size() != 1) {
    throw std::runtime_error(name + (elements.empty()
                                         ? ": contains no publication"
                                         : ": contains several elements; choose one with "
                                           "--index"));
  }
  return read_published(path, elements.front());
}

stored_k read_good_source(const std::string &name, const element &who) {
  stored_k k = read_source(name, who);
  if (!k.is_present) {
    throw advised_error(name + ": no K at " + k.k.string(),
                        slot_of(name) ? "zotconf status" : "zotconf publish --help");
  }
  if (k.wrong) {
    throw advised_error(k.bad_file().string() + ": " + described(*k.wrong),
                        slot_of(name) ? "zotconf verify" : command_after(k.wrong->code));
  }
  return k;
}

}  // namespace zotconf
