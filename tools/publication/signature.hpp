// SPDX-License-Identifier: Apache-2.0
// Detached signatures in the Cryptographic Message Syntax (CMS), DER, with SHA-256: what stands
// beside a K that is signed.
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

// Unloads the certificates of a chain with the chain.
inline void free_chain(STACK_OF(X509) * chain) {
  sk_X509_pop_free(chain, ::X509_free);
}
using certificate_chain = std::unique_ptr<STACK_OF(X509), zot::releaser<free_chain>>;

// Signs with one certificate and its key.
class signer {
 public:
  // The file holds the signer's certificate first, then those between it and the trusted one, in
  // PEM. The key is a file, or a URI that OpenSSL's providers can open, such as pkcs11:…. Throws
  // std::runtime_error when either cannot be used: the certificate has to allow digital signatures,
  // and the key has to be its own, of type EC, or RSA with at least 2048 bits.
  signer(const fs::path &certificates, const std::string &key);

  // The signature of these bytes, which does not contain them.
  [[nodiscard]] std::string sign(std::string_view bytes) const;
  // Whether this certificate has signed these bytes. Asks for no trust in the certificate.
  [[nodiscard]] bool has_signed(std::string_view bytes, std::string_view signature) const;

 private:
  certificate_chain chain_;
  certificate own_;
  private_key key_;
};

}  // namespace zotconf
