// SPDX-License-Identifier: Apache-2.0
// Detached signatures of K files: Cryptographic Message Syntax (CMS), DER, with SHA-256.
#pragma once

#include <string>
#include <string_view>

#include "tools/files/file_io.hpp"
#include "tools/publication/openssl.hpp"
#include "tools/publication/pkcs11_key.hpp"

namespace zotconf {

// Signs with one certificate and its key.
class signer {
 public:
  // The file has the certificate of the signer first, then the chain up to the trusted certificate,
  // in PEM. The key is a file, or a URI that OpenSSL can open: a pkcs11: one with its provider or
  // its engine. Throws std::runtime_error if one of them cannot be used: the certificate must allow
  // digital signatures, and the key must match it and be EC, or RSA with at least 2048 bits.
  signer(const fs::path &certificates, const std::string &key);

  // Returns a signature of these bytes that does not contain them.
  [[nodiscard]] std::string sign(std::string_view bytes) const;
  // Whether this certificate has signed these bytes. Does not check that the certificate is
  // trusted.
  [[nodiscard]] bool has_signed(std::string_view bytes, std::string_view signature) const;

 private:
  certificate_chain chain_;
  certificate own_;
  signing_key key_;
};

}  // namespace zotconf
