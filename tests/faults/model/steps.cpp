// SPDX-License-Identifier: Apache-2.0
#include "steps.hpp"

#include <array>
#include <cstdio>
#include <random>
#include <utility>

#include "tests/support/element.hpp"

namespace zot::faults {
namespace {

struct weighted {
  step_kind kind;
  unsigned weight;
};
constexpr std::array kinds = {
    weighted{step_kind::publish, 18},     weighted{step_kind::spoil_publication, 7},
    weighted{step_kind::damage_cache, 7}, weighted{step_kind::damage_scratch, 7},
    weighted{step_kind::get, 28},         weighted{step_kind::cached_get, 8},
    weighted{step_kind::commit, 18},      weighted{step_kind::roll_back, 8},
    weighted{step_kind::restart, 6},      weighted{step_kind::service_down, 1},
    weighted{step_kind::service_up, 2},
};

struct named_mask {
  std::uint32_t mask;
  const char *name;
};
constexpr std::array masks = {
    named_mask{test::every_change, "every change"},
    named_mask{test::every_change, "every change"},
    named_mask{ZOT_STAT_FULL, "full"},
    named_mask{ZOT_STAT_UNCHANGED, "unchanged"},
    named_mask{ZOT_STAT_DELETED, "deleted"},
    named_mask{ZOT_STAT_ADDED | ZOT_STAT_MODIFIED, "added and modified"},
    named_mask{ZOT_STAT_FULL | ZOT_STAT_DELETED, "full and deleted"},
    named_mask{0, "no bit"},
};
constexpr std::array cached_masks = {
    named_mask{ZOT_STAT_CACHED, "cached"},
    named_mask{ZOT_STAT_CACHED | ZOT_STAT_FULL | ZOT_STAT_ADDED, "cached, full and added"},
};

constexpr std::array<const char *, 5> category_sets = {
    "every category", "every category", "Wlan only", "Zone and Radio", "no category"};

constexpr std::array<const char *, 14> targets = {
    "subsys.k",
    "subsys.checksum",
    "prev_subsys.k",
    "prev_subsys.checksum",
    "corrupted.k",
    "corrupted.checksum",
    "a GPB file",
    "config",
    "everything",
    "subsys.k and its checksum",
    "prev_subsys.k and its checksum",
    "corrupted.k and its checksum",
    "a GPB file that no K names",
    "knowledge",
};
constexpr std::array scratch_targets = {target::k,    target::k,          target::checksum,
                                        target::gpb,  target::gpb,        target::every_gpb,
                                        target::pair, target::everything, target::stray_gpb};
constexpr std::array<const char *, 4> manners = {"has another byte", "is emptied", "is removed",
                                                 "has a byte appended"};

class dice {
 public:
  explicit dice(std::uint64_t seed) : engine_(seed) {}
  unsigned below(std::size_t count) {
    return static_cast<unsigned>(engine_() % static_cast<std::uint64_t>(count));
  }

