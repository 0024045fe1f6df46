// SPDX-License-Identifier: Apache-2.0
#include "blocks.hpp"

#include <execinfo.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "allocator.hpp"

// The C library's own allocation functions.
extern "C" {
void *__libc_malloc(std::size_t size);
void __libc_free(void *block);
}

namespace zot::faults {
namespace {

constexpr std::uint64_t in_use = 0x5afe'b10c'0000'0001U;
constexpr std::uint64_t was_freed = 0xdead'b10c'0000'0002U;
constexpr unsigned char fresh_fill = 0xa5;
// Eight such bytes are not a valid address, so following a pointer from a freed block crashes the
// process.
constexpr unsigned char freed_fill = 0xdd;
constexpr unsigned char canary_fill = 0xc7;
constexpr std::size_t canary_size = 16;
// More than a trial frees.
constexpr std::size_t held_back_limit = 32U << 20U;
constexpr int kept_frames = 16;
constexpr int shown_frames = 32;

// Placed before the bytes of each block.
struct alignas(default_alignment) block {
  std::uint64_t magic;
  std::uint64_t number;
  std::size_t size;
  void *base;  // the pointer from the C library
  block *next;
  block *prev;
  bool is_booked;
  int frame_count;
  std::array<void *, kept_frames> frames;
};

struct block_list {
  block *first = nullptr;
  block *last = nullptr;
  std::size_t bytes = 0;
};

pthread_mutex_t books = PTHREAD_MUTEX_INITIALIZER;
block_list live;
block_list held_back;
std::uint64_t newest = 0;
unsigned errors = 0;
std::array<char, 160> first_error{};
bool traces = false;

class books_lock {
 public:
  books_lock() { pthread_mutex_lock(&books); }
  books_lock(const books_lock &) = delete;
  books_lock &operator=(const books_lock &) = delete;
  ~books_lock() { pthread_mutex_unlock(&books); }
};

void append(block_list &list, block *added) {
  added->next = nullptr;
  added->prev = list.last;
  (list.last != nullptr ? list.last->next : list.first) = added;
  list.last = added;
  list.bytes += added->size;
}

void take_out(block_list &list, block *taken) {
  (taken->prev != nullptr ? taken->prev->next : list.first) = taken->next;
  (taken->next != nullptr ? taken->next->prev : list.last) = taken->prev;
  list.bytes -= taken->size;
}

unsigned char *bytes_of(block *owner) {
  return reinterpret_cast<unsigned char *>(owner + 1);
}

block *block_of(void *bytes) {
  return static_cast<block *>(bytes) - 1;
}

bool is_filled(const unsigned char *at, std::size_t size, unsigned char fill) {
  return std::all_of(at, at + size, [fill](unsigned char byte) { return byte == fill; });
}

// Requires the lock, or a single thread.
void note_error(const char *what, const block &where) {
  if (errors++ == 0) {
    static_cast<void>(
        std::snprintf(first_error.data(), first_error.size(), "%s of %zu bytes", what, where.size));
  }
  trace(what);
}

void check_canary(block *owner) {
  if (!is_filled(bytes_of(owner) + owner->size, canary_size, canary_fill)) {
    note_error("bytes written behind a block", *owner);
  }
}

void check_held_back(block *owner) {
  if (!is_filled(bytes_of(owner), owner->size, freed_fill)) {
    note_error("bytes written into a freed block", *owner);
  }
}

void hold_back(block *owner) {
  append(held_back, owner);
  while (held_back.bytes > held_back_limit) {
    block *const oldest = held_back.first;
    take_out(held_back, oldest);
    check_held_back(oldest);
    __libc_free(oldest->base);
  }
}

void refuse(const block &owner) {
  // Blocks that the dynamic loader allocated before this allocator was active are not recorded.
  if (own_watch().keeps_books) {
    const books_lock lock;
    note_error(owner.magic == was_freed ? "second free of a block" : "free of no block", owner);
  }
}

}  // namespace

watch &own_watch() {
  thread_local watch own;
  return own;
}

void *allocate(std::size_t size, std::size_t alignment, bool is_booked) {
  const std::size_t room = sizeof(block) + alignment + canary_size;
  if (size > PTRDIFF_MAX - room) {
    errno = ENOMEM;
    return nullptr;
  }
  void *const base = __libc_malloc(size + room);
  if (base == nullptr) {
    return nullptr;
  }
  const auto start = reinterpret_cast<std::uintptr_t>(base) + sizeof(block);
  const std::uintptr_t aligned = (start + alignment - 1) / alignment * alignment;
  block *const owner = block_of(reinterpret_cast<void *>(aligned));
  owner->magic = in_use;
  owner->size = size;
  owner->base = base;
  owner->is_booked = is_booked && own_watch().keeps_books;
  owner->frame_count = 0;
  std::memset(bytes_of(owner), fresh_fill, size);
  std::memset(bytes_of(owner) + size, canary_fill, canary_size);
  if (owner->is_booked) {
    if (traces) {
      const unwatched no_books;
      owner->frame_count = backtrace(owner->frames.data(), kept_frames);
    }
    const books_lock lock;
    owner->number = ++newest;
    append(live, owner);
  }
  return bytes_of(owner);
}

void release(void *bytes) {
  if (bytes == nullptr) {
    return;
  }
  block *const owner = block_of(bytes);
  if (reinterpret_cast<std::uintptr_t>(bytes) % default_alignment != 0 || owner->magic != in_use) {
    refuse(*owner);
    return;
  }
  if (!owner->is_booked) {
    owner->magic = was_freed;
    __libc_free(owner->base);
    return;
  }
  const books_lock lock;
  check_canary(owner);
  owner->magic = was_freed;
  take_out(live, owner);
  std::memset(bytes, freed_fill, owner->size);
  hold_back(owner);
}

std::size_t size_of(void *bytes) {
  return block_of(bytes)->size;
}

void trace(const char *what) {
  if (!traces) {
    return;
  }
  const unwatched no_books;
  static_cast<void>(std::fprintf(stderr, "%s:\n", what));
  std::array<void *, shown_frames> frames{};
  backtrace_symbols_fd(frames.data(), backtrace(frames.data(), shown_frames), STDERR_FILENO);
}

heap_state inspect_heap() {
  const books_lock lock;
  for (block *at = live.first; at != nullptr; at = at->next) {
    check_canary(at);
  }
  for (block *at = held_back.first; at != nullptr; at = at->next) {
    check_held_back(at);
  }
  return {newest, errors, first_error.data()};
}

std::vector<std::string_view> live_blocks_since(std::uint64_t number) {
  const books_lock lock;
  std::vector<std::string_view> found;
  for (block *at = live.first; at != nullptr; at = at->next) {
    if (at->number > number) {
      found.emplace_back(reinterpret_cast<const char *>(at + 1), at->size);
    }
  }
  return found;
}

void trace_allocations() {
  const unwatched no_books;
  std::array<void *, 1> frame{};
  // The first call of backtrace() loads a library, so make it now.
  backtrace(frame.data(), 1);
  traces = true;
}

void print_blocks_since(std::uint64_t number) {
  const unwatched no_books;
  for (block *at = live.first; at != nullptr; at = at->next) {
    if (at->number > number) {
      static_cast<void>(std::fprintf(stderr, "%zu bytes, allocated by\n", at->size));
      backtrace_symbols_fd(at->frames.data(), at->frame_count, STDERR_FILENO);
    }
  }
}

}  // namespace zot::faults
