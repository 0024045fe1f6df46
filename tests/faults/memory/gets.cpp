// SPDX-License-Identifier: Apache-2.0
// Gets of every kind, during the life of a handle and as its first call.
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include "operations.hpp"
#include "zot_priv/storage/fetched.hpp"

namespace zot::faults {
namespace {

constexpr fault none{};

struct get_case {
  std::string name;
  int status;
  std::uint32_t mask = test::every_change;
  std::function<void(stage &)> prepare;
  int verdict;                    // of a commit
  published in_force;             // after it
  bool may_replace_last = false;  // a get without an update makes the K in force the last one
  bool has_proxy = false;
};

// What was there before a get, which leaves it alone.
struct memory {
  std::string in_force;
  bytes_by_name cache;
};

bytes_by_name without_last(bytes_by_name files) {
  files.erase("knowledge/prev_subsys.k");
  files.erase("knowledge/prev_subsys.checksum");
  return files;
}

void expect_left_alone(stage &on, const get_case &wanted, const memory &before) {
  const std::string in_force = on.in_force_in_memory();
  const bool has_loaded = (on.lost_loads() & ZOT_LOADED_CONF) == 0;
  expect(before.in_force == in_force || (before.in_force == "\n" && has_loaded),
         "the configuration in force changed in memory");
  const bytes_by_name cache = on.cache();
  const bool is_kept = wanted.may_replace_last ? without_last(cache) == without_last(before.cache)
                                               : cache == before.cache;
  expect(is_kept, "the cache changed: " + described(before.cache) + "now " + described(cache));
}

// Without memory for its path, a new K is told to have come although its bytes are given up. Its
// files lie in the scratch directory all the same, so its commit brings it in as a whole.
bool came_without_bytes(const stage &on) {
  const zot_k *const fetched = on.handle()->slot[ZOT_SLOT_TMP].k;
  return (on.handle()->stat.state & ZOT_CYCLE_NEW_CONF) != 0 && fetched->data_len == 0;
}

void commit_without_bytes(stage &on, published in_force) {
  on.note("came without its bytes");
  const int status = zot_conf_commit(on.handle());
  expect(status == ZOT_OK, "a commit without bytes ends with " + std::to_string(status));
  const std::string bytes = configuration(in_force).k_text();
  expect(on.in_force_in_memory().starts_with(bytes), "what is in force has no bytes");
}

std::string go_on_after_get(stage &on, const get_case &wanted, const memory &before,
                            const outcome &got, const references &known) {
  expect_left_alone(on, wanted, before);
  const reference *want = known.find(on.lost_loads());
  // What claims to have succeeded is given its verdict as it is.
  if (want != nullptr && got.text != want->given.text) {
    const outcome again = on.get(none, wanted.mask);
    // A returned list that could not be loaded is made anew by the next get, from what is in force.
    const reference *const as_lost = want;
    want = known.find(on.lost_loads());
    want = as_lost->given.text == again.text ? as_lost : want;
    expect(again.text == want->given.text,
           "the next get gives\n" + again.text + "instead of\n" + want->given.text);
  }
  // A load that was lost takes its place in what the verdict is about.
  const bool is_whole = (on.lost_loads() & known.loads()) == 0;
  std::string after = on.in_force_in_memory();
  if (came_without_bytes(on)) {
    commit_without_bytes(on, wanted.in_force);
  }
  const int verdict = zot_conf_commit(on.handle());
  after += "verdict " + std::to_string(verdict) + ", cache " + described(on.listed_in_cache());
  if (is_whole) {
    expect(verdict == wanted.verdict, "the verdict ends with " + std::to_string(verdict));
    on.expect_in_force_on_disk(wanted.in_force);
  }
  expect(want == nullptr || want->after.empty() || after == want->after,
         "it goes on with\n" + after + "\ninstead of\n" + (want != nullptr ? want->after : ""));
  on.expect_whole_cycle(fourth);
  return after;
}

// A get looks for a refused K that an earlier load has missed. Where that load is to count as lost,
// the file is not there for the time of the get, which remembers it all the same.
class refusal_out_of_sight {
 public:
  explicit refusal_out_of_sight(const stage &on)
      : handle_(*on.handle()),
        file_(std::string(on.handle()->conf_root) + "/knowledge/corrupted.checksum"),
        aside_(std::string(on.handle()->tmp_root) + "/../refusal"),
        is_moved_((on.lost_loads() & ZOT_LOADED_FAIL_K) != 0 &&
                  std::rename(file_.c_str(), aside_.c_str()) == 0) {}
  refusal_out_of_sight(const refusal_out_of_sight &) = delete;
  refusal_out_of_sight &operator=(const refusal_out_of_sight &) = delete;
  ~refusal_out_of_sight() {
    if (is_moved_) {
      std::rename(aside_.c_str(), file_.c_str());
      zot::remember_get(handle_);
    }
  }

