// SPDX-License-Identifier: Apache-2.0
// SHA-256 digests as text.
#define OPENSSL_API_COMPAT 0x10100000L
#include <openssl/sha.h>

#include <cstring>

#include "utilities/own_names.hpp"
#include "zot_conf.h"

namespace {

constexpr uint32_t text_size = ZOT_CHECKSUM_LEN + 1;

}  // namespace

char *sha256_hash_str(const void *digest, char *out, uint32_t size) {
  constexpr char digits[] = "0123456789abcdef";
  if (digest == nullptr || out == nullptr || size < text_size) {
    return nullptr;
  }
  const auto *const bytes = static_cast<const unsigned char *>(digest);
  for (size_t i = 0; i < SHA256_DIGEST_LENGTH; ++i) {
    out[2 * i] = digits[bytes[i] >> 4];
    out[2 * i + 1] = digits[bytes[i] & 0x0f];
  }
  out[ZOT_CHECKSUM_LEN] = '\0';
  return out;
}

int calc_sha256(const void *data, uint32_t len, char *out, uint32_t size) {
  if (data == nullptr || *static_cast<const char *>(data) == '\0' || size < text_size) {
    return -1;
  }
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256_CTX context;
  if (SHA256_Init(&context) != 1 || SHA256_Update(&context, data, len) != 1 ||
      SHA256_Final(digest, &context) != 1) {
    return -1;
  }
  return sha256_hash_str(digest, out, size) != nullptr ? 0 : -1;
}

int cmp_file_sha256(const void *data, uint32_t len, const char *want) {
  if (data == nullptr || want == nullptr) {
    return -1;
  }
  char computed[text_size] = {};
  if (calc_sha256(data, len, computed, sizeof computed) != 0) {
    return -1;
  }
  return std::strncmp(computed, want, ZOT_CHECKSUM_LEN);
}

ZOT_PLAIN_NAME(sha256_hash_str);
ZOT_PLAIN_NAME(calc_sha256);
ZOT_PLAIN_NAME(cmp_file_sha256);
