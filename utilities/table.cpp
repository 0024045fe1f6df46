// SPDX-License-Identifier: Apache-2.0
// Category and sub-system names, the path of a GPB file, three-way comparisons.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "utilities/gpb_path.hpp"
#include "utilities/own_names.hpp"
#include "zot_conf.h"

namespace {

// A category and a version are read up to one byte less than this.
constexpr size_t component_size = 255;

struct named_value {
  int32_t value;
  const char *name;
};

#define ZOT_CATEGORY_NUMBER(constant, value, name) value,
#define ZOT_CATEGORY_NAME(constant, value, name) name "\0"
constexpr std::array category_numbers{ZOT_CATEGORY_MAP(ZOT_CATEGORY_NUMBER)};
// All names, each with its terminator. A table of pointers would need a relocation for each name.
constexpr char category_names[] = ZOT_CATEGORY_MAP(ZOT_CATEGORY_NAME);
#undef ZOT_CATEGORY_NUMBER
#undef ZOT_CATEGORY_NAME

// The offset where each name begins, and the end of the last one.
consteval std::array<uint16_t, ZOT_CAT_COUNT + 1> find_name_places() {
  std::array<uint16_t, ZOT_CAT_COUNT + 1> places{};
  uint16_t at = 0;
  for (size_t row = 0; row < ZOT_CAT_COUNT; ++row) {
    at = static_cast<uint16_t>(at + std::string_view(category_names + at).size() + 1);
    places[row + 1] = at;
  }
  return places;
}
constexpr auto name_places = find_name_places();
static_assert(name_places[ZOT_CAT_COUNT] == sizeof category_names - 1);

// The first letters distinguish most names.
consteval std::array<char, ZOT_CAT_COUNT> find_first_letters() {
  std::array<char, ZOT_CAT_COUNT> letters{};
  for (size_t row = 0; row < ZOT_CAT_COUNT; ++row) {
    letters[row] = category_names[name_places[row]];
  }
  return letters;
}
constexpr auto first_letters = find_first_letters();

std::string_view category_name(size_t row) {
  return {category_names + name_places[row], size_t{name_places[row + 1]} - name_places[row] - 1};
}

// Whether the number of each category is the index of its name.
consteval bool are_numbered_by_row() {
  int32_t row = 0;
  for (const int32_t number : category_numbers) {
    if (number != row++) {
      return false;
    }
  }
  return row == ZOT_CAT_COUNT;
}
static_assert(are_numbered_by_row());

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

// The text between the slash at `path` and the next one; empty if there is no slash at `path`.
std::string_view first_piece(const char *path) {
  if (*path != '/') {
    return {};
  }
  const char *const begin = path + 1;
  const char *const slash = std::strchr(begin, '/');
  return slash != nullptr ? std::string_view(begin, static_cast<size_t>(slash - begin))
                          : std::string_view(begin);
}

const char *end_of(std::string_view piece) {
  return piece.data() + piece.size();
}

void copy_piece(std::string_view from, char *to, size_t size) {
  const size_t length = std::min(from.size(), size - 1);
  std::memcpy(to, from.data(), length);
  to[length] = '\0';
}

// The base that the prefix of a version stands for. It is determined here, because strtoull() by
// itself also accepts prefixes that only newer C libraries know.
int base_of(const char *number) {
  if (number[0] != '0') {
    return 10;
  }
  return number[1] == 'x' || number[1] == 'X' ? 16 : 8;
}

uint64_t version_of(std::string_view text) {
  char number[component_size];
  copy_piece(text, number, sizeof number);
  return std::strtoull(number, nullptr, base_of(number));
}

template <class T>
constexpr int compare(T a, T b) {
  return static_cast<int>(a > b) - static_cast<int>(a < b);
}

}  // namespace

std::optional<zot::gpb_path> zot::split_gpb_path(const char *path) {
  const std::string_view category = first_piece(path);
  const std::string_view key = category.empty() ? category : first_piece(end_of(category));
  const std::string_view version = key.empty() ? key : first_piece(end_of(key));
  if (version.empty()) {
    return std::nullopt;
  }
  return gpb_path{
      category, {key.data(), std::min<size_t>(key.size(), ZOT_KEY_LEN)}, version_of(version)};
}

std::optional<int32_t> zot::category_of(std::string_view name) {
  const char first = name.empty() ? '\0' : name.front();
  for (size_t row = 0; row < ZOT_CAT_COUNT; ++row) {
    if (first_letters[row] == first && category_name(row) == name) {
      return static_cast<int32_t>(row);
    }
  }
  return std::nullopt;
}

const char *get_subsys_str_by_enum(int32_t subsys) {
  return name_of(subsystems, subsys);
}

const char *get_cat_str_by_gpb_cat(int32_t category) {
  const bool is_known = category >= 0 && category < ZOT_CAT_COUNT;
  return is_known ? category_name(static_cast<size_t>(category)).data() : nullptr;
}

int get_gpb_cat_by_cat_str(const char *name, int32_t *category) {
  if (name == nullptr || name[0] == '\0' || category == nullptr) {
    return -1;
  }
  const std::optional<int32_t> known = zot::category_of(name);
  if (!known) {
    return 1;
  }
  *category = *known;
  return 0;
}

char *get_gpb_meta_str(const char *path, char *cat, size_t cat_size, char *key, size_t key_size,
                       uint64_t *version) {
  if (path == nullptr || cat == nullptr || cat_size == 0 || key == nullptr || key_size == 0 ||
      version == nullptr) {
    return nullptr;
  }
  const std::optional<zot::gpb_path> parts = zot::split_gpb_path(path);
  if (!parts) {
    return nullptr;
  }
  copy_piece(parts->key, key, key_size);
  copy_piece(parts->category, cat, std::min(cat_size, component_size));
  *version = parts->version;
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

ZOT_PLAIN_NAME(get_subsys_str_by_enum);
ZOT_PLAIN_NAME(get_cat_str_by_gpb_cat);
ZOT_PLAIN_NAME(get_gpb_cat_by_cat_str);
ZOT_PLAIN_NAME(get_gpb_meta_str);
ZOT_PLAIN_NAME(get_gpb_meta_by_path);
ZOT_PLAIN_NAME(cmp_int);
ZOT_PLAIN_NAME(cmp_uint64);
