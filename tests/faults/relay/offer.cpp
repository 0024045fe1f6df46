// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/offer.hpp"

#include <vector>

#include "tests/support/files.hpp"
#include "tools/publication/publication_store.hpp"

namespace zot::test {
namespace {

struct content {
  std::string category;
  std::string key;
  std::uint64_t version;
  std::string bytes;
};

std::string path_of(const std::string &category, const std::string &key, std::uint64_t version) {
  return "config/" + category + "/" + key + "/" + std::to_string(version);
}

std::vector<content> contents_of(std::uint64_t generation) {
  const std::string number = std::to_string(generation);
  return {{"Wlan", "guest", generation, "ssid=guest " + number},
          {"Wlan", "staff", 1, "ssid=staff"},
          {"Zone", "hq", 1, "country=DE"},
          {"Radio", "r5", 3, "channel=36"},
          {"Ap", "lobby", generation, large_file(generation)},
          {"Vlan", "v" + number, 1, "id=" + number}};
}

}  // namespace

std::string latest_path(const std::string &suffix) {
  std::string path;
  for (const std::string &part : zotconf::latest_parts(this_element, suffix)) {
    path += (path.empty() ? "" : "/") + part;
  }
  return path;
}

std::string large_file_path(std::uint64_t generation) {
  return path_of("Ap", "lobby", generation);
}

std::string large_file(std::uint64_t generation) {
  constexpr std::size_t length = 40000;
  return std::to_string(generation) + noise(length);
}

void offer::set_k(const std::string &text, const identity &signer) {
  files[k_path] = text;
  files[checksum_path] = sha256_hex(text) + "\n";
  files[signature_path] = sign(text, {.signers = {signer}});
}

void offer::set_k(const zotconf::manifest &content, const identity &signer) {
  set_k(zotconf::render_manifest(content), signer);
}

zotconf::manifest manifest_of(std::uint64_t generation) {
  zotconf::manifest made{.cluster = "cluster-1",
                         .config_id = "",
                         .firmware = "7.1.0",
                         .who = this_element,
                         .sequence = generation,
                         .files = {}};
  for (const content &each : contents_of(generation)) {
    made.files.push_back({.category = 0,
                          .category_name = each.category,
                          .key = each.key,
                          .version = each.version,
                          .size = each.bytes.size(),
                          .checksum = sha256_hex(each.bytes)});
  }
  return made;
}

offer generation(std::uint64_t number, const identity &signer) {
  offer made;
  for (const content &each : contents_of(number)) {
    made.files[path_of(each.category, each.key, each.version)] = each.bytes;
  }
  made.set_k(manifest_of(number), signer);
  return made;
}

}  // namespace zot::test
