// SPDX-License-Identifier: Apache-2.0
#include "catalogue.hpp"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "tests/support/files.hpp"
#include "zot_conf.h"

namespace zot::faults {
namespace {
using test::publication;

struct object {
  std::int32_t category;
  const char *category_name;
  const char *key;
  std::uint64_t version;
  std::string bytes;
};

const std::string zero_first("\0zero", 5);

const object guest_1{ZOT_CAT_WLAN, "Wlan", "guest", 1, "guest one"};
const object guest_1_changed{ZOT_CAT_WLAN, "Wlan", "guest", 1, "guest 1, but other bytes"};
const object guest_2{ZOT_CAT_WLAN, "Wlan", "guest", 2, "guest two"};
const object guest_3{ZOT_CAT_WLAN, "Wlan", "guest", 3, "guest three"};
const object staff_1{ZOT_CAT_WLAN, "Wlan", "staff", 1, "staff one"};
const object radio_3{ZOT_CAT_RADIO, "Radio", "r5", 3, "radio"};
const object hq_1{ZOT_CAT_ZONE, "Zone", "hq", 1, "hq one"};
const object hq_2{ZOT_CAT_ZONE, "Zone", "hq", 2, "hq two"};
const object hq_3_empty{ZOT_CAT_ZONE, "Zone", "hq", 3, ""};
const object hq_4_zero{ZOT_CAT_ZONE, "Zone", "hq", 4, zero_first};
const object lobby_1{ZOT_CAT_AP, "Ap", "lobby", 1, "lobby one"};
const object unknown{-1, "Nonsense", "thing", 1, "of a category that nobody knows"};

manifest said_of(const std::vector<object> &objects, const std::string &cluster) {
  manifest said{.cluster = cluster, .gpbs = {}};
  for (const object &one : objects) {
    if (one.category >= 0) {
      std::string path = std::string("/") + one.category_name + "/" + one.key + "/";
      path += std::to_string(one.version);
      said.gpbs.push_back({one.category, one.key, one.version, path, one.bytes});
    }
  }
  std::ranges::sort(said.gpbs, {}, [](const gpb &file) {
    return std::make_tuple(file.category, file.key, file.version);
  });
  return said;
}

configuration make(const std::string &name, const std::vector<object> &objects,
                   const std::string &cluster = "cluster-1") {
  publication published;
  for (const object &one : objects) {
    published.put(one.category_name, one.key, one.version, one.bytes);
  }
  published.cluster(cluster).config_id("00000000-0000-0000-0000-00000000000" + name);
  return {name, published.k_text(), said_of(objects, cluster), published};
}

std::string with(std::string text, const std::string &old_part, const std::string &new_part) {
  const std::size_t at = text.find(old_part);
  return at == std::string::npos ? text : text.replace(at, old_part.size(), new_part);
}

// A publication can hold an object only once, so the second one gets its name by a change of the
// text.
configuration with_guest_twice(const std::string &name, std::uint64_t other_version) {
  const object second{ZOT_CAT_WLAN, "Wlan", "guesu", other_version, guest_1.bytes};
  configuration made = make(name, {guest_1, second, hq_1});
  made.k = with(made.k, "guesu", "guest");
  object same = second;
  same.key = "guest";
  made.content = said_of({guest_1, same, hq_1}, "cluster-1");
  made.content->contradicts_itself = other_version != guest_1.version;
  return made;
}

configuration unusable(const std::string &name, const std::string &old_part,
                       const std::string &new_part) {
  configuration made = make(name, {guest_1, hq_1});
  made.k = with(made.k, old_part, new_part);
  made.content.reset();
  return made;
}

configuration without_digest(const std::string &name) {
  configuration made = make(name, {guest_1, hq_1});
  made.k = with(made.k, test::sha256_hex(hq_1.bytes), "");
  made.content->gpbs.back().has_digest = false;
  return made;
}

std::vector<configuration> all_configurations() {
  return {
      make("A", {guest_1, hq_1, radio_3}),
      make("B", {guest_2, staff_1, radio_3}),
      make("C", {lobby_1, guest_3, staff_1, radio_3, hq_2}),
      make("D", {guest_1, hq_1, radio_3}, "cluster-2"),
      make("E", {}),
      make("F", {hq_2, unknown}),
      make("1", {guest_1, hq_1, radio_3}),
      make("2", {guest_1_changed, hq_1}),
      with_guest_twice("3", 1),
      make("4", {guest_1, hq_3_empty}),
      make("5", {guest_1, hq_4_zero}),
      with_guest_twice("6", 2),
      unusable("7", "clusterId", "clusterIt"),
      unusable("8", "{", "["),
      without_digest("9"),
  };
}

std::string other_digit_first(std::string digits) {
  digits.at(0) = digits.at(0) == '0' ? '1' : '0';
  return digits;
}

std::string upper_case(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) {
    return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return text;
}

void spoil_file(offer &made, flaw wrong, const gpb &file) {
  std::string &bytes = made.archived.at(file.path);
  const auto slash = file.path.find('/', 1);
  const std::string category = file.path.substr(1, slash - 1);
  switch (wrong) {
    case flaw::other_bytes:
      bytes = "#" + bytes.substr(bytes.empty() ? 0 : 1);
      break;
    case flaw::one_byte_less:
      bytes = bytes.substr(0, bytes.empty() ? 0 : bytes.size() - 1);
      break;
    case flaw::empty_file:
      bytes.clear();
      break;
    default:
      made.archived.erase(file.path);
      made.published.remove(category, file.key);
      return;
  }
  made.published.damage(category, file.key, bytes);
}

void spoil_k(offer &made, flaw wrong) {
  switch (wrong) {
    case flaw::other_k:
      made.k.bytes += "\n";
      break;
    case flaw::empty_k:
      made.k.bytes.clear();
      break;
    case flaw::k_not_found:
      made.k.how = answer::kind::not_found;
      break;
    case flaw::k_refused:
      made.k.how = answer::kind::refused;
      break;
    default:
      made.k.how = answer::kind::breaks_off;
  }
}

void spoil_checksum(offer &made, flaw wrong) {
  answer &sum = made.checksum;
  switch (wrong) {
    case flaw::other_checksum:
      sum.bytes = other_digit_first(sum.bytes);
      break;
    case flaw::upper_case_checksum:
      sum.bytes = upper_case(sum.bytes);
      break;
    case flaw::short_checksum:
      sum.bytes.resize(ZOT_CHECKSUM_LEN - 1);
      break;
    case flaw::empty_checksum:
      sum.bytes.clear();
      break;
    case flaw::name_behind_checksum:
      sum.bytes = sum.bytes.substr(0, ZOT_CHECKSUM_LEN) + "  subsys.k\n";
      break;
    case flaw::bare_checksum:
      sum.bytes.resize(ZOT_CHECKSUM_LEN);
      break;
    case flaw::checksum_not_found:
      sum.how = answer::kind::not_found;
      break;
    case flaw::checksum_refused:
      sum.how = answer::kind::refused;
      break;
    default:
      sum.how = answer::kind::breaks_off;
  }
}

void spoil(offer &made, const manifest &said, flaw wrong, unsigned which) {
  if (wrong == flaw::none) {
    return;
  }
  if (wrong <= flaw::file_left_out) {
    if (!said.gpbs.empty()) {
      spoil_file(made, wrong, said.gpbs[which % said.gpbs.size()]);
    }
    return;
  }
  if (wrong <= flaw::archive_breaks_off) {
    made.is_archive = wrong != flaw::broken_archive;
    made.archive.how = wrong == flaw::no_archive           ? answer::kind::refused
                       : wrong == flaw::archive_breaks_off ? answer::kind::breaks_off
                                                           : answer::kind::body;
    return;
  }
  if (wrong <= flaw::k_breaks_off) {
    spoil_k(made, wrong);
    return;
  }
  spoil_checksum(made, wrong);
}

}  // namespace

const std::vector<configuration> &catalogue() {
  static const std::vector<configuration> all = all_configurations();
  return all;
}

const configuration *find_by_k(const std::string &k) {
  const auto found = std::ranges::find(catalogue(), k, &configuration::k);
  return found != catalogue().end() ? &*found : nullptr;
}

const char *name_of(flaw which) {
  static constexpr std::array<const char *, flaw_count> names = {
      "nothing",
      "one file has another byte",
      "one file is a byte short",
      "one file is empty",
      "one file is left out of the archive",
      "the archive is refused with 500",
      "the archive is no archive",
      "the archive breaks off",
      "K has a byte more than its checksum covers",
      "K is empty",
      "K is answered with 404",
      "K is answered with 500",
      "K breaks off",
      "the checksum has another digit",
      "the checksum is in upper case",
      "the checksum has 63 digits",
      "the checksum file is empty",
      "a name stands behind the checksum",
      "the checksum has no newline",
      "the checksum is answered with 404",
      "the checksum is answered with 500",
      "the checksum breaks off",
  };
  return names.at(static_cast<unsigned>(which));
}

offer offer_of(const configuration &published, flaw wrong, unsigned which) {
  offer made;
  made.name = published.name;
  made.checksum = {.how = answer::kind::body, .bytes = test::sha256_hex(published.k) + "\n"};
  made.k = {.how = answer::kind::body, .bytes = published.k};
  made.archive = {.how = answer::kind::body, .bytes = "no archive"};
  made.is_archive = true;
  made.published = published.published;
  const manifest said = published.content.value_or(manifest{});
  for (const gpb &file : said.gpbs) {
    made.archived[file.path] = file.bytes;
  }
  spoil(made, said, wrong, which);
  return made;
}

}  // namespace zot::faults
