// SPDX-License-Identifier: Apache-2.0
// The parsed text of a K. Nobody changes it, so every K with the same text may share one tree: a
// copy of the tree of ten thousand entries takes longer than all the rest of a poll.
#pragma once

#include <memory>

#include "utilities/owner.hpp"
#include "zot_conf.h"

struct zot_parsed_k {
  uint32_t owners;
  cJSON *tree;
  // Of the text that was parsed; empty when nobody told it.
  char checksum[ZOT_CHECKSUM_LEN + 1];
};

namespace zot {

void release_parsed(zot_parsed_k *parsed);

using parsed_k = std::unique_ptr<zot_parsed_k, releaser<release_parsed>>;

// One more owner; none for none.
parsed_k share(zot_parsed_k *parsed);

// Parses a text whose checksum is known, or null. Null for what is no JSON, and without memory.
parsed_k parse_k(const char *text, const char *checksum);

// Frees the parsed content of a K.
void drop_parsed(zot_k &k);

// Makes a tree the parsed content of a K, with the array of its files.
void keep_parsed(zot_k &k, parsed_k parsed, cJSON *gpbs);

}  // namespace zot
