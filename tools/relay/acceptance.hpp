// SPDX-License-Identifier: Apache-2.0
// Decides whether a K that upstream offers may come into service.
#pragma once

#include <ctime>
#include <optional>
#include <string>

#include "tools/model/manifest.hpp"
#include "tools/publication/keyring.hpp"

namespace zotconf {

// What has to hold for every K of this relay.
struct acceptance {
  element who;
  const keyring *trusted = nullptr;  // null: K need not be signed
};

// What was accepted before.
struct accepted_before {
  uint64_t sequence = 0;  // 0: none was stated
  std::string digest;     // SHA-256 of the K that had it; empty: there is none
  std::time_t signed_at = 0;
};

// The result for one K.
struct judgement {
  std::string wrong;  // why it is refused; empty: it is accepted
  manifest content;
  std::string signer;         // empty: not signed
  std::time_t signed_at = 0;  // 0: not stated
};

// A longer K is never parsed. The library downloads no longer one either.
constexpr uint64_t longest_k = uint64_t{64} << 20;

// `digest` is the SHA-256 of `k`. The signature is checked before the content of K is looked at.
judgement judge_offer(const acceptance &rules, const std::string &k, const std::string &digest,
                      const std::optional<std::string> &signature, const accepted_before &before);

}  // namespace zotconf
