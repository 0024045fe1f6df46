// SPDX-License-Identifier: Apache-2.0
#include "trial.hpp"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <new>
#include <system_error>

namespace zot::faults {
namespace {

constexpr unsigned seconds_for_a_trial = 60;

template <std::size_t Size>
void tell(std::array<char, Size> &to, const std::string &text) {
  static_cast<void>(std::snprintf(to.data(), to.size(), "%s", text.c_str()));
}

std::ptrdiff_t open_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// A known and accepted leak: the text of the announced checksum stays allocated when the following
// download of K fails.
bool is_announced_checksum(std::string_view block) {
  for (int which = first; which < published_count; ++which) {
    const std::string text = configuration(static_cast<published>(which)).checksum_text();
    if (block == std::string_view(text.c_str(), text.size() + 1)) {
      return true;
    }
  }
  return false;
}

void expect_nothing_left(const trial &wanted, bool is_reference, report &told) {
  const heap_state heap = inspect_heap();
  expect(heap.errors == 0, heap.first_error);
  std::vector<std::size_t> undisturbed = wanted.left_sizes;
  for (const std::string_view block : live_blocks_since(wanted.last_block)) {
    if (is_reference) {
      told.left_sizes.at(told.left_count++) = block.size();
    } else if (const auto found = std::ranges::find(undisturbed, block.size());
               found != undisturbed.end()) {
      undisturbed.erase(found);
    } else if (!told.has_known_leak && is_announced_checksum(block)) {
      told.has_known_leak = true;
    } else {
      print_blocks_since(wanted.last_block);
      constexpr std::size_t shown = 80;
      throw broken_promise("a block of " + std::to_string(block.size()) +
                           " bytes stays allocated: " + std::string(block.substr(0, shown)));
    }
  }
}

void expect_documented(const operation &tried, const outcome &got, const reference &want) {
  if (got.text == want.given.text) {
    return;
  }
  expect(std::ranges::find(tried.failures, got.status) != tried.failures.end(),
         "it gives\n" + got.text + "\ninstead of\n" + want.given.text);
}

// After success, a new process must find the new configuration; otherwise the old one or the new
// one.
void expect_in_force_anew(const operation &tried, const outcome &got, const trial &wanted,
                          const std::string &found) {
  const bool is_done = got.status == tried.status;
  expect(found == wanted.found_after || (!is_done && found == wanted.found_before),
         "with status " + std::to_string(got.status) + " a new process finds\n" + found);
}

void try_it(const operation &tried, stage &on, const trial &wanted, report &told) {
  const std::ptrdiff_t descriptors = open_descriptors();
  if (on.handle() != nullptr) {
    on.lose(wanted.lost);
  }
  const std::uint32_t tried_before = on.handle() != nullptr ? on.tried_loads() : 0;
  const outcome got = tried.run(on, wanted.tried);
  told.allocations = on.allocations();
  told.status = got.status;
  const std::uint32_t lost = on.handle() != nullptr ? on.lost_loads() : 0;
  if (on.handle() != nullptr) {
    told.found_loads = on.tried_loads() & ~tried_before & ~lost;
  }
  tell(told.text, got.text);

  const reference *const want = wanted.known.find(lost);
  const reference *const undisturbed = wanted.known.find(0);
  const bool is_reference = undisturbed == nullptr;
  expect(!is_reference || wanted.lost != 0 || got.status == tried.status,
         "undisturbed it gives\n" + got.text);
  if (!is_reference) {
    told.is_as_undisturbed = got.text == undisturbed->given.text;
    expect(want != nullptr, "no reference");
    expect_documented(tried, got, *want);
  }
  const std::string found = on.found_anew();
  tell(told.found_anew, found);
  if (!is_reference) {
    expect_in_force_anew(tried, got, wanted, found);
  }
  tell(told.after, tried.go_on(on, got, wanted.known));
  tell(told.notes, on.notes());
  on.element().stop();
  expect(open_descriptors() <= descriptors, "a descriptor stays open");
  expect_nothing_left(wanted, is_reference, told);
}

}  // namespace

shared_report::shared_report() {
  void *const shared =
      ::mmap(nullptr, sizeof(report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "mmap");
  }
  shared_ = new (shared) report{};
}

shared_report::~shared_report() {
  ::munmap(shared_, sizeof *shared_);
}

bool run_trial(const operation &tried, stage &on, const trial &wanted, shared_report &told) {
  *told = {};
  on.restore_files();
  static_cast<void>(std::fflush(stdout));
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::alarm(seconds_for_a_trial);
    static_cast<void>(std::freopen("/dev/null", "we", stdout));
    if (!wanted.shows_all) {
      static_cast<void>(std::freopen("/dev/null", "we", stderr));
      // Unbuffered, because the first message would otherwise allocate a buffer and be counted as a
      // block left behind.
      static_cast<void>(std::setvbuf(stderr, nullptr, _IONBF, 0));
    }
    try {
      try_it(tried, on, wanted, *told);
      told->is_complete = true;
    } catch (const std::exception &broken) {
      tell(told->text, broken.what());
    }
    ::_exit(0);
  }
  int ended = 0;
  ::waitpid(pid, &ended, 0);
  if (WIFSIGNALED(ended)) {
    tell(told->text, std::string("crashed: ") + ::strsignal(WTERMSIG(ended)));
    return false;
  }
  return told->is_complete;
}

}  // namespace zot::faults
