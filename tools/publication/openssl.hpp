// SPDX-License-Identifier: Apache-2.0
// What signer and keyring share: owners of libcrypto's objects, and the rules that both apply.
#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "utilities/owner.hpp"

namespace zotconf {

// Frees the certificates of a chain together with the chain.
inline void free_chain(STACK_OF(X509) * chain) {
  sk_X509_pop_free(chain, ::X509_free);
}

using memory_bio = std::unique_ptr<BIO, zot::releaser<::BIO_free_all>>;
using certificate = std::unique_ptr<X509, zot::releaser<::X509_free>>;
using certificate_chain = std::unique_ptr<STACK_OF(X509), zot::releaser<free_chain>>;
using cms_message = std::unique_ptr<CMS_ContentInfo, zot::releaser<::CMS_ContentInfo_free>>;
using private_key = std::unique_ptr<EVP_PKEY, zot::releaser<::EVP_PKEY_free>>;

constexpr unsigned detached = CMS_DETACHED | CMS_BINARY;

// OpenSSL queues its errors; the first one is the cause of the others.
[[noreturn]] void throw_openssl(const std::string &what);

// Reads these bytes, which must outlive it.
memory_bio bio_over(std::string_view bytes);

// The same for the content that CMS_verify() gets: it duplicates a plain memory BIO, and does not
// free the duplicate if the message names an unknown digest.
memory_bio content_over(std::string_view bytes);

// The DER encoding of a message; empty if it cannot be encoded.
std::string der_of(CMS_ContentInfo *message);

// Why a key may not sign; empty: it may. EC keys may, and RSA keys of at least 2048 bits.
std::string wrong_key(const EVP_PKEY *key);

// For messages: printable, and not longer than a line or two.
std::string text_of(const X509_NAME *name);
std::string subject_of(const X509 *one);

// In UTC; nullopt if it is no valid time.
std::optional<std::tm> calendar(const ASN1_TIME *time);
// The day, such as 2026-01-01.
std::string date_of(const ASN1_TIME *time);

}  // namespace zotconf
