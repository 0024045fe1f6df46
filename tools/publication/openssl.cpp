// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/openssl.hpp"

#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <stdexcept>

#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

constexpr size_t longest_subject = 200;

}  // namespace

void throw_openssl(const std::string &what) {
  const unsigned long code = ::ERR_get_error();
  const char *const reason = ::ERR_reason_error_string(code);
  ::ERR_clear_error();
  throw std::runtime_error(reason == nullptr ? what : what + ": " + reason);
}

memory_bio bio_over(std::string_view bytes) {
  if (bytes.size() > std::numeric_limits<int>::max()) {
    throw std::runtime_error("too long for a signature");
  }
  memory_bio bio(::BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  if (bio == nullptr) {
    throw std::bad_alloc();
  }
  return bio;
}

memory_bio content_over(std::string_view bytes) {
  memory_bio source = bio_over(bytes);
  memory_bio filter(::BIO_new(::BIO_f_null()));
  if (filter == nullptr) {
    throw std::bad_alloc();
  }
  static_cast<void>(::BIO_push(filter.get(), source.release()));
  return filter;
}

std::string der_of(CMS_ContentInfo *message) {
  const memory_bio bio(::BIO_new(::BIO_s_mem()));
  if (bio == nullptr || ::i2d_CMS_bio(bio.get(), message) != 1) {
    return "";
  }
  char *bytes = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &bytes);
  return {bytes, static_cast<size_t>(size)};
}

std::string wrong_key(const EVP_PKEY *key) {
  constexpr int least_rsa_bits = 2048;
  const bool is_rsa = ::EVP_PKEY_is_a(key, "RSA") == 1;
  if (!is_rsa && ::EVP_PKEY_is_a(key, "EC") != 1) {
    return "the key is neither EC nor RSA";
  }
  if (is_rsa && ::EVP_PKEY_get_bits(key) < least_rsa_bits) {
    return "an RSA key needs at least 2048 bits";
  }
  return "";
}

std::string text_of(const X509_NAME *name) {
  const memory_bio bio(::BIO_new(::BIO_s_mem()));
  if (bio == nullptr ||
      ::X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) < 0) {
    throw std::bad_alloc();
  }
  char *bytes = nullptr;
  const auto size = static_cast<size_t>(BIO_get_mem_data(bio.get(), &bytes));
  if (size == 0) {
    return "(no subject)";
  }
  const std::string_view text(bytes, std::min(size, longest_subject));
  return printable(text) + (size > longest_subject ? "..." : "");
}

std::string subject_of(const X509 *one) {
  return text_of(::X509_get_subject_name(one));
}

std::optional<std::tm> calendar(const ASN1_TIME *time) {
  std::tm day{};
  return ::ASN1_TIME_to_tm(time, &day) == 1 ? std::optional(day) : std::nullopt;
}

std::string date_of(const ASN1_TIME *time) {
  const auto day = calendar(time);
  std::array<char, 32> text{};
  if (!day || std::strftime(text.data(), text.size(), "%Y-%m-%d", &*day) == 0) {
    return "an unknown day";
  }
  return text.data();
}

}  // namespace zotconf
