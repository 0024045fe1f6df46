// SPDX-License-Identifier: Apache-2.0
// Sets of categories, one bit per category.
#include "zot_conf.h"

namespace {

constexpr uint32_t bits_per_word = 32;

bool is_category(int32_t category) {
  return category >= 0 && category < ZOT_CAT_COUNT;
}

}  // namespace

int zot_catset_set_all(zot_catset *catset) {
  if (catset == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  for (int32_t category = 0; category < ZOT_CAT_COUNT; ++category) {
    zot_catset_add(catset, category);
  }
  return ZOT_OK;
}

int zot_catset_add(zot_catset *catset, int32_t category) {
  if (catset == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (!is_category(category)) {
    return ZOT_ERR_WRONG_INPUT;
  }
  const auto bit = static_cast<uint32_t>(category);
  catset->word[bit / bits_per_word] |= 1U << (bit % bits_per_word);
  return ZOT_OK;
}

bool zot_catset_has(const zot_catset *catset, int32_t category) {
  if (catset == nullptr || !is_category(category)) {
    return false;
  }
  const auto bit = static_cast<uint32_t>(category);
  return (catset->word[bit / bits_per_word] >> (bit % bits_per_word) & 1U) != 0;
}
