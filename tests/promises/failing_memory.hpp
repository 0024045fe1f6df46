// SPDX-License-Identifier: Apache-2.0
// Makes one allocation of the library fail. Only the test program has it: the linker puts functions
// of its own in place of malloc(), calloc() and strndup().
#pragma once

namespace zot::test {

// Of this thread's allocations between start() and the end of the scope, the one of this number
// fails.
class failing_memory {
 public:
  explicit failing_memory(unsigned number) : number_(number) {}
  failing_memory(const failing_memory &) = delete;
  failing_memory &operator=(const failing_memory &) = delete;
  ~failing_memory();

  void start() const;
  [[nodiscard]] static bool has_failed();

 private:
  unsigned number_;
};

// Whether one of a call's allocations leads to this status when it fails. The function sets up,
// starts the failing memory, and returns the status of the call.
template <typename Function>
bool leads_to(int status, Function function) {
  constexpr unsigned enough = 500;
  for (unsigned number = 1; number < enough; ++number) {
    const failing_memory memory(number);
    if (function(memory) == status) {
      return true;
    }
    if (!failing_memory::has_failed()) {
      return false;
    }
  }
  return false;
}

}  // namespace zot::test
