// SPDX-License-Identifier: Apache-2.0
#include "disk.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "tests/support/files.hpp"
#include "zot_conf.h"

namespace zot::faults {
namespace {

constexpr std::array k_file_names = {"knowledge/subsys.k",      "knowledge/subsys.checksum",
                                     "knowledge/prev_subsys.k", "knowledge/prev_subsys.checksum",
                                     "knowledge/corrupted.k",   "knowledge/corrupted.checksum"};

std::string file_name(target hit) {
  switch (hit) {
    case target::k:
    case target::pair:
      return "subsys.k";
    case target::checksum:
      return "subsys.checksum";
    case target::prev_k:
    case target::prev_pair:
      return "prev_subsys.k";
    case target::prev_checksum:
      return "prev_subsys.checksum";
    case target::corrupted_k:
    case target::corrupted_pair:
      return "corrupted.k";
    case target::corrupted_checksum:
      return "corrupted.checksum";
    default:
      return {};
  }
}

std::vector<change> to_one_file(const step &one, area where, const directory &hit,
                                const std::string &name) {
  if (!hit.has(name)) {
    return {};
  }
  std::string bytes = hit.held.at(name);
  switch (static_cast<manner>(one.how)) {
    case manner::other_byte:
      if (!bytes.empty()) {
        bytes.back() = bytes.back() == 'x' ? 'y' : 'x';
      }
      break;
    case manner::emptied:
      bytes.clear();
      break;
    case manner::removed:
      return {{where, name, std::nullopt}};
    case manner::byte_appended:
      bytes += 'x';
      break;
  }
  return {{where, name, bytes}};
}

std::vector<change> to_a_gpb(const step &one, area where, const directory &hit) {
  const files gpbs = hit.below("config/");
  if (gpbs.empty()) {
    return {};
  }
  const auto chosen = std::next(gpbs.begin(), static_cast<long>(one.which % gpbs.size()));
  return to_one_file(one, where, hit, chosen->first);
}

std::vector<change> to_a_pair(const step &one, area where, const std::string &k_name) {
  const configuration &other = catalogue().at(one.which % catalogue().size());
  const std::string stem = k_name.substr(0, k_name.rfind('.'));
  return {{where, k_name, other.k}, {where, stem + ".checksum", test::sha256_hex(other.k) + "\n"}};
}

}  // namespace

bool directory::copy(const directory &from, const std::string &name, const std::string &to) {
  const auto found = from.held.find(name);
  if (found == from.held.end() || !has_knowledge) {
    return false;
  }
  held[to] = found->second;
  return true;
}

void directory::rename(const std::string &name, const std::string &to) {
  if (auto moved = held.extract(name)) {
    held.erase(to);
    moved.key() = to;
    held.insert(std::move(moved));
  }
}

void directory::remove_below(const std::string &prefix) {
  std::erase_if(held, [&](const auto &file) { return file.first.starts_with(prefix); });
}

files directory::below(const std::string &prefix) const {
  files found;
  for (const auto &[name, bytes] : held) {
    if (name.starts_with(prefix)) {
      found.emplace(name, bytes);
    }
  }
  return found;
}

bool directory::begin_undo(bool keeps_config) {
  if (!exists || !has_knowledge) {
    return false;
  }
  undo_folder kept;
  kept.keeps_config = keeps_config;
  for (const char *const name : k_file_names) {
    const auto found = held.find(name);
    kept.k_files[name] = found != held.end() ? std::optional(found->second) : std::nullopt;
  }
  if (keeps_config) {
    kept.had_config = has_config;
    kept.config = below("config/");
    remove_below("config/");
    has_config = false;
  }
  undo = kept;
  return true;
}

bool directory::restore_from_undo() {
  if (!undo.has_value() || !has_knowledge) {
    return !undo.has_value();
  }
  if (undo->keeps_config) {
    remove_below("config/");
    held.merge(undo->config);
    has_config = undo->had_config;
  }
  for (const auto &[name, bytes] : undo->k_files) {
    held.erase(name);
    if (bytes.has_value()) {
      held[name] = *bytes;
    }
  }
  undo.reset();
  return true;
}

std::vector<change> damage_of(const step &one, const directory &hit) {
  const area where = one.kind == step_kind::damage_cache ? area::cache : area::scratch;
  const std::string folder = where == area::cache ? "knowledge/" : "";
  const auto what = static_cast<target>(one.what);
  switch (what) {
    case target::gpb:
      return to_a_gpb(one, where, hit);
    case target::every_gpb:
      return {{where, "config", std::nullopt}};
    case target::knowledge:
      return {{where, "knowledge", std::nullopt}};
    case target::everything:
      return {{where, "", std::nullopt}};
    case target::stray_gpb:
      return {{where, "config/Wlan/stray/1", "stray"}};
    case target::pair:
    case target::prev_pair:
    case target::corrupted_pair:
      return to_a_pair(one, where, folder + file_name(what));
    default:
      return to_one_file(one, where, hit, folder + file_name(what));
  }
}

void apply(const change &what, directory &to) {
  if (what.bytes.has_value()) {
    to.held[what.name] = *what.bytes;
    to.exists = true;
    to.has_config = to.has_config || what.name.starts_with("config/");
    to.has_knowledge = to.has_knowledge || what.name.starts_with("knowledge/");
    return;
  }
  if (what.name.empty()) {
    to = {};
    return;
  }
  to.held.erase(what.name);
  to.remove_below(what.name + "/");
  to.has_config = to.has_config && what.name != "config";
  to.has_knowledge = to.has_knowledge && what.name != "knowledge";
}

read_k read_and_verify(const directory &from, const std::string &name) {
  read_k read;
  const auto sum = from.held.find(name + ".checksum");
  if (sum == from.held.end()) {
    read.status = ZOT_ERR_NO_FILE;
    return read;
  }
  read.status = ZOT_ERR_CORRUPTED;
  const std::string line = sum->second.substr(0, sum->second.find('\n'));
  const auto k = from.held.find(name + ".k");
  if (line.size() != ZOT_CHECKSUM_LEN || k == from.held.end() || k->second.empty()) {
    return read;
  }
  read.bytes = k->second;
  read.digest = test::sha256_hex(read.bytes);
  read.found = find_by_k(read.bytes);
  const bool usable = read.found != nullptr && read.found->content.has_value();
  if (read.digest == line && usable) {
    read.status = ZOT_OK;
  }
  return read;
}

int verify(const directory &from, const gpb &file) {
  if (file.bytes.empty()) {
    return ZOT_ERR_WRONG_INPUT;
  }
  if (!file.has_digest) {
    return ZOT_ERR_NULL_INPUT;
  }
  const auto found = from.held.find("config" + file.path);
  const bool same = found != from.held.end() && found->second == file.bytes;
  return same && file.bytes.front() != '\0' ? ZOT_OK : ZOT_ERR_CORRUPTED;
}

}  // namespace zot::faults
