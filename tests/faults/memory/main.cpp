// SPDX-License-Identifier: Apache-2.0
// Makes every allocation of every operation fail: each once alone, and each once with all that
// follow. Each failure is tried in a process of its own, on a copy of one prepared element.
//
//   memory_sweep [--jobs N] [--at-most N] [--operation NAME [--once K | --from K]]
//
//   --jobs N     try N operations in parallel
//   --at-most N  try only N allocations of each operation, spread evenly
//   --once K     fail only allocation K, and print where it was requested
//   --from K     fail allocation K and all that follow, and print where it was requested
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "sweep.hpp"
#include "tests/support/files.hpp"

namespace zot::faults {
namespace {

options parse(int count, char **arguments) {
  options asked;
  for (int at = 1; at + 1 < count; at += 2) {
    const std::string_view name = arguments[at];
    const char *const value = arguments[at + 1];
    const std::uint64_t number = std::strtoull(value, nullptr, 10);
    if (name == "--operation") {
      asked.operation = value;
    } else if (name == "--at-most") {
      asked.at_most = number;
    } else if (name == "--jobs" && number > 0) {
      asked.jobs = static_cast<unsigned>(number);
    } else if (name == "--once" || name == "--from") {
      asked.only = {name == "--once" ? failing::once : failing::from_then_on, number};
    } else {
      throw std::invalid_argument(std::string(name));
    }
  }
  if (count % 2 == 0) {
    throw std::invalid_argument(arguments[count - 1]);
  }
  return asked;
}

// What the libraries around set up once in a process and keep:
// - the libcrypto of Debian 12 crashes when memory runs out during its first digest;
// - in the first transfer libcurl has it set up a list of engines, which leaves blocks behind when
//   there is no memory for its lock;
// - without memory for an address libcurl takes its text for a name and starts a thread to look it
//   up, and the C library keeps a block of that thread for the next one.
void set_up_libraries(const ports &at) {
  static_cast<void>(test::sha256_hex("once"));
  std::thread([] {}).join();
  stage warm_up(at);
  warm_up.element().restart();
  expect(warm_up.get({}).status == ZOT_OK, "no transfer");
}

tally &shared_tally() {
  void *const shared =
      ::mmap(nullptr, sizeof(tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "mmap");
  }
  return *new (shared) tally{};
}

// Takes one operation after the other that no other job has taken.
void work(const std::vector<operation> &wanted, const options &asked, const ports &at, tally &all) {
  for (std::size_t next = all.next_operation++; next < wanted.size(); next = all.next_operation++) {
    sweep_operation(wanted[next], asked, at, all);
  }
}

bool work_in_jobs(const std::vector<operation> &wanted, const options &asked, const ports &at,
                  tally &all) {
  static_cast<void>(std::fflush(stdout));
  for (unsigned job = 0; job < asked.jobs; ++job) {
    if (::fork() == 0) {
      int code = EXIT_SUCCESS;
      try {
        work(wanted, asked, at, all);
      } catch (const std::exception &failed) {
        static_cast<void>(std::fprintf(stderr, "memory_sweep: %s\n", failed.what()));
        code = EXIT_FAILURE;
      }
      static_cast<void>(std::fflush(stdout));
      ::_exit(code);
    }
  }
  bool all_ended = true;
  for (unsigned job = 0; job < asked.jobs; ++job) {
    int ended = 0;
    all_ended = ::wait(&ended) > 0 && ended == 0 && all_ended;
  }
  return all_ended;
}

bool sweep_all(const options &asked) {
  // Nothing here is about a medium, and thousands of commits wait for it.
  if (std::filesystem::is_directory("/dev/shm")) {
    ::setenv("TMPDIR", "/dev/shm", 0);
  }
  std::vector<operation> wanted = every_operation();
  std::erase_if(wanted, [&](const operation &each) {
    return !asked.operation.empty() && asked.operation != each.name;
  });
  tally &all = shared_tally();
  bool is_complete = false;
  // The services end after the jobs.
  {
    const services running;
    set_up_libraries(running.at());
    // The first line also gives standard output its buffer.
    std::puts("every allocation fails once, then it and all that follow");
    if (asked.only.how != failing::never) {
      trace_allocations();
    }
    keep_books();
    is_complete = work_in_jobs(wanted, asked, running.at(), all);
  }
  std::printf(
      "memory: %llu allocations of %llu operations, %llu failed once or with all that follow, "
      "%llu held (in %llu the announced checksum stays)\n",
      static_cast<unsigned long long>(all.allocations),
      static_cast<unsigned long long>(all.operations), static_cast<unsigned long long>(all.tried),
      static_cast<unsigned long long>(all.held), static_cast<unsigned long long>(all.known_leaks));
  return is_complete && all.operations == wanted.size() && !wanted.empty() && all.held == all.tried;
}

}  // namespace
}  // namespace zot::faults

int main(int count, char **arguments) {
  try {
    return zot::faults::sweep_all(zot::faults::parse(count, arguments)) ? EXIT_SUCCESS
                                                                        : EXIT_FAILURE;
  } catch (const std::exception &failed) {
    static_cast<void>(std::fprintf(stderr, "memory_sweep: %s\n", failed.what()));
    return EXIT_FAILURE;
  }
}
