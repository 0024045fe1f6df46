// SPDX-License-Identifier: Apache-2.0
// Runs a sequence of actions of controllers, services and processes, and of accidents, on an
// element and on its model at the same time. The input has four bytes for each step.
#include <array>

#include "fuzz/check.hpp"
#include "tests/faults/model/check.hpp"

namespace {
using namespace zot::faults;

constexpr std::size_t bytes_of_step = 4;
constexpr std::size_t most_steps = 24;
constexpr unsigned kind_count = static_cast<unsigned>(step_kind::service_up) + 1;
constexpr unsigned mask_count = 8;
constexpr unsigned cached_mask_count = 2;
constexpr unsigned category_set_count = 5;
constexpr unsigned manner_count = static_cast<unsigned>(manner::byte_appended) + 1;
constexpr unsigned target_count = static_cast<unsigned>(target::knowledge) + 1;
constexpr unsigned file_count = 8;
constexpr std::array scratch_targets = {target::k,         target::checksum, target::gpb,
                                        target::every_gpb, target::pair,     target::everything,
                                        target::stray_gpb};

step step_of(const std::uint8_t *bytes) {
  step one{.kind = static_cast<step_kind>(bytes[0] % kind_count)};
  switch (one.kind) {
    case step_kind::publish:
      one.what = bytes[1] % static_cast<unsigned>(catalogue().size());
      break;
    case step_kind::spoil_publication:
      one.what = bytes[1] % flaw_count;
      one.which = bytes[3] % file_count;
      break;
    case step_kind::damage_cache:
      one.what = bytes[1] % target_count;
      break;
    case step_kind::damage_scratch:
      one.what = static_cast<unsigned>(scratch_targets.at(bytes[1] % scratch_targets.size()));
      break;
    case step_kind::get:
      one.what = bytes[1] % mask_count;
      one.how = bytes[2] % category_set_count;
      break;
    case step_kind::cached_get:
      one.what = bytes[1] % cached_mask_count;
      one.how = bytes[2] % category_set_count;
      break;
    default:
      break;
  }
  if (one.kind == step_kind::damage_cache || one.kind == step_kind::damage_scratch) {
    one.how = bytes[2] % manner_count;
    one.which = bytes[3] % file_count;
  }
  return one;
}

sequence sequence_of(const std::uint8_t *bytes, std::size_t size) {
  sequence steps;
  for (; size >= bytes_of_step && steps.size() < most_steps; size -= bytes_of_step) {
    steps.push_back(step_of(bytes));
    bytes += bytes_of_step;
  }
  return steps;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static checker both(adapter::client, lie::none);
  const sequence steps = sequence_of(bytes, size);
  if (const auto failed = both.run(steps, nullptr); failed.has_value()) {
    const auto fails = [](const sequence &fewer) { return both.run(fewer, nullptr).has_value(); };
    zot::fuzz::complain("the library agrees with its model after step " +
                        std::to_string(failed->step + 1) + "\n" + text_of(steps) + failed->text +
                        "  made short:\n" + text_of(shrink(steps, fails)));
  }
  return 0;
}
