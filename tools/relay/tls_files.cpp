// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/tls_files.hpp"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <limits>
#include <memory>
#include <new>
#include <stdexcept>

namespace zotconf {
namespace {

using pem_source = std::unique_ptr<BIO, zot::releaser<::BIO_free_all>>;
using certificate_owner = std::unique_ptr<X509, zot::releaser<::X509_free>>;
using key_owner = std::unique_ptr<EVP_PKEY, zot::releaser<::EVP_PKEY_free>>;

pem_source source_of(const std::string &bytes) {
  if (bytes.size() > std::numeric_limits<int>::max()) {
    throw std::runtime_error("too long for a PEM file");
  }
  pem_source bio(::BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  if (bio == nullptr) {
    throw std::bad_alloc();
  }
  return bio;
}

certificate_owner first_certificate(const fs::path &path) {
  const std::string text = read_file_text(path);
  certificate_owner certificate(
      ::PEM_read_bio_X509(source_of(text).get(), nullptr, nullptr, nullptr));
  ::ERR_clear_error();
  if (certificate == nullptr) {
    throw std::runtime_error(path.string() + ": contains no PEM certificate");
  }
  return certificate;
}

// Without a password, OpenSSL would ask for one on the terminal.
key_owner read_tls_key(const fs::path &path) {
  const std::string text = read_file_text(path);
  std::string no_password;
  key_owner key(
      ::PEM_read_bio_PrivateKey(source_of(text).get(), nullptr, nullptr, no_password.data()));
  ::ERR_clear_error();
  if (key == nullptr) {
    throw std::runtime_error(path.string() + ": contains no PEM key that needs no password");
  }
  return key;
}

}  // namespace

void check_trusted_certificates(const fs::path &ca) {
  static_cast<void>(first_certificate(ca));
}

void check_client_certificate(const fs::path &certificate, const fs::path &key) {
  const certificate_owner own = first_certificate(certificate);
  const key_owner its_key = read_tls_key(key);
  const bool matches = ::X509_check_private_key(own.get(), its_key.get()) == 1;
  ::ERR_clear_error();
  if (!matches) {
    throw std::runtime_error(key.string() + ": the key does not match the certificate " +
                             certificate.string());
  }
}

}  // namespace zotconf
