// SPDX-License-Identifier: Apache-2.0
// The entries of a GPB list as texts.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "zot_conf.h"

namespace zot::test {

inline const zot_gpb &gpb_at(const zot_list *node) {
  return *reinterpret_cast<const zot_gpb *>(reinterpret_cast<const char *>(node) -
                                            offsetof(zot_gpb, node));
}

// "/category/key/version=stat"
inline std::vector<std::string> marked_paths(const zot_list *gpbs) {
  std::vector<std::string> paths;
  for (const zot_list *node = gpbs->next; node != gpbs; node = node->next) {
    const zot_gpb &gpb = gpb_at(node);
    paths.push_back(std::string(gpb.path) + "=" + std::to_string(gpb.stat));
  }
  return paths;
}

// The bytes of each entry; empty where none are loaded.
inline std::vector<std::string> loaded_bytes(const zot_list *gpbs) {
  std::vector<std::string> bytes;
  for (const zot_list *node = gpbs->next; node != gpbs; node = node->next) {
    const zot_gpb &gpb = gpb_at(node);
    bytes.push_back(gpb.content != nullptr ? std::string(gpb.content, gpb.size) : std::string());
  }
  return bytes;
}

}  // namespace zot::test
