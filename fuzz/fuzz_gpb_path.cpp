// SPDX-License-Identifier: Apache-2.0
// Splits the path of a GPB file into buffers of every size and compares the result with a second,
// simple implementation. The input is a byte for the size of each buffer, then the path.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>
#include <optional>

#include "fuzz/check.hpp"
#include "zot_conf.h"

namespace {
using zot::fuzz::check;

constexpr std::size_t longest_key = ZOT_KEY_LEN;
constexpr std::size_t longest_name = 254;

struct entry {
  std::string category;
  std::string key;
  std::uint64_t version = 0;
};

int digit_of(char digit) {
  const auto byte = static_cast<unsigned char>(digit);
  return std::isdigit(byte) != 0    ? digit - '0'
         : std::isxdigit(byte) != 0 ? std::tolower(byte) - 'a' + 10
                                    : 99;
}

// Reads the leading number. What does not fit into a word becomes the largest value.
std::uint64_t number_of(const std::string &text) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  const int base = is_hex ? 16 : text.starts_with("0") ? 8 : 10;
  std::size_t at = is_hex ? 2 : 0;
  while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0 && !is_hex) {
    ++at;
  }
  const bool is_negative = at < text.size() && text[at] == '-' && !is_hex;
  if (at < text.size() && (text[at] == '-' || text[at] == '+') && !is_hex) {
    ++at;
  }
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t number = 0;
  for (; at < text.size() && digit_of(text[at]) < base; ++at) {
    const auto digit = static_cast<std::uint64_t>(digit_of(text[at]));
    if (number > (largest - digit) / static_cast<std::uint64_t>(base)) {
      return largest;
    }
    number = number * static_cast<std::uint64_t>(base) + digit;
  }
  return is_negative ? 0 - number : number;
}

std::optional<std::string> next_piece(std::string &rest) {
  if (!rest.starts_with("/")) {
    return std::nullopt;
  }
  const std::size_t end = std::min(rest.find('/', 1), rest.size());
  const std::string piece = rest.substr(1, end - 1);
  rest.erase(0, end);
  return piece.empty() ? std::nullopt : std::optional(piece);
}

std::optional<entry> split(std::string path) {
  const auto category = next_piece(path);
  const auto key = category ? next_piece(path) : std::nullopt;
  const auto version = key ? next_piece(path) : std::nullopt;
  if (!version) {
    return std::nullopt;
  }
  return entry{*category, *key, number_of(version->substr(0, longest_name))};
}

struct parsed {
  int result = 0;
  std::int32_t category = -7;
  std::uint64_t version = 0;
  std::string category_name;
  std::string key;
};

parsed parse(const std::string &path, std::size_t category_size, std::size_t key_size) {
  const zot::fuzz::exact_copy<char> text(path.c_str(), path.size() + 1);
  const zot::fuzz::exact_copy<char> category(std::string(category_size, '#'));
  const zot::fuzz::exact_copy<char> key(std::string(key_size, '#'));
  parsed read;
  read.result = get_gpb_meta_by_path(text.get(), &read.category, key.get(), key_size, &read.version,
                                     category.get(), category_size);
  if (read.result >= 0) {
    check(std::memchr(category.get(), 0, category_size) != nullptr, "the category is terminated");
    check(std::memchr(key.get(), 0, key_size) != nullptr, "the key is terminated");
    read.category_name = category.get();
    read.key = key.get();
  }
  return read;
}

void hold_against(const std::optional<entry> &wanted, const parsed &read, std::size_t category_size,
                  std::size_t key_size) {
  if (!wanted || category_size == 0 || key_size == 0) {
    check(read.result == -1, "what is no path is refused");
    check(read.category == -7 && read.version == 0, "a refused path leaves the outputs alone");
    return;
  }
  if (category_size == 1) {
    check(read.result == -1 && read.category == -7, "a name cut to nothing is no category");
    return;
  }
  check(read.category_name == wanted->category.substr(0, std::min(category_size - 1, longest_name)),
        "the category is the first piece, cut to its buffer");
  check(read.key == wanted->key.substr(0, std::min(key_size - 1, longest_key)),
        "the key is the second piece, cut to its buffer");
  check(read.version == wanted->version, "the version is the number of the third piece");
  const char *const known = get_cat_str_by_gpb_cat(read.category);
  if (read.result == 0) {
    check(known != nullptr && read.category_name == known, "the number is that of the category");
  } else {
    check(read.result == 1 && read.category == -7, "an unknown category has no number");
    for (std::int32_t number = 0; number < ZOT_CAT_COUNT; ++number) {
      check(read.category_name != get_cat_str_by_gpb_cat(number), "a known category is found");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const std::string path = zot::fuzz::text_of(bytes + 2, size - 2);
  const auto wanted = split(path);
  hold_against(wanted, parse(path, bytes[0], bytes[1]), bytes[0], bytes[1]);
  constexpr std::size_t ample = 300;
  const parsed read = parse(path, ample, ample);
  hold_against(wanted, read, ample, ample);
  if (read.result != 0) {
    return 0;
  }
  const std::string rebuilt =
      "/" + read.category_name + "/" + read.key + "/" + std::to_string(read.version);
  const parsed again = parse(rebuilt, ample, ample);
  check(again.result == 0 && again.category == read.category && again.key == read.key &&
            again.version == read.version,
        "the path that is made of an entry names that entry");
  return 0;
}
