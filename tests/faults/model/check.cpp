// SPDX-License-Identifier: Apache-2.0
#include "check.hpp"

#include <algorithm>
#include <array>

namespace zot::faults {
namespace {

// The model and the library, and the configuration published to both.
struct pair_of_elements {
  model &told;
  world &real;
  std::optional<unsigned> published = {};

  void publish(flaw wrong, unsigned which) {
    if (!published.has_value()) {
      return;
    }
    const offer offered = offer_of(catalogue().at(*published), wrong, which);
    told.publish(offered);
    real.publish(offered);
  }
};

struct outcomes {
  outcome told;
  outcome real;
};

outcomes take(const step &one, pair_of_elements &both) {
  switch (one.kind) {
    case step_kind::publish:
      both.published = one.what;
      both.publish(flaw::none, 0);
      return {};
    case step_kind::spoil_publication:
      both.publish(static_cast<flaw>(one.what), one.which);
      return {};
    case step_kind::damage_cache:
    case step_kind::damage_scratch:
      both.real.damage(both.told.damage(one));
      return {};
    case step_kind::get:
    case step_kind::cached_get:
      return {both.told.get(mask_of(one), categories_of(one)),
              both.real.get(mask_of(one), categories_of(one))};
    case step_kind::commit:
      return {both.told.commit(), both.real.commit()};
    case step_kind::roll_back:
      return {both.told.roll_back(), both.real.roll_back()};
    case step_kind::restart:
      both.told.restart();
      both.real.restart();
      return {};
    case step_kind::service_down:
    case step_kind::service_up:
      both.told.set_service(one.kind == step_kind::service_up);
      both.real.set_service(one.kind == step_kind::service_up);
      return {};
  }
  return {};
}

bool has_status(step_kind kind) {
  return kind == step_kind::get || kind == step_kind::cached_get || kind == step_kind::commit ||
         kind == step_kind::roll_back;
}

const char *status_name(int status) {
  switch (status) {
#define ZOT_MODEL_STATUS(name, code, text) \
  case code:                               \
    return #name;
    ZOT_STATUS_MAP(ZOT_MODEL_STATUS)
#undef ZOT_MODEL_STATUS
    default:
      return "another status";
  }
}

void count(const step &one, const outcomes &seen, tally &counts) {
  const std::string name = name_of(one.kind);
  ++counts["step " + name];
  if (has_status(one.kind)) {
    ++counts[name + ": " + status_name(seen.real.status)];
  }
  if (!seen.told.note.empty()) {
    ++counts[name + ", " + seen.told.note + ": " + status_name(seen.real.status)];
  }
}

std::string text_of(const std::vector<test::returned_entry> &entries) {
  std::string text;
  for (const test::returned_entry &entry : entries) {
    const char *const category = zot_util_cat2str(entry.category);
    text += std::string(category != nullptr ? category : "?") + "/" + entry.key + "=" +
            std::to_string(entry.stat) +
            (entry.has_data ? " '" + entry.bytes + "' " : " no data ") +
            std::to_string(entry.size) + "; ";
  }
  return text;
}

void add(const outcome &one, view &seen) {
  seen["status"] = std::to_string(one.status);
  seen["list"] = one.has_list ? "given" : "none";
  seen["entries"] = text_of(one.entries);
  seen["requests"] = one.requests;
}

std::string value_of(const view &seen, const std::string &name) {
  const auto found = seen.find(name);
  return found != seen.end() ? "\"" + found->second + "\"" : "absent";
}

// Returns an empty text when both are equal.
std::string differences(const view &told, const view &real) {
  view all = told;
  all.insert(real.begin(), real.end());
  std::string text;
  for (const auto &[name, bytes] : all) {
    const std::string expected = value_of(told, name);
    const std::string found = value_of(real, name);
    if (expected != found) {
      text += "    " + name + "\n      model:   " + expected + "\n      library: " + found + "\n";
    }
  }
  return text;
}

sequence without(const sequence &steps, std::size_t from, std::size_t count) {
  sequence rest(steps.begin(), steps.begin() + static_cast<long>(from));
  rest.insert(rest.end(), steps.begin() + static_cast<long>(std::min(steps.size(), from + count)),
              steps.end());
  return rest;
}

}  // namespace

std::optional<disagreement> checker::run(const sequence &steps, tally *counts) {
  model told(lie_, adapter_ == adapter::own);
  world real(remote_, closed_port_, adapter_);
  pair_of_elements both{told, real};
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const outcomes seen = take(steps[i], both);
    view expected = told.look();
    view found = real.look();
    add(seen.told, expected);
    add(seen.real, found);
    if (expected != found) {
      return disagreement{i, differences(expected, found)};
    }
    if (counts != nullptr) {
      count(steps[i], seen, *counts);
    }
  }
  return std::nullopt;
}

sequence shrink(sequence failing, const std::function<bool(const sequence &)> &still_fails) {
  std::size_t chunk = std::max<std::size_t>(1, failing.size() / 2);
  while (true) {
    bool shorter = false;
    for (std::size_t from = 0; from < failing.size();) {
      const sequence fewer = without(failing, from, chunk);
      if (still_fails(fewer)) {
        failing = fewer;
        shorter = true;
      } else {
        from += chunk;
      }
    }
    if (!shorter && chunk == 1) {
      return failing;
    }
    if (!shorter) {
      chunk = std::max<std::size_t>(1, chunk / 2);
    }
  }
}

}  // namespace zot::faults
