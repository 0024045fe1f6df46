// SPDX-License-Identifier: Apache-2.0
// The blocks of this process's allocator and the record of them.
#pragma once

#include <cstddef>

namespace zot::faults {

// Returns null when memory runs out. A block with is_booked == false belongs to the tests.
[[nodiscard]] void *allocate(std::size_t size, std::size_t alignment, bool is_booked);
void release(void *bytes);
[[nodiscard]] std::size_t size_of(void *bytes);

inline constexpr std::size_t default_alignment = 16;

// How the allocations of the calling thread are treated.
struct watch {
  bool is_armed = false;  // they are counted and may fail
  bool keeps_books = false;
};
[[nodiscard]] watch &own_watch();

// While it exists, allocations by backtrace functions do not count as the program's.
class unwatched {
 public:
  unwatched() : before_(own_watch()) { own_watch() = {}; }
  unwatched(const unwatched &) = delete;
  unwatched &operator=(const unwatched &) = delete;
  ~unwatched() { own_watch() = before_; }

 private:
  watch before_;
};

// If tracing is on, prints an event and the place that caused it.
void trace(const char *what);

}  // namespace zot::faults
