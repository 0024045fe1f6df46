// SPDX-License-Identifier: Apache-2.0
// The parsed text of a K. Nobody changes it, so every K with the same text may share one tree: a
// copy of the tree of ten thousand entries takes longer than all the rest of a poll.
#pragma once

#include <cjson/cJSON.h>

#include <memory>

#include "utilities/owner.hpp"

namespace zot {

// One more owner of a tree; no tree has none.
cJSON *share_json(cJSON *tree);

// The last owner's release frees the tree.
void release_json(cJSON *tree);

using shared_json = std::unique_ptr<cJSON, releaser<release_json>>;

}  // namespace zot