 private:
  zot_ctx &handle_;
  std::string file_;
  std::string aside_;
  bool is_moved_;
};

operation get_operation(get_case wanted) {
  const auto before = std::make_shared<memory>();
  const auto run = [wanted, before](stage &on, const fault &fault) {
    *before = {on.in_force_in_memory(), on.cache()};
    // What the environment names as a proxy is a service with another configuration.
    const std::string proxy = "http://127.0.0.1:" + std::to_string(on.port_of(third));
    const test::env_guard named("http_proxy",
                                wanted.has_proxy ? std::optional(proxy) : std::nullopt);
    const refusal_out_of_sight hidden(on);
    return on.get(fault, wanted.mask);
  };
  const auto go_on = [wanted, before](stage &on, const outcome &got, const references &known) {
    return go_on_after_get(on, wanted, *before, got, known);
  };
  return {wanted.name,
          wanted.status,
          {ZOT_ERR_NOMEM, ZOT_ERR_GENERIC, ZOT_ERR_REMOTE_UNAVAIL, ZOT_ERR_CORRUPTED},
          every_load,
          wanted.prepare,
          run,
          go_on};
}

void start(stage &on) {
  on.element().restart();
}

void start_with_first(stage &on) {
  start(on);
  on.bring_to(first);
}

void start_with_second(stage &on) {
  start_with_first(on);
  on.bring_to(second);
}

void publish_second(stage &on) {
  start_with_first(on);
  on.publish(second);
}

void offer_rolled_back(stage &on) {
  fill_cache(on);
  expect(on.get(none).status == ZOT_OK, "no update");
  on.publish(third);
}

std::vector<get_case> cases() {
  return {
      {.name = "first get",
       .status = ZOT_OK,
       .prepare = start,
       .verdict = ZOT_OK,
       .in_force = first},
      {.name = "first get past a proxy",
       .status = ZOT_OK,
       .prepare = start,
       .verdict = ZOT_OK,
       .in_force = first,
       .has_proxy = true},
      {.name = "get with a difference",
       .status = ZOT_OK,
       .prepare = publish_second,
       .verdict = ZOT_OK,
       .in_force = second},
      {.name = "full get",
       .status = ZOT_OK,
       .mask = ZOT_STAT_FULL,
       .prepare = publish_second,
       .verdict = ZOT_OK,
       .in_force = second},
      {.name = "get without an update",
       .status = ZOT_OK,
       .prepare = start_with_second,
       .verdict = ZOT_NO_UPDATE,
       .in_force = second,
       .may_replace_last = true},
      {.name = "get of what was rolled back",
       .status = ZOT_ERR_SAME_AS_CORRUPTED,
       .prepare = offer_rolled_back,
       .verdict = ZOT_NO_UPDATE,
       .in_force = second},
      {.name = "cached get",
       .status = ZOT_OK,
       .mask = ZOT_STAT_CACHED,
       .prepare = start_with_second,
       .verdict = ZOT_OK,
       .in_force = second},
      {.name = "start-up: cached get",
       .status = ZOT_OK,
       .mask = ZOT_STAT_CACHED,
       .prepare = fill_cache,
       .verdict = ZOT_ERR_NOT_READY,
       .in_force = second},
      {.name = "start-up: get without an update",
       .status = ZOT_OK,
       .prepare = fill_cache,
       .verdict = ZOT_NO_UPDATE,
       .in_force = second,
       .may_replace_last = true},
      {.name = "start-up: get with a difference",
       .status = ZOT_OK,
       .prepare =
           [](stage &on) {
             fill_cache(on);
             on.publish(first);
           },
       .verdict = ZOT_OK,
       .in_force = first},
      {.name = "start-up: get of what was rolled back",
       .status = ZOT_ERR_SAME_AS_CORRUPTED,
       .prepare =
           [](stage &on) {
             fill_cache(on);
             on.publish(third);
           },
       .verdict = ZOT_NO_UPDATE,
       .in_force = second},
  };
}

}  // namespace

void fill_cache(stage &on) {
  start_with_second(on);
  on.publish(third);
  expect(on.get(none).status == ZOT_OK && zot_conf_roll_back(on.handle()) == ZOT_OK, "roll-back");
  // A roll-back forgets the last K; a get without an update puts the one in force there.
  on.publish(second);
  expect(on.get(none).status == ZOT_OK, "no update");
  on.element().restart();
}

std::vector<operation> gets() {
  std::vector<operation> all;
  for (const get_case &each : cases()) {
    all.push_back(get_operation(each));
  }
  return all;
}

}  // namespace zot::faults
