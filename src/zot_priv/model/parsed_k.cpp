// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/model/parsed_k.hpp"

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstdlib>

namespace zot {

void release_parsed(zot_parsed_k *parsed) {
  if (parsed != nullptr && --parsed->owners == 0) {
    cJSON_Delete(parsed->tree);
    std::free(parsed);
  }
}

parsed_k share(zot_parsed_k *parsed) {
  if (parsed != nullptr) {
    ++parsed->owners;
  }
  return parsed_k(parsed);
}

parsed_k parse_k(const char *text, const char *checksum) {
  parsed_k parsed(make_zeroed<zot_parsed_k>().release());
  if (parsed == nullptr) {
    return nullptr;
  }
  parsed->owners = 1;
  parsed->tree = cJSON_Parse(text);
  if (checksum != nullptr) {
    static_cast<void>(std::snprintf(parsed->checksum, sizeof parsed->checksum, "%s", checksum));
  }
  return parsed->tree != nullptr ? std::move(parsed) : nullptr;
}

void drop_parsed(zot_k &k) {
  const bool is_held = k.parsed != nullptr && k.json == k.parsed->tree;
  if (!is_held) {
    cJSON_Delete(k.json);
  }
  release_parsed(k.parsed);
  k.parsed = nullptr;
  k.json = nullptr;
  k.gpbs = nullptr;
}

void keep_parsed(zot_k &k, parsed_k parsed, cJSON *gpbs) {
  drop_parsed(k);
  k.json = parsed->tree;
  k.gpbs = gpbs;
  k.parsed = parsed.release();
}

}  // namespace zot
