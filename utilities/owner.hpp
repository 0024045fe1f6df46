// SPDX-License-Identifier: Apache-2.0
// Owners of what C interfaces return. An owner releases its resource when it leaves its scope.
#pragma once

#include <cjson/cJSON.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <type_traits>
#include <utility>

namespace zot {

// Restores errno at the end of the scope, after the clean-up of objects that were declared later.
class errno_keeper {
 public:
  errno_keeper() : kept_(errno) {}
  errno_keeper(const errno_keeper &) = delete;
  errno_keeper &operator=(const errno_keeper &) = delete;
  ~errno_keeper() { errno = kept_; }

 private:
  int kept_;
};

template <auto Release>
struct releaser {
  template <class T>
  void operator()(T *resource) const {
    static_cast<void>(Release(resource));
  }
};

// For a stream whose close result is not needed. The errno of an earlier failure is kept.
inline void close_stream(std::FILE *stream) {
  const errno_keeper keep_errno;
  static_cast<void>(std::fclose(stream));
}

template <class T>
using c_ptr = std::unique_ptr<T, releaser<std::free>>;
using c_text = c_ptr<char>;
using file_stream = std::unique_ptr<std::FILE, releaser<close_stream>>;
using json_tree = std::unique_ptr<cJSON, releaser<cJSON_Delete>>;

// A formatted text of the length that it needs; null when out of memory.
[[gnu::format(printf, 1, 2)]] inline c_text text_of(const char *format, ...) {
  char *text = nullptr;
  va_list values;
  va_start(values, format);
  const int length = ::vasprintf(&text, format, values);
  va_end(values);
  return c_text(length >= 0 ? text : nullptr);
}

// A zero-filled record from the C allocator; null when out of memory.
template <class T>
c_ptr<T> make_zeroed() {
  static_assert(std::is_trivially_copyable_v<T> && std::is_standard_layout_v<T>);
  return c_ptr<T>(static_cast<T *>(std::calloc(1, sizeof(T))));
}

class descriptor {
 public:
  explicit descriptor(int fd) : fd_(fd) {}
  descriptor(const descriptor &) = delete;
  descriptor &operator=(const descriptor &) = delete;
  descriptor(descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  descriptor &operator=(descriptor &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~descriptor() {
    if (fd_ >= 0) {
      const errno_keeper keep_errno;
      ::close(fd_);
    }
  }

  [[nodiscard]] bool is_open() const { return fd_ >= 0; }
  [[nodiscard]] int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  // Closes now, for a caller that needs the result.
  int close() { return ::close(release()); }

 private:
  int fd_;
};

}  // namespace zot
