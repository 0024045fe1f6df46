// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/configuration.hpp"

#include <cstdint>
#include <stdexcept>

namespace zotconf {
namespace {

constexpr size_t large_size = size_t{100} << 10;

// Returns incompressible bytes, always the same for a seed. The first byte is not zero, because the
// file format forbids that.
std::string noise(uint32_t seed) {
  std::string bytes;
  bytes.reserve(large_size);
  bytes.push_back('#');
  uint32_t state = seed;
  while (bytes.size() < large_size) {
    state = state * 1664525 + 1013904223;
    bytes.push_back(static_cast<char>(state >> 24));
  }
  return bytes;
}

std::string name_of_entry(const entry &one) {
  return std::string(one.category_name()) + "/" + std::string(one.key());
}

change expected_change(const configuration &before, const configuration &after,
                       const std::string &name) {
  const auto old = before.find(name);
  const auto next = after.find(name);
  if (next == after.end()) {
    return old == before.end() ? change::none : change::deleted;
  }
  if (old == before.end()) {
    return change::added;
  }
  return old->second == next->second ? change::unchanged : change::modified;
}

}  // namespace

configurations::configurations()
    : first{{"Ap/site", "x"},
            {"Certificate/large", noise(1)},
            {"Radio/5GHz", "channel=36\n"},
            {"Wlan/guest", "ssid=guest\n"},
            {"Wlan/office", "ssid=office\n"},
            {"Zone/old", "country=DE\n"}},
      second(first) {
  second["Wlan/office"] = "ssid=headquarters\n";
  second["Vlan/20"] = "name=voice\n";
  second.erase("Zone/old");
  refused = second;
  refused["Wlan/guest"] = "ssid=refused\n";
  last = second;
  last["Certificate/large"] = noise(2);
  last["Wlan/office"] = "ssid=branch\n";
}

void expect_changes(const entries &list, const configuration &before, const configuration &after) {
  configuration rest = before;
  rest.insert(after.begin(), after.end());
  for (const entry one : list) {
    const std::string name = name_of_entry(one);
    const change expected = expected_change(before, after, name);
    if (one.change() != expected || rest.erase(name) == 0) {
      throw std::runtime_error(name + " is reported as " + std::string(name_of(one.change())) +
                               " instead of " + std::string(name_of(expected)));
    }
    if (expected != change::deleted && one.text() != after.at(name)) {
      throw std::runtime_error(name + " has other bytes than were published");
    }
  }
  if (!rest.empty()) {
    throw std::runtime_error(rest.begin()->first + " is not reported");
  }
}

bool is_in_force(const entries &list, const configuration &expected) {
  size_t count = 0;
  for (const entry one : list) {
    if (one.change() == change::deleted) {
      continue;
    }
    const auto found = expected.find(name_of_entry(one));
    if (found == expected.end() || found->second != one.text()) {
      return false;
    }
    ++count;
  }
  return count == expected.size();
}

}  // namespace zotconf