 private:
  std::mt19937_64 engine_;
};

step_kind random_kind(dice &thrown) {
  unsigned total = 0;
  for (const weighted &one : kinds) {
    total += one.weight;
  }
  unsigned left = thrown.below(total);
  for (const weighted &one : kinds) {
    if (left < one.weight) {
      return one.kind;
    }
    left -= one.weight;
  }
  return step_kind::get;
}

step random_step(dice &thrown) {
  step one{.kind = random_kind(thrown)};
  switch (one.kind) {
    case step_kind::publish:
      // The valid configurations come first in the catalogue and are chosen more often.
      one.what = thrown.below(thrown.below(4) == 0 ? catalogue().size() : 8);
      break;
    case step_kind::spoil_publication:
      one.what = thrown.below(flaw_count);
      one.which = thrown.below(4);
      break;
    case step_kind::damage_cache:
      one.what = thrown.below(targets.size());
      break;
    case step_kind::damage_scratch:
      one.what = static_cast<unsigned>(scratch_targets.at(thrown.below(scratch_targets.size())));
      break;
    case step_kind::get:
      one.what = thrown.below(masks.size());
      one.how = thrown.below(category_sets.size());
      break;
    case step_kind::cached_get:
      one.what = thrown.below(cached_masks.size());
      one.how = thrown.below(category_sets.size());
      break;
    default:
      break;
  }
  if (one.kind == step_kind::damage_cache || one.kind == step_kind::damage_scratch) {
    one.how = thrown.below(manners.size());
    one.which = thrown.below(8);
  }
  return one;
}

// Adds a commit of damaged files and, in most cases, what follows: the files are repaired or stay
// damaged, and then comes another commit, a get, a rollback or a new process.
void add_interrupted_commit(dice &thrown, unsigned published, sequence &steps) {
  steps.push_back({.kind = step_kind::commit});
  if (thrown.below(3) != 0) {
    const target mended = thrown.below(4) == 0 ? target::stray_gpb : target::pair;
    steps.push_back({.kind = step_kind::damage_scratch,
                     .what = static_cast<unsigned>(mended),
                     .which = published});
  }
  constexpr std::array next = {step_kind::commit, step_kind::commit,    step_kind::get,
                               step_kind::get,    step_kind::roll_back, step_kind::restart};
  steps.push_back({.kind = next.at(thrown.below(next.size()))});
}

std::string damage_text(const step &one) {
  const auto hit = static_cast<target>(one.what);
  const std::string place = one.kind == step_kind::damage_cache ? "cache: " : "scratch: ";
  const std::string name = place + targets.at(one.what);
  switch (hit) {
    case target::every_gpb:
    case target::everything:
    case target::knowledge:
      return name + " is removed";
    case target::pair:
    case target::prev_pair:
    case target::corrupted_pair:
      return name + " become those of configuration " +
             catalogue().at(one.which % catalogue().size()).name;
    case target::stray_gpb:
      return name + " appears";
    case target::gpb:
      return name + " (the " + std::to_string(one.which) + ". from 0, counted round) " +
             manners.at(one.how);
    default:
      return name + " " + manners.at(one.how);
  }
}

const named_mask &named_mask_of(const step &get) {
  return get.kind == step_kind::cached_get ? cached_masks.at(get.what) : masks.at(get.what);
}

}  // namespace

sequence random_sequence(std::uint64_t seed) {
  dice thrown(seed);
  // A configuration is published before the random steps.
  sequence steps = {{.kind = step_kind::publish, .what = thrown.below(6)}};
  unsigned published = steps.front().what;
  const unsigned length = 4 + thrown.below(13);
  while (steps.size() < length) {
    steps.push_back(random_step(thrown));
    const step_kind kind = steps.back().kind;
    if (kind == step_kind::publish) {
      published = steps.back().what;
    } else if (kind == step_kind::damage_scratch && thrown.below(3) == 0) {
      add_interrupted_commit(thrown, published, steps);
    }
  }
  // At the end of each sequence, a new process without a service reads the configuration in force.
  steps.push_back({.kind = step_kind::restart});
  steps.push_back({.kind = step_kind::service_down});
  steps.push_back({.kind = step_kind::cached_get});
  return steps;
}

const char *name_of(step_kind kind) {
  static constexpr std::array<const char *, 11> names = {
      "publish", "spoil publication", "damage cache", "damage scratch", "get",       "cached get",
      "commit",  "roll back",         "restart",      "service down",   "service up"};
  return names.at(static_cast<unsigned>(kind));
}

std::string text_of(const step &one) {
  const std::string name = name_of(one.kind);
  switch (one.kind) {
    case step_kind::publish:
      return name + " configuration " + catalogue().at(one.what).name;
    case step_kind::spoil_publication:
      return name + ": " + name_of(static_cast<flaw>(one.what)) + " (file " +
             std::to_string(one.which) + ", counted round)";
    case step_kind::damage_cache:
    case step_kind::damage_scratch:
      return damage_text(one);
    case step_kind::get:
    case step_kind::cached_get: {
      std::array<char, 8> number{};
      std::snprintf(number.data(), number.size(), "0x%02x", named_mask_of(one).mask);
      return name + " " + number.data() + " (" + named_mask_of(one).name + "), " +
             category_sets.at(one.how);
    }
    default:
      return name;
  }
}

std::string text_of(const sequence &steps) {
  std::string text;
  unsigned number = 0;
  for (const step &one : steps) {
    text += "  " + std::to_string(++number) + ". " + text_of(one) + "\n";
  }
  return text;
}

std::uint32_t mask_of(const step &get) {
  return named_mask_of(get).mask;
}

zot_catset categories_of(const step &get) {
  zot_catset set{};
  switch (get.how) {
    case 2:
      set.word[ZOT_CAT_WLAN / 32] |= 1U << (ZOT_CAT_WLAN % 32U);
      return set;
    case 3:
      set.word[ZOT_CAT_ZONE / 32] |= 1U << (ZOT_CAT_ZONE % 32U);
      set.word[ZOT_CAT_RADIO / 32] |= 1U << (ZOT_CAT_RADIO % 32U);
      return set;
    case 4:
      return set;
    default:
      return test::every_category();
  }
}

}  // namespace zot::faults
