// SPDX-License-Identifier: Apache-2.0
// Detached signatures of K files: Cryptographic Message Syntax (CMS), DER, with SHA-256.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>

#include "tools/files/file_io.hpp"
#include "utilities/owner.hpp"

namespace zotconf {

using certificate = std::unique_ptr<X509, zot::releaser<::X509_free>>;
using private_key = std::unique_ptr<EVP_PKEY, zot::releaser<::EVP_PKEY_free>>;

// Frees the certificates of a chain together with the chain.
inline void free_chain(STACK_OF(X509) * chain) {
  sk_X509_pop_free(chain, ::X509_free);
}
using certificate_chain = std::unique_ptr<STACK_OF(X509), zot::releaser<free_chain>>;

// Signs with one certificate and its key.
class signer {
 public:
  // The file has the certificate of the signer first, then the chain up to the trusted certificate,
  // in PEM. The key is a file, or a URI that the OpenSSL providers can open, such as pkcs11:….
  // Throws std::runtime_error if one of them cannot be used: the certificate must allow digital
  // signatures, and the key must match it and be EC, or RSA with at least 2048 bits.
  signer(const fs::path &certificates, const std::string &key);

  // Returns a signature of these bytes that does not contain them.
  [[nodiscard]] std::string sign(std::string_view bytes) const;
  // Whether this certificate has signed these bytes. Does not check that the certificate is
  // trusted.
  [[nodiscard]] bool has_signed(std::string_view bytes, std::string_view signature) const;

 private:
  certificate_chain chain_;
  certificate own_;
  private_key key_;
};

}  // namespace zotconf
