// SPDX-License-Identifier: Apache-2.0
#include "bench/pieces/document.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <tuple>
#include <utility>

#include "zot_conf.h"

namespace zot::bench {

namespace {

constexpr std::size_t files_per_modified = 100;

// The distributions of standard libraries differ, so the benchmark generates its own numbers.
class number_source {
 public:
  std::uint64_t next() {
    state_ += 0x9e3779b97f4a7c15;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
    return mixed ^ (mixed >> 31);
  }
  std::uint64_t next_below(std::uint64_t bound) { return next() % bound; }

 private:
  std::uint64_t state_ = 0;
};

std::string hexadecimal(std::uint64_t number) {
  std::array<char, 17> digits{};
  static_cast<void>(std::snprintf(digits.data(), digits.size(), "%016llx",
                                  static_cast<unsigned long long>(number)));
  return digits.data();
}

std::string make_uuid(number_source &numbers) {
  std::string digits = hexadecimal(numbers.next()) + hexadecimal(numbers.next());
  digits[12] = '4';
  for (const std::size_t at : {20U, 16U, 12U, 8U}) {
    digits.insert(at, 1, '-');
  }
  return digits;
}

std::string make_checksum(number_source &numbers) {
  std::string digits;
  for (int word = 0; word < 4; ++word) {
    digits += hexadecimal(numbers.next());
  }
  return digits;
}

std::vector<published_file> make_files(std::size_t entries, number_source &numbers) {
  constexpr std::uint64_t first_version = 1'700'000'000'000;
  constexpr std::uint64_t version_span = 50'000'000'000;
  constexpr std::uint64_t smallest = 1024;
  constexpr std::uint64_t largest = 65536;
  std::vector<published_file> files(entries);
  for (published_file &file : files) {
    file.category = static_cast<std::int32_t>(numbers.next_below(ZOT_CAT_COUNT));
    file.key = make_uuid(numbers);
    file.version = first_version + numbers.next_below(version_span);
    file.size = static_cast<std::uint32_t>(smallest + numbers.next_below(largest - smallest + 1));
    file.checksum = make_checksum(numbers);
  }
  return files;
}

void modify_some(std::vector<published_file> &files, number_source &numbers) {
  for (std::size_t at = 0; at < files.size(); at += files_per_modified) {
    published_file &file = files[at];
    ++file.version;
    file.checksum = make_checksum(numbers);
    file.is_modified = true;
  }
}

void shuffle(std::vector<published_file> &files, number_source &numbers) {
  for (std::size_t left = files.size(); left > 1; --left) {
    std::swap(files[left - 1], files[numbers.next_below(left)]);
  }
}

std::string write_k(const std::vector<published_file> &files, number_source &numbers) {
  std::string text = R"({"clusterId":"5e2f5b0c-7c1b-4f6e-9a54-2f0d4b8a7c11","configId":")" +
                     make_uuid(numbers) + R"(","firmwareVersion":"7.1.1.0.520","gpbs":[)";
  for (const published_file &file : files) {
    if (&file != &files.front()) {
      text += ',';
    }
    text += R"({"path":")" + file.path() + R"(","size":)" + std::to_string(file.size) +
            R"(,"checksum":")" + file.checksum + R"("})";
  }
  return text + "]}";
}

enum class variant { first, updated, ordered };

document make_document(std::size_t entries, variant which) {
  number_source numbers;
  document made;
  made.files = make_files(entries, numbers);
  if (which == variant::updated) {
    modify_some(made.files, numbers);
  }
  if (which == variant::ordered) {
    made.files = in_list_order(made);
  } else {
    shuffle(made.files, numbers);
  }
  made.text = write_k(made.files, numbers);
  return made;
}

const document &kept_document(std::size_t entries, variant of) {
  static std::map<std::pair<std::size_t, variant>, document> made;
  const std::pair which(entries, of);
  auto found = made.find(which);
  if (found == made.end()) {
    found = made.emplace(which, make_document(entries, of)).first;
  }
  return found->second;
}

}  // namespace

std::string published_file::path() const {
  return std::string("/") + get_cat_str_by_gpb_cat(category) + "/" + key + "/" +
         std::to_string(version);
}

const document &first_document(std::size_t entries) {
  return kept_document(entries, variant::first);
}

const document &updated_document(std::size_t entries) {
  return kept_document(entries, variant::updated);
}

const document &ordered_document(std::size_t entries) {
  return kept_document(entries, variant::ordered);
}

std::vector<published_file> in_list_order(const document &of) {
  std::vector<published_file> files = of.files;
  std::sort(files.begin(), files.end(), [](const published_file &a, const published_file &b) {
    return std::tie(a.category, a.key, a.version) < std::tie(b.category, b.key, b.version);
  });
  return files;
}

}  // namespace zot::bench
