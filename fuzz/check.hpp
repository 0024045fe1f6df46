// SPDX-License-Identifier: Apache-2.0
// What a target states about the library, and how it says that it does not hold.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace zot::fuzz {

// Ends the process, which is what the fuzzer takes for a find.
[[noreturn]] void complain(const std::string &what);

inline void check(bool holds, const char *what) {
  if (!holds) {
    complain(what);
  }
}

// A copy without a byte to spare: the address sanitizer sees a read or a write behind its end.
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

// Like an input of text, which ends at its first NUL or with the bytes.
[[nodiscard]] std::string text_of(const std::uint8_t *bytes, std::size_t size);

// The parts between the bytes that are NUL.
[[nodiscard]] std::vector<std::string> parts_of(const std::uint8_t *bytes, std::size_t size);

}  // namespace zot::fuzz
