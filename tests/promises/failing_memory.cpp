// SPDX-License-Identifier: Apache-2.0
#include "failing_memory.hpp"

#include <cerrno>
#include <cstddef>

namespace zot::test {
namespace {

// 0: none fails.
thread_local unsigned left = 0;
thread_local bool failed = false;

bool must_fail() {
  if (left == 0 || --left > 0) {
    return false;
  }
  failed = true;
  errno = ENOMEM;
  return true;
}

}  // namespace

void failing_memory::start() const {
  failed = false;
  left = number_;
}

failing_memory::~failing_memory() {
  left = 0;
}

bool failing_memory::has_failed() {
  return failed;
}

}  // namespace zot::test

extern "C" {

void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
char *__real_strndup(const char *text, std::size_t size);

void *__wrap_malloc(std::size_t size) {
  return zot::test::must_fail() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(std::size_t count, std::size_t size) {
  return zot::test::must_fail() ? nullptr : __real_calloc(count, size);
}

char *__wrap_strndup(const char *text, std::size_t size) {
  return zot::test::must_fail() ? nullptr : __real_strndup(text, size);
}
}
