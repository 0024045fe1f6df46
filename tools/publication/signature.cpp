// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/signature.hpp"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/store.h>
#include <openssl/ui.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace zotconf {
namespace {

using key_store = std::unique_ptr<OSSL_STORE_CTX, zot::releaser<::OSSL_STORE_close>>;
using store_item = std::unique_ptr<OSSL_STORE_INFO, zot::releaser<::OSSL_STORE_INFO_free>>;

certificate_chain read_certificates(const fs::path &path) {
  const std::string text = read_file_text(path);
  const memory_bio bio = bio_over(text);
  certificate_chain chain(sk_X509_new_null());
  if (chain == nullptr) {
    throw std::bad_alloc();
  }
  for (;;) {
    certificate next(::PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (next == nullptr) {
      break;
    }
    if (sk_X509_push(chain.get(), next.get()) == 0) {
      throw std::bad_alloc();
    }
    static_cast<void>(next.release());
  }
  if (sk_X509_num(chain.get()) == 0) {
    throw_openssl(path.string() + ": contains no PEM certificate");
  }
  ::ERR_clear_error();
  return chain;
}

// A URI without the PIN that it may have, for messages.
std::string without_pin(const std::string &key) {
  constexpr std::string_view pin = "pin-value=";
  const size_t found = key.find(pin);
  if (found == std::string::npos) {
    return key;
  }
  const size_t start = found + pin.size();
  const size_t end = std::min(key.find_first_of(";&", start), key.size());
  return key.substr(0, start) + "..." + key.substr(end);
}

private_key read_stored_key(OSSL_STORE_CTX *store) {
  while (::OSSL_STORE_eof(store) == 0) {
    const store_item object(::OSSL_STORE_load(store));
    if (object != nullptr && ::OSSL_STORE_INFO_get_type(object.get()) == OSSL_STORE_INFO_PKEY) {
      return private_key(::OSSL_STORE_INFO_get1_PKEY(object.get()));
    }
  }
  return nullptr;
}

signing_key read_key(const std::string &key) {
  const std::string name = without_pin(key);
  // OpenSSL takes the name of a missing file for a URI of an unknown scheme.
  if (key.find(':') == std::string::npos && !is_there(key)) {
    throw std::runtime_error("cannot open the key " + name + ": no such file");
  }
  const key_store store(
      ::OSSL_STORE_open(key.c_str(), ::UI_get_default_method(), nullptr, nullptr, nullptr));
  if (store == nullptr && key.starts_with("pkcs11:")) {
    ::ERR_clear_error();
    return open_pkcs11_key(key, name);
  }
  if (store == nullptr || ::OSSL_STORE_expect(store.get(), OSSL_STORE_INFO_PKEY) != 1) {
    throw_openssl("cannot open the key " + name);
  }
  private_key stored = read_stored_key(store.get());
  if (stored == nullptr) {
    throw_openssl("cannot read a private key from " + name);
  }
  ::ERR_clear_error();
  return {.engine = nullptr, .key = std::move(stored)};
}

// Rejects a key here that a verifier of the signature would reject.
void check_signing_certificate(X509 *own, const fs::path &path) {
  const bool states_usage = (::X509_get_extension_flags(own) & EXFLAG_KUSAGE) != 0;
  if (!states_usage) {
    throw std::runtime_error(path.string() +
                             ": the certificate states no key usage; it needs digitalSignature");
  }
  if ((::X509_get_key_usage(own) & KU_DIGITAL_SIGNATURE) == 0) {
    throw std::runtime_error(path.string() +
                             ": the certificate's key usage does not allow digital signatures");
  }
  if (::X509_cmp_current_time(::X509_get0_notAfter(own)) <= 0) {
    throw std::runtime_error(path.string() + ": the certificate has expired");
  }
}

void check_signing_key(X509 *own, EVP_PKEY *key, const std::string &name) {
  if (const std::string wrong = wrong_key(key); !wrong.empty()) {
    throw std::runtime_error(name + ": " + wrong);
  }
  if (::X509_check_private_key(own, key) != 1) {
    ::ERR_clear_error();
    throw std::runtime_error(name + ": the key does not match the certificate");
  }
}

}  // namespace

signer::signer(const fs::path &certificates, const std::string &key)
    : chain_(read_certificates(certificates)),
      own_(sk_X509_shift(chain_.get())),
      key_(read_key(key)) {
  check_signing_certificate(own_.get(), certificates);
  check_signing_key(own_.get(), key_.key.get(), without_pin(key));
}

std::string signer::sign(std::string_view bytes) const {
  const memory_bio content = bio_over(bytes);
  const cms_message message(
      ::CMS_sign(nullptr, nullptr, chain_.get(), content.get(), detached | CMS_PARTIAL));
  if (message == nullptr ||
      ::CMS_add1_signer(message.get(), own_.get(), key_.key.get(), ::EVP_sha256(),
                        detached | CMS_NOSMIMECAP) == nullptr ||
      ::CMS_final(message.get(), content.get(), nullptr, detached) != 1) {
    throw_openssl("cannot sign");
  }
  std::string der = der_of(message.get());
  if (der.empty()) {
    throw_openssl("cannot write the signature");
  }
  return der;
}

bool signer::has_signed(std::string_view bytes, std::string_view signature) const {
  const memory_bio content = content_over(bytes);
  const memory_bio der = bio_over(signature);
  const cms_message message(::d2i_CMS_bio(der.get(), nullptr));
  const bool is_valid =
      message != nullptr && ::CMS_verify(message.get(), nullptr, nullptr, content.get(), nullptr,
                                         detached | CMS_NO_SIGNER_CERT_VERIFY) == 1;
  ::ERR_clear_error();
  if (!is_valid) {
    return false;
  }
  // The caller frees the stack; its certificates belong to the message.
  STACK_OF(X509) *const signers = ::CMS_get0_signers(message.get());
  const bool is_own =
      sk_X509_num(signers) == 1 && ::X509_cmp(sk_X509_value(signers, 0), own_.get()) == 0;
  sk_X509_free(signers);
  return is_own;
}

}  // namespace zotconf
