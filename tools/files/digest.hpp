// SPDX-License-Identifier: Apache-2.0
// SHA-256 of bytes that need not be in memory all at once.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

#include "utilities/owner.hpp"

namespace zotconf {

class sha256_stream {
 public:
  sha256_stream();

  void add(std::string_view bytes);
  // The digest as 64 lower-case hexadecimal digits; nothing can be added after it.
  [[nodiscard]] std::string text();

 private:
  std::unique_ptr<EVP_MD_CTX, zot::releaser<::EVP_MD_CTX_free>> context_;
};

// Whether a text is a digest in this form.
bool is_digest(std::string_view text);

// The digest of an open file, read from its first byte. Its offset does not change. Throws
// std::system_error, with the name, if the file cannot be read.
std::string sha256_of_file(int fd, const std::string &name);

}  // namespace zotconf
