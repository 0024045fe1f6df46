// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/element_update.hpp"

#include <algorithm>
#include <ctime>
#include <utility>

namespace zotconf {
namespace {

// Above the one before, and above all of an element's past where its K was lost.
uint64_t sequence_after(uint64_t before) {
  return std::max(before + 1, static_cast<uint64_t>(std::max<std::time_t>(std::time(nullptr), 1)));
}

bool is_announced(const publication_store &store, const element &who, const previous_k &previous,
                  const std::string &k) {
  return previous.text == k && store.read_checksum(who) == sha256_text(k) + "\n";
}

}  // namespace

previous_k read_previous(const publication_store &store, const element &who) {
  auto text = store.read_k(who);
  if (!text) {
    return {};
  }
  auto content = parse_manifest(*text);
  const bool is_damaged = !content;
  return {.text = std::move(*text),
          .content = is_damaged ? manifest{} : std::move(*content),
          .is_damaged = is_damaged};
}

element_update update_of(const publication_store &store, const element &who,
                         const previous_k &previous, const plan &planned, const signer *signs) {
  const uint64_t before = previous.content.sequence;
  const bool may_stay =
      planned.written == 0 && planned.changes.empty() && (signs == nullptr || before != 0);
  const std::string same = may_stay ? render_for(who, before, planned.next) : "";
  if (!may_stay || !is_announced(store, who, previous, same)) {
    return {.action = k_action::announce,
            .sequence = sequence_after(before),
            .is_signed = signs != nullptr};
  }
  const auto signature = store.read_signature(who);
  if (signs != nullptr && !(signature && signs->has_signed(same, *signature))) {
    return {.action = k_action::sign, .sequence = before, .is_signed = true};
  }
  return {.action = k_action::keep, .sequence = before, .is_signed = signature.has_value()};
}

std::string render_for(const element &who, uint64_t sequence, manifest next) {
  next.who = who;
  next.sequence = sequence;
  return render_manifest(next);
}

}  // namespace zotconf
