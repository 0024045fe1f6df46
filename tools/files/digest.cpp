// SPDX-License-Identifier: Apache-2.0
#include "tools/files/digest.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <stdexcept>

#include "tools/files/file_io.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

void require(int result) {
  if (result != 1) {
    throw std::runtime_error("cannot compute a checksum");
  }
}

bool is_lower_hex_digit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

}  // namespace

sha256_stream::sha256_stream() : context_(::EVP_MD_CTX_new()) {
  if (context_ == nullptr) {
    throw std::bad_alloc();
  }
  require(::EVP_DigestInit_ex(context_.get(), ::EVP_sha256(), nullptr));
}

void sha256_stream::add(std::string_view bytes) {
  require(::EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()));
}

std::string sha256_stream::text() {
  constexpr std::string_view digits = "0123456789abcdef";
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  require(::EVP_DigestFinal_ex(context_.get(), digest.data(), &size));
  std::string text;
  for (const unsigned char byte : std::span(digest).first(size)) {
    text += digits[byte >> 4U];
    text += digits[byte & 0xfU];
  }
  return text;
}

bool is_digest(std::string_view text) {
  return text.size() == ZOT_CHECKSUM_LEN && std::ranges::all_of(text, is_lower_hex_digit);
}

std::string sha256_of_file(int fd, const std::string &name) {
  sha256_stream digest;
  std::array<char, 65536> chunk{};
  for (off_t at = 0;;) {
    const ssize_t got = ::pread(fd, chunk.data(), chunk.size(), at);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      throw_errno("cannot read " + name);
    }
    if (got == 0) {
      return digest.text();
    }
    digest.add({chunk.data(), static_cast<size_t>(got)});
    at += got;
  }
}

}  // namespace zotconf
