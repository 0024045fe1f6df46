// SPDX-License-Identifier: Apache-2.0
// What a publication does with the K of one element. The same for one element and for a fleet.
#pragma once

#include <cstdint>
#include <string>

#include "tools/model/manifest.hpp"
#include "tools/publication/plan.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/publication/signature.hpp"

namespace zotconf {

// The latest K of an element before a publication.
struct previous_k {
  std::string text;  // empty: there is none
  manifest content;  // empty if there is none, or if it is damaged
  bool is_damaged = false;
};

previous_k read_previous(const publication_store &store, const element &who);

enum class k_action { keep, sign, announce };

struct element_update {
  k_action action = k_action::keep;
  uint64_t sequence = 0;   // of the K that is in force afterwards
  bool is_signed = false;  // whether that K has a signature
};

// The same content keeps its K, for another text is another configuration to an element. Only a K
// without a sequence cannot be signed as it is. `signs` is null for a K that is not signed.
element_update update_of(const publication_store &store, const element &who,
                         const previous_k &previous, const plan &planned, const signer *signs);

// The text of K with this element and sequence.
std::string render_for(const element &who, uint64_t sequence, manifest next);

}  // namespace zotconf
