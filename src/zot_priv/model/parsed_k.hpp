// SPDX-License-Identifier: Apache-2.0
// The parsed text of a K. It never changes, so every K with the same text may share one tree.
// Copying the tree of ten thousand entries takes longer than the rest of a poll.
#pragma once

#include <memory>

#include "utilities/owner.hpp"
#include "zot_conf.h"

struct zot_parsed_k {
  uint32_t owners;
  cJSON *tree;
  // The checksum of the parsed text; empty if it is not known.
  char checksum[ZOT_CHECKSUM_LEN + 1];
};

namespace zot {

void release_parsed(zot_parsed_k *parsed);

using parsed_k = std::unique_ptr<zot_parsed_k, releaser<release_parsed>>;

// Adds an owner. Null for null.
parsed_k share(zot_parsed_k *parsed);

// Parses a text. `checksum` is that of the text, or null if it is not known. Returns null for a
// text that is not JSON, and when out of memory.
parsed_k parse_k(const char *text, const char *checksum);

// Frees the parsed content of a K.
void drop_parsed(zot_k &k);

// Makes a tree the parsed content of a K. `gpbs` is the array of its files.
void keep_parsed(zot_k &k, parsed_k parsed, cJSON *gpbs);

}  // namespace zot
