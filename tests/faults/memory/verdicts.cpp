// SPDX-License-Identifier: Apache-2.0
// Commit and rollback.
#include <utility>

#include "operations.hpp"

namespace zot::faults {
namespace {

constexpr fault none{};

outcome described_verdict(int status) {
  return {status, "status " + std::to_string(status)};
}

// A commit may be repeated until it is done.
operation commit_operation(std::string name, std::function<void(stage &)> prepare) {
  const auto run = [](stage &on, const fault &fault) {
    return described_verdict(on.under(fault, [&] { return zot_conf_commit(on.handle()); }));
  };
  const auto go_on = [](stage &on, const outcome &got, const references &) -> std::string {
    if (got.status != ZOT_OK) {
      const int again = zot_conf_commit(on.handle());
      expect(again == ZOT_OK, "the second commit ends with " + std::to_string(again));
    }
    on.expect_in_force_on_disk(second);
    const outcome next = on.get(none);
    expect(next.status == ZOT_OK && (on.handle()->stat.state & ZOT_CYCLE_SAME_K) != 0,
           "after the commit: " + next.text);
    on.expect_whole_cycle(fourth);
    return {};
  };
  return {std::move(name),
          ZOT_OK,
          {ZOT_ERR_NOMEM, ZOT_ERR_GENERIC, ZOT_ERR_CORRUPTED, ZOT_ERR_NO_FILE},
          0,
          std::move(prepare),
          run,
          go_on};
}

// What a handle answers while the service goes on offering what was rolled back.
void expect_in_force_given(stage &on, published in_force) {
  const test::returned_list next = on.element().get(ZOT_STAT_FULL);
  expect(next.status == ZOT_ERR_SAME_AS_CORRUPTED,
         "the service offers it again: " + std::to_string(next.status));
  const test::returned_entry *const guest = next.find(ZOT_CAT_WLAN, "guest");
  expect(guest != nullptr && guest->bytes == "guest of " + std::to_string(in_force),
         "a get after the roll-back gives what was rolled back");
}

// A roll-back, too, may be repeated; it may also find that its K is kept as corrupted already.
std::string go_on_after_roll_back(stage &on, const outcome &got) {
  if (got.status != ZOT_OK) {
    const int again = zot_conf_roll_back(on.handle());
    expect(again == ZOT_OK || again == ZOT_NO_UPDATE,
           "the second roll-back ends with " + std::to_string(again));
  }
  on.expect_in_force_on_disk(second);
  expect_in_force_given(on, second);
  on.expect_whole_cycle(fourth);
  return {};
}

operation roll_back_operation(std::string name, std::function<void(stage &)> prepare) {
  const auto run = [](stage &on, const fault &fault) {
    return described_verdict(on.under(fault, [&] { return zot_conf_roll_back(on.handle()); }));
  };
  const auto go_on = [](stage &on, const outcome &got, const references &) {
    return go_on_after_roll_back(on, got);
  };
  return {std::move(name),
          ZOT_OK,
          {ZOT_ERR_NOMEM, ZOT_ERR_GENERIC, ZOT_ERR_CORRUPTED, ZOT_ERR_NO_FILE},
          0,
          std::move(prepare),
          run,
          go_on};
}

void fetch(stage &on, published which) {
  on.publish(which);
  expect(on.get(none).status == ZOT_OK, "get");
}

}  // namespace

std::vector<operation> verdicts() {
  std::vector<operation> all;
  all.push_back(commit_operation("commit", [](stage &on) {
    on.element().restart();
    on.bring_to(first);
    fetch(on, second);
  }));
  all.push_back(commit_operation("first commit", [](stage &on) {
    on.element().restart();
    fetch(on, second);
  }));
  all.push_back(roll_back_operation("roll-back", [](stage &on) {
    on.element().restart();
    on.bring_to(first);
    on.bring_to(second);
    fetch(on, third);
  }));
  all.push_back(roll_back_operation("start-up: roll-back", [](stage &on) {
    on.element().restart();
    on.bring_to(first);
    on.bring_to(second);
    on.element().restart();
    fetch(on, third);
  }));
  return all;
}

}  // namespace zot::faults
