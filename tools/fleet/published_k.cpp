// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/published_k.hpp"

#include <algorithm>
#include <system_error>
#include <thread>

#include "tools/model/manifest.hpp"

namespace zotconf {
namespace {

using clock = std::chrono::steady_clock;

// A publisher on a busy machine may stop for that long between two files.
constexpr std::chrono::milliseconds longest_patience{500};
constexpr std::chrono::milliseconds between_attempts{5};

constexpr const char *other_checksum = "K does not match its checksum file";

k_reading bad_k(std::string why) {
  return {.k = std::nullopt, .wrong = std::move(why)};
}

std::string checksum_in(const folder &latest, const std::string &name) {
  const zot::descriptor file = latest.open(name);
  const std::string text = file.is_open() ? read_file_at(file.get(), name) : "";
  return text.substr(0, text.find('\n'));
}

k_reading read_k_once(const folder &latest, const std::string &index) {
  const std::string name = index + ".k";
  const zot::descriptor file = latest.open(name);
  if (!file.is_open()) {
    return latest.has(name) ? bad_k("K cannot be opened as a regular file") : k_reading{};
  }
  const std::string bytes = read_file_at(file.get(), name);
  const auto head = parse_manifest_head(bytes);
  if (!head) {
    return bad_k("K is not a valid manifest");
  }
  const std::string digest = sha256_text(bytes);
  return {
      .k = published_k{.digest = digest, .config_id = head->config_id, .sequence = head->sequence},
      .wrong = checksum_in(latest, index + ".checksum") == digest ? "" : other_checksum};
}

std::optional<folder> find_latest(const folder &subsys, const std::string &index) {
  const auto own = subsys.find(index);
  return own ? own->find("latest") : std::nullopt;
}

}  // namespace

// Between the renaming of K and that of its checksum file the two do not match.
k_reading k_reader::read_settled(const folder &latest, const std::string &index) {
  k_reading reading = read_k_once(latest, index);
  const clock::time_point begin = clock::now();
  const clock::duration most = std::min<clock::duration>(patience_, longest_patience);
  clock::duration waited{};
  while (reading.wrong == other_checksum && waited < most) {
    std::this_thread::sleep_for(between_attempts);
    reading = read_k_once(latest, index);
    waited = clock::now() - begin;
  }
  patience_ -= std::min(patience_, waited);
  return reading;
}

k_reading k_reader::read(const folder &subsys, const std::string &index) {
  const auto latest = find_latest(subsys, index);
  if (!latest) {
    return {};
  }
  try {
    return read_settled(*latest, index);
  } catch (const std::system_error &error) {
    if (is_exhausted(error.code().value())) {
      throw;
    }
    return bad_k(error.what());
  }
}

bool has_k(const folder &subsys, const std::string &index) {
  const auto latest = find_latest(subsys, index);
  return latest && latest->has(index + ".k");
}

}  // namespace zotconf
