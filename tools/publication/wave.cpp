// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/wave.hpp"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <stdexcept>

#include "tools/model/names.hpp"
#include "tools/output/percentage.hpp"
#include "tools/publication/fleet_report.hpp"
#include "tools/publication/source_folder.hpp"

namespace zotconf {
namespace {

std::string in_quotes(std::string_view text) {
  return '"' + std::string(text) + '"';
}

uint32_t share_of(std::string_view text) {
  const auto share = parse_share(text);
  if (!share || *share == 0) {
    throw std::runtime_error(in_quotes(text) +
                             " is not a share above 0% and up to 100%, with at most 4 decimals");
  }
  return *share;
}

// Calls `each` with the parts of a text between the separators.
template <class Function>
void for_each_part(std::string_view text, char separator, Function each) {
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(part.size() + 1, text.size()));
    each(part);
  }
}

// An index of a list in upper case; `prefix` names the list in an error.
std::string listed_index(std::string_view text, const std::string &prefix) {
  if (const std::string wrong = check_index(text); !wrong.empty()) {
    throw std::runtime_error(prefix + in_quotes(text) + " is no index: it " + wrong);
  }
  return upper_case(text);
}

std::vector<std::string> indexes_of_list(std::string_view list) {
  std::vector<std::string> indexes;
  for_each_part(list, ',',
                [&](std::string_view part) { indexes.push_back(listed_index(part, "")); });
  return indexes;
}

std::vector<std::string> indexes_of_file(const fs::path &path) {
  std::vector<std::string> indexes;
  for_each_part(read_file_text(path), '\n', [&](std::string_view line) {
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    if (!line.empty() && !line.starts_with('#')) {
      indexes.push_back(listed_index(line, path.string() + ": "));
    }
  });
  return indexes;
}

// At most most_listed of the names, and how many others there are.
std::string names_of(const std::vector<std::string> &names) {
  std::string text;
  for (size_t i = 0; i < std::min(names.size(), most_listed); ++i) {
    text += (i == 0 ? "" : ", ") + names[i];
  }
  return names.size() <= most_listed
             ? text
             : text + " and " + std::to_string(names.size() - most_listed) + " others";
}

void check_listed(const std::vector<std::string> &listed, const std::vector<std::string> &indexes,
                  const fs::path &folder) {
  std::vector<std::string> absent;
  std::ranges::set_difference(listed, indexes, std::back_inserter(absent));
  if (!absent.empty()) {
    throw refusal(folder, "lacks " + std::to_string(absent.size()) + " of the " +
                              std::to_string(listed.size()) +
                              " elements of --wave: " + names_of(absent));
  }
}

void check_share(uint32_t share, const std::vector<std::string> &indexes, const fs::path &folder) {
  uint32_t smallest = whole_share;
  for (const std::string &index : indexes) {
    smallest = std::min(smallest, smallest_share_with(index));
  }
  if (smallest > share) {
    throw refusal(folder,
                  "no element is in a wave of " + share_text(share) + ", the first one is in " +
                      share_text(smallest),
                  "zotconf publish ... --wave " + share_text(smallest));
  }
}

}  // namespace

uint32_t smallest_share_with(std::string_view index) {
  constexpr size_t digits_of_half = 8;
  const std::string checksum = sha256_text(index);
  uint64_t high = 0;
  uint64_t low = 0;
  const char *const middle = checksum.data() + digits_of_half;
  std::from_chars(checksum.data(), middle, high, 16);
  std::from_chars(middle, middle + digits_of_half, low, 16);
  // A product of 64 and 20 bits, of which the bits above the 64th count.
  const uint64_t millionths = (high * whole_share + (low * whole_share >> 32U)) >> 32U;
  return static_cast<uint32_t>(millionths) + 1;
}

wave::wave(const std::string &text) {
  if (text.ends_with('%')) {
    share_ = share_of(text);
    return;
  }
  listed_ = text.starts_with('@') ? indexes_of_file(text.substr(1)) : indexes_of_list(text);
  if (listed_.empty()) {
    throw std::runtime_error(in_quotes(text) + " lists no element");
  }
  std::ranges::sort(listed_);
  listed_.erase(std::unique(listed_.begin(), listed_.end()), listed_.end());
}

bool wave::contains(const std::string &index) const {
  return share_ > 0 ? smallest_share_with(index) <= share_
                    : std::ranges::binary_search(listed_, index);
}

void wave::check(const std::vector<std::string> &indexes, const fs::path &folder) const {
  share_ > 0 ? check_share(share_, indexes, folder) : check_listed(listed_, indexes, folder);
}

}  // namespace zotconf
