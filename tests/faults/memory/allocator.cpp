// SPDX-License-Identifier: Apache-2.0
#include "allocator.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "blocks.hpp"

namespace zot::faults {
namespace {

struct fault_plan {
  failing how = failing::never;
  std::uint64_t which = 0;
  armed_count count;
};

thread_local fault_plan plan;

bool must_fail() {
  if (!own_watch().is_armed) {
    return false;
  }
  ++plan.count.allocations;
  const bool fails = (plan.how == failing::once && plan.count.allocations == plan.which) ||
                     (plan.how == failing::from_then_on && plan.count.allocations >= plan.which);
  if (fails) {
    if (plan.count.failed++ == 0) {
      trace("this allocation fails");
    }
    errno = ENOMEM;
  }
  return fails;
}

void *allocate_counted(std::size_t size, std::size_t alignment = default_alignment) {
  return must_fail() ? nullptr : allocate(size, alignment, true);
}

bool is_power_of_two(std::size_t number) {
  return number != 0 && (number & (number - 1)) == 0;
}

}  // namespace

void arm(failing how, std::uint64_t which) {
  plan = {how, which, {}};
  own_watch().is_armed = true;
}

armed_count disarm() {
  own_watch().is_armed = false;
  return plan.count;
}

void keep_books() {
  own_watch().keeps_books = true;
}

}  // namespace zot::faults

using zot::faults::allocate_counted;
using zot::faults::default_alignment;

// The C allocation functions, used by everything except the tests.

extern "C" {

void *malloc(std::size_t size) noexcept {
  return allocate_counted(size);
}

void *calloc(std::size_t nmemb, std::size_t size) noexcept {
  if (size != 0 && nmemb > PTRDIFF_MAX / size) {
    errno = ENOMEM;
    return nullptr;
  }
  void *const bytes = allocate_counted(nmemb * size);
  return bytes != nullptr ? std::memset(bytes, 0, nmemb * size) : nullptr;
}

void free(void *ptr) noexcept {
  const int before = errno;
  zot::faults::release(ptr);
  errno = before;
}

// Always moves the block, so that use of the old address is detected.
void *realloc(void *ptr, std::size_t size) noexcept {
  if (ptr != nullptr && size == 0) {
    free(ptr);
    return nullptr;
  }
  void *const moved = allocate_counted(size);
  if (ptr == nullptr || moved == nullptr) {
    return moved;
  }
  std::memcpy(moved, ptr, std::min(size, zot::faults::size_of(ptr)));
  free(ptr);
  return moved;
}

int posix_memalign(void **memptr, std::size_t alignment, std::size_t size) noexcept {
  if (!zot::faults::is_power_of_two(alignment) || alignment % sizeof(void *) != 0) {
    return EINVAL;
  }
  void *const bytes = allocate_counted(size, std::max(alignment, default_alignment));
  if (bytes == nullptr) {
    return ENOMEM;
  }
  *memptr = bytes;
  return 0;
}

void *memalign(std::size_t alignment, std::size_t size) noexcept {
  return allocate_counted(size, std::max(alignment, default_alignment));
}

void *aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return memalign(alignment, size);
}

std::size_t malloc_usable_size(void *bytes) noexcept {
  return bytes != nullptr ? zot::faults::size_of(bytes) : 0;
}

}  // extern "C"

// The C++ allocation functions, used only by the tests.

void *operator new(std::size_t size) {
  void *const bytes = zot::faults::allocate(size, default_alignment, false);
  if (bytes == nullptr) {
    throw std::bad_alloc();
  }
  return bytes;
}

void *operator new[](std::size_t size) {
  return operator new(size);
}

void operator delete(void *bytes) noexcept {
  zot::faults::release(bytes);
}

void operator delete(void *bytes, std::size_t /*size*/) noexcept {
  zot::faults::release(bytes);
}

void operator delete[](void *bytes) noexcept {
  zot::faults::release(bytes);
}

void operator delete[](void *bytes, std::size_t /*size*/) noexcept {
  zot::faults::release(bytes);
}
