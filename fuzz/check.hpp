// SPDX-License-Identifier: Apache-2.0
// What a target asserts about the library, and how it reports a failure.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace zot::fuzz {

// Ends the process, which the fuzzer takes as a finding.
[[noreturn]] void complain(const std::string &what);

inline void check(bool holds, const char *what) {
  if (!holds) {
    complain(what);
  }
}

// A copy of exactly the right size, so that the address sanitizer sees any access behind its end.
template <class T>
class exact_copy {
 public:
  exact_copy(const T *from, std::size_t count)
      : items_(static_cast<T *>(std::malloc(count * sizeof(T)))), count_(count) {
    for (std::size_t i = 0; i < count; ++i) {
      items_[i] = from[i];
    }
  }
  explicit exact_copy(std::basic_string_view<T> from) : exact_copy(from.data(), from.size()) {}
  exact_copy(const exact_copy &) = delete;
  exact_copy &operator=(const exact_copy &) = delete;
  ~exact_copy() { std::free(items_); }

  [[nodiscard]] T *get() const { return items_; }
  [[nodiscard]] std::size_t size() const { return count_; }

 private:
  T *items_;
  std::size_t count_;
};

// The text at the start of an input: it ends at the first NUL or with the bytes.
[[nodiscard]] std::string text_of(const std::uint8_t *bytes, std::size_t size);

// The parts of an input that NUL bytes separate.
[[nodiscard]] std::vector<std::string> parts_of(const std::uint8_t *bytes, std::size_t size);

}  // namespace zot::fuzz
