// SPDX-License-Identifier: Apache-2.0
// Operations on bytes: digests and copies.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <openssl/sha.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "bench/pieces/measure.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zot::bench {

namespace {

// The same bytes each time. None is zero, because a file that begins with a zero byte counts as
// empty.
std::string some_bytes(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t state = 1;
  for (char &byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>((state >> 24) | 1U);
  }
  return bytes;
}

class digest {
 public:
  explicit digest(std::size_t size) : bytes_(some_bytes(size)) {}

  bool run() {
    return calc_sha256(bytes_.data(), static_cast<std::uint32_t>(bytes_.size()), text_.data(),
                       static_cast<std::uint32_t>(text_.size())) == 0;
  }
  [[nodiscard]] bool is_right() const {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> raw{};
    SHA256(reinterpret_cast<const unsigned char *>(bytes_.data()), bytes_.size(), raw.data());
    return hexadecimal(raw) == text_.data();
  }

 private:
  static std::string hexadecimal(const std::array<unsigned char, SHA256_DIGEST_LENGTH> &raw) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : raw) {
      text += digits[byte / 16];
      text += digits[byte % 16];
    }
    return text;
  }

  std::string bytes_;
  std::array<char, ZOT_CHECKSUM_LEN + 1> text_{};
};

// The digest with libcrypto alone.
class libcrypto_digest {
 public:
  explicit libcrypto_digest(std::size_t size) : bytes_(some_bytes(size)) {}

  bool run() {
    return SHA256(reinterpret_cast<const unsigned char *>(bytes_.data()), bytes_.size(),
                  raw_.data()) != nullptr;
  }
  [[nodiscard]] bool is_right() const {
    std::array<char, ZOT_CHECKSUM_LEN + 1> text{};
    sha256_hash_str(raw_.data(), text.data(), static_cast<std::uint32_t>(text.size()));
    return cmp_file_sha256(bytes_.data(), static_cast<std::uint32_t>(bytes_.size()), text.data()) ==
           0;
  }

 private:
  std::string bytes_;
  std::array<unsigned char, SHA256_DIGEST_LENGTH> raw_{};
};

// A file and the path of its copy, in memory so that no disk is measured.
class copy_scratch {
 public:
  explicit copy_scratch(std::size_t size) : bytes_(some_bytes(size)) {
    const char *const chosen = std::getenv("TMPDIR");
    folder_ = std::string(chosen != nullptr ? chosen : "/dev/shm") + "/bench-pieces-XXXXXX";
    if (::mkdtemp(folder_.data()) == nullptr) {
      throw std::runtime_error("no scratch directory: " + folder_);
    }
    from_ = folder_ + "/from";
    to_ = folder_ + "/to";
    std::ofstream(from_, std::ios::binary) << bytes_;
  }
  copy_scratch(const copy_scratch &) = delete;
  copy_scratch &operator=(const copy_scratch &) = delete;
  ~copy_scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  [[nodiscard]] const char *from() const { return from_.c_str(); }
  [[nodiscard]] const char *to() const { return to_.c_str(); }
  [[nodiscard]] bool is_copied() const {
    std::ifstream copy(to_, std::ios::binary);
    return std::string(std::istreambuf_iterator(copy), {}) == bytes_;
  }

 private:
  std::string bytes_;
  std::string folder_;
  std::string from_;
  std::string to_;
};

// A commit replaces the files of the previous commit, so both copies replace a file.
class file_copy {
 public:
  explicit file_copy(std::size_t size) : scratch_(size) {}

  bool run() { return fcopy(scratch_.from(), scratch_.to()) == 0; }
  [[nodiscard]] bool is_right() const { return scratch_.is_copied(); }

 private:
  copy_scratch scratch_;
};

// The bytes never leave the kernel.
class kernel_copy {
 public:
  explicit kernel_copy(std::size_t size) : scratch_(size) {}

  bool run() {
    const descriptor from(::open(scratch_.from(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!from.is_open() || ::fstat(from.get(), &st) != 0) {
      return false;
    }
    ::unlink(scratch_.to());
    descriptor to(::open(scratch_.to(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode));
    if (!to.is_open()) {
      return false;
    }
    for (off_t done = 0; done < st.st_size;) {
      const auto left = static_cast<std::size_t>(st.st_size - done);
      if (::sendfile(to.get(), from.get(), &done, left) <= 0) {
        return false;
      }
    }
    return to.close() == 0;
  }
  [[nodiscard]] bool is_right() const { return scratch_.is_copied(); }

 private:
  copy_scratch scratch_;
};

constexpr std::int64_t kib = 1024;
constexpr std::int64_t mib = 1024 * kib;

void at_digest_sizes(benchmark::internal::Benchmark *of) {
  for (const std::int64_t size : {kib, 4 * kib, 64 * kib, mib, 16 * mib}) {
    of->Arg(size);
  }
  of->Unit(benchmark::kMicrosecond);
}

void at_copy_sizes(benchmark::internal::Benchmark *of) {
  for (const std::int64_t size : {kib, 4 * kib, 64 * kib, 16 * mib}) {
    of->Arg(size);
  }
  of->Unit(benchmark::kMicrosecond);
}

BENCHMARK(measure_bytes<digest>)->Name("digest")->Apply(at_digest_sizes);
BENCHMARK(measure_bytes<libcrypto_digest>)->Name("libcrypto_digest")->Apply(at_digest_sizes);
BENCHMARK(measure_bytes<file_copy>)->Name("fcopy")->Apply(at_copy_sizes);
BENCHMARK(measure_bytes<kernel_copy>)->Name("kernel_copy")->Apply(at_copy_sizes);

}  // namespace

}  // namespace zot::bench
