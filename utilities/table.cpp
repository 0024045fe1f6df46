// SPDX-License-Identifier: Apache-2.0
// Category and sub-system names, the path of a GPB file, three-way comparisons.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "zot_conf.h"

namespace {

struct named_value {
  int32_t value;
  const char *name;
};

#define ZOT_CATEGORY_ROW(constant, value, name) named_value{value, name},
constexpr std::array categories{ZOT_CATEGORY_MAP(ZOT_CATEGORY_ROW)};
#undef ZOT_CATEGORY_ROW

consteval bool categories_are_numbered_by_row() {
  int32_t number = 0;
  for (const named_value &row : categories) {
    if (row.value != number++) {
      return false;
    }
  }
  return number == ZOT_CAT_COUNT;
}
static_assert(categories_are_numbered_by_row());

constexpr std::array subsystems{named_value{0, "AP"}, named_value{1, "CP"}, named_value{2, "DP"}};

template <size_t Count>
const char *name_of(const std::array<named_value, Count> &table, int32_t value) {
  for (const named_value &row : table) {
    if (row.value == value) {
      return row.name;
    }
  }
  return nullptr;
}

// A piece of a path, not terminated.
struct piece {
  const char *text;
  size_t length;
};

// The piece between the slash at `path` and the next one; empty when there is no slash.
piece first_piece(const char *path) {
  if (*path != '/') {
    return {path, 0};
  }
  return {path + 1, std::strcspn(path + 1, "/")};
}

void copy_piece(const piece &from, char *to, size_t size) {
  const size_t length = std::min(from.length, size - 1);
  std::memcpy(to, from.text, length);
  to[length] = '\0';
}

// The base that the digits of a version announce. Told by hand: strtoull() on its own also takes
// the prefixes that newer C libraries know.
int base_of(const char *number) {
  if (number[0] != '0') {
    return 10;
  }
  return number[1] == 'x' || number[1] == 'X' ? 16 : 8;
}

template <class T>
constexpr int compare(T a, T b) {
  return static_cast<int>(a > b) - static_cast<int>(a < b);
}

}  // namespace

const char *get_subsys_str_by_enum(int32_t subsys) {
  return name_of(subsystems, subsys);
}

const char *get_cat_str_by_gpb_cat(int32_t category) {
  return name_of(categories, category);
}

int get_gpb_cat_by_cat_str(const char *name, int32_t *category) {
  if (name == nullptr || name[0] == '\0' || category == nullptr) {
    return -1;
  }
  for (const named_value &row : categories) {
    if (std::strcmp(row.name, name) == 0) {
      *category = row.value;
      return 0;
    }
  }
  return 1;
}

char *get_gpb_meta_str(const char *path, char *cat, size_t cat_size, char *key, size_t key_size,
                       uint64_t *version) {
  constexpr size_t key_piece_size = ZOT_KEY_LEN + 1;
  constexpr size_t number_size = 255;
  if (path == nullptr || cat == nullptr || cat_size == 0 || key == nullptr || key_size == 0 ||
      version == nullptr) {
    return nullptr;
  }
  const piece cat_piece = first_piece(path);
  const piece key_piece = first_piece(cat_piece.text + cat_piece.length);
  const piece version_piece = first_piece(key_piece.text + key_piece.length);
  if (cat_piece.length == 0 || key_piece.length == 0 || version_piece.length == 0) {
    return nullptr;
  }
  char number[number_size];
  copy_piece(version_piece, number, sizeof number);
  copy_piece(key_piece, key, std::min(key_size, key_piece_size));
  copy_piece(cat_piece, cat, std::min(cat_size, number_size));
  *version = std::strtoull(number, nullptr, base_of(number));
  return cat;
}

int get_gpb_meta_by_path(const char *path, int32_t *category, char *key, size_t key_size,
                         uint64_t *version, char *cat, size_t cat_size) {
  if (path == nullptr || path[0] == '\0' || category == nullptr || version == nullptr ||
      cat == nullptr) {
    return -1;
  }
  if (get_gpb_meta_str(path, cat, cat_size, key, key_size, version) == nullptr) {
    return -1;
  }
  return get_gpb_cat_by_cat_str(cat, category);
}

int cmp_int(int32_t a, int32_t b) {
  return compare(a, b);
}

int cmp_uint64(uint64_t a, uint64_t b) {
  return compare(a, b);
}
