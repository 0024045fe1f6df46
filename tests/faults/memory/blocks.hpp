// SPDX-License-Identifier: Apache-2.0
// The blocks of this process's allocator and the record of them.
#pragma once

#include <cstddef>

namespace zot::faults {

// Null without memory. A block that is not booked belongs to the tests.
[[nodiscard]] void *allocate(std::size_t size, std::size_t alignment, bool is_booked);
void release(void *bytes);
[[nodiscard]] std::size_t size_of(void *bytes);

inline constexpr std::size_t default_alignment = 16;

// What the calling thread's allocations are.
struct watch {
  bool is_armed = false;  // they count, and may fail
  bool keeps_books = false;
};
[[nodiscard]] watch &own_watch();

// Allocations that looking for the callers makes are none of the program.
class unwatched {
 public:
  unwatched() : before_(own_watch()) { own_watch() = {}; }
  unwatched(const unwatched &) = delete;
  unwatched &operator=(const unwatched &) = delete;
  ~unwatched() { own_watch() = before_; }

 private:
  watch before_;
};

// With traces on, says what happened and where it was asked for.
void trace(const char *what);

}  // namespace zot::faults
