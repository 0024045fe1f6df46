// SPDX-License-Identifier: Apache-2.0
#include "sweep.hpp"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

#include "trial.hpp"

namespace zot::faults {
namespace {

constexpr int shown_failures = 10;

unsigned long long printable(std::uint64_t number) {
  return number;
}

class sweep {
 public:
  sweep(const operation &tried, const options &asked, const ports &at)
      : tried_(tried), asked_(asked), stage_(at) {}

  void run() {
    wanted_.last_block = inspect_heap().newest_block;
    tried_.prepare(stage_);
    stage_.save_files();
    wanted_.found_before = stage_.found_anew();
    if (!take_references()) {
      return;
    }
    if (asked_.only.how != failing::never) {
      wanted_.shows_all = true;
      try_one(asked_.only);
      return;
    }
    const std::uint64_t count = asked_.at_most != 0 ? std::min(asked_.at_most, total_) : total_;
    for (const failing how : {failing::once, failing::from_then_on}) {
      for (std::uint64_t at = 0; at < count; ++at) {
        try_one({how, 1 + at * total_ / count});
      }
    }
  }

  void add_to(tally &all) const {
    ++all.operations;
    all.allocations += total_;
    all.tried += tried_count_;
    all.held += held_;
    all.known_leaks += known_leaks_;
  }

  void print() const {
    std::printf("%s: %llu allocations, %llu failures: %llu held\n", tried_.name.c_str(),
                printable(total_), printable(tried_count_), printable(held_));
    for (const auto &[end, count] : ends_) {
      std::printf("    %s: %llu\n", end.c_str(), printable(count));
    }
  }

 private:
  // Makes the undisturbed runs: one without changes, and one for each combination of loads that are
  // lost beforehand.
  bool take_references() {
    if (!take_reference(wanted_, 0)) {
      return false;
    }
    total_ = told_->allocations.allocations;
    wanted_.found_after = told_->found_anew.data();
    wanted_.left_sizes.assign(told_->left_sizes.begin(),
                              told_->left_sizes.begin() + told_->left_count);
    const reference undisturbed = {{told_->status, told_->text.data()}, told_->after.data()};
    const std::uint32_t loads = tried_.dispensable_loads & told_->found_loads;
    references known(loads);
    known.keep(0, undisturbed);
    for (std::uint32_t lost = loads; lost != 0; lost = (lost - 1) & loads) {
      if (!take_reference(wanted_, lost)) {
        return false;
      }
      known.keep(lost, {{told_->status, told_->text.data()}, told_->after.data()});
    }
    wanted_.known = known;
    return true;
  }

  bool take_reference(trial wanted, std::uint32_t lost) {
    wanted.lost = lost;
    wanted.known = references(lost);
    if (run_trial(tried_, stage_, wanted, told_)) {
      return true;
    }
    ++tried_count_;
    std::printf("FAILED %s, undisturbed, lost loads %x: %s\n", tried_.name.c_str(), lost,
                told_->text.data());
    return false;
  }

  void try_one(const fault &fault) {
    wanted_.tried = fault;
    ++tried_count_;
    const bool holds = run_trial(tried_, stage_, wanted_, told_);
    if (holds && told_->allocations.failed != 0) {
      ++held_;
      known_leaks_ += told_->has_known_leak ? 1 : 0;
      ++ends_["status " + std::to_string(told_->status) +
              (told_->is_as_undisturbed ? " as undisturbed" : "") + told_->notes.data()];
      return;
    }
    if (tried_count_ - held_ <= shown_failures || wanted_.shows_all) {
      std::printf("FAILED %s, allocation %llu of %llu %s, status %d: %s\n", tried_.name.c_str(),
                  printable(fault.which), printable(total_),
                  fault.how == failing::once ? "once" : "and all that follow", told_->status,
                  holds ? "it did not come to it" : told_->text.data());
    }
  }

  const operation &tried_;
  const options &asked_;
  stage stage_;
  shared_report told_;
  trial wanted_;
  std::uint64_t total_ = 0;
  std::uint64_t tried_count_ = 0;
  std::uint64_t held_ = 0;
  std::uint64_t known_leaks_ = 0;
  std::map<std::string, std::uint64_t> ends_;
};

}  // namespace

void sweep_operation(const operation &tried, const options &asked, const ports &at, tally &all) {
  sweep one(tried, asked, at);
  one.run();
  one.print();
  one.add_to(all);
}

}  // namespace zot::faults
