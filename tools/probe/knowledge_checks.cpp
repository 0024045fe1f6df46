// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/knowledge_checks.hpp"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "tools/output/figures.hpp"

namespace zotconf {
namespace {

using namespace std::chrono_literals;

constexpr uint64_t largest_checksum_file = uint64_t{64} << 10;
constexpr uint64_t largest_k = uint64_t{64} << 20;
constexpr const char *unknown_index = "ZOTCONF-PROBE";

struct fetched_pair {
  std::string checksum_file;
  std::string k;
};

std::string latest_path(const subject &on, const std::string &index, std::string_view suffix) {
  return "/file/knowledge/" + on.who.subsys + "/" + index + "/latest/" + index +
         std::string(suffix);
}

std::string fetch_latest(const subject &on, std::string_view suffix, uint64_t limit) {
  const std::string path = latest_path(on, on.who.index, suffix);
  reply came = on.service.get(path, limit);
  if (!came.wrong.empty()) {
    throw std::runtime_error("GET " + path + ": " + came.wrong);
  }
  if (came.body.empty()) {
    throw std::runtime_error("GET " + path + ": an empty body");
  }
  return std::move(came.body);
}

bool is_digit(char letter) {
  return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'f');
}

std::string digits_of(const std::string &checksum_file) {
  return checksum_file.substr(0, ZOT_CHECKSUM_LEN);
}

void expect_checksum_form(const std::string &text) {
  const auto other = std::ranges::find_if_not(text, is_digit);
  const auto digits = static_cast<size_t>(other - text.begin());
  if (digits != ZOT_CHECKSUM_LEN) {
    throw std::runtime_error("the file begins with " +
                             counted(digits, "such digit", "such digits"));
  }
  const std::string rest = text.substr(digits);
  if (!rest.empty() && rest != "\n") {
    throw std::runtime_error("after the digits there is something else than one newline");
  }
}

void expect_paths_inside(const stored_k &k) {
  for (const listed_file &file : k.files) {
    for (const fs::path &part : fs::path(file.path)) {
      if (part == "." || part == "..") {
        throw std::runtime_error("K names the path " + file.path);
      }
    }
  }
}

// The library does not compute a checksum of a text that begins with a zero byte.
bool is_match(const fetched_pair &pair) {
  return pair.k.front() != '\0' && sha256_text(pair.k) == digits_of(pair.checksum_file);
}

void expect_match(const fetched_pair &pair) {
  if (!is_match(pair)) {
    throw std::runtime_error("the checksum file announces " + digits_of(pair.checksum_file) +
                             ", and K has " + sha256_text(pair.k));
  }
}

fetched_pair fetch_pair(const subject &on) {
  std::string checksum_file = fetch_checksum_file(on);
  return {.checksum_file = std::move(checksum_file), .k = fetch_k(on)};
}

// Runs `attempt`, and once more after a pause when it has failed: a service may replace both files
// between the two requests.
template <class Attempt>
void try_twice(Attempt attempt) {
  try {
    attempt();
  } catch (const std::runtime_error &) {
    std::this_thread::sleep_for(500ms);
    attempt();
  }
}

}  // namespace

std::string fetch_checksum_file(const subject &on) {
  return fetch_latest(on, ".checksum", largest_checksum_file);
}

std::string fetch_k(const subject &on) {
  return fetch_latest(on, ".k", largest_k);
}

void check_checksum_file(subject &on) {
  std::string text = fetch_checksum_file(on);
  expect_checksum_form(text);
  on.checksum_file = std::move(text);
}

void check_k(subject &on) {
  const fs::path path = on.folder / "K";
  replace_file(path, fetch_k(on), durability::buffered);
  stored_k k = read_k_file(path, "", "");
  if (k.wrong) {
    throw std::runtime_error("the library refuses K: " + described(*k.wrong));
  }
  expect_paths_inside(k);
  on.k = std::move(k);
}

void check_match(subject &on) {
  const fetched_pair first = {.checksum_file = on.checksum_file.value(), .k = on.k.value().bytes};
  if (!is_match(first)) {
    std::this_thread::sleep_for(500ms);
    expect_match(fetch_pair(on));
  }
}

void check_repeated(subject &on) {
  const fetched_pair again = fetch_pair(on);
  if (again.checksum_file != on.checksum_file) {
    throw std::runtime_error("the checksum file has changed");
  }
  if (again.k != on.k.value().bytes) {
    throw std::runtime_error("K has changed");
  }
}

void check_unknown_index(subject &on) {
  constexpr long not_found = 404;
  for (const std::string_view suffix : {".checksum", ".k"}) {
    const std::string path = latest_path(on, unknown_index, suffix);
    const reply came = on.service.get(path, largest_k);
    if (came.status != not_found) {
      throw std::runtime_error("GET " + path + ": " +
                               (came.wrong.empty() ? "status 200" : came.wrong));
    }
  }
}

void check_polls(subject &on) {
  for (unsigned poll = 0; poll < on.polls; ++poll) {
    try_twice([&] { expect_match(fetch_pair(on)); });
  }
}

}  // namespace zotconf
