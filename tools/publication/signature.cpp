// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/signature.hpp"

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/store.h>
#include <openssl/ui.h>
#include <openssl/x509v3.h>

#include <limits>
#include <stdexcept>
#include <utility>

namespace zotconf {
namespace {

using memory_bio = std::unique_ptr<BIO, zot::releaser<::BIO_free_all>>;
using cms_message = std::unique_ptr<CMS_ContentInfo, zot::releaser<::CMS_ContentInfo_free>>;
using key_store = std::unique_ptr<OSSL_STORE_CTX, zot::releaser<::OSSL_STORE_close>>;
using store_item = std::unique_ptr<OSSL_STORE_INFO, zot::releaser<::OSSL_STORE_INFO_free>>;

constexpr int least_rsa_bits = 2048;
constexpr unsigned detached = CMS_DETACHED | CMS_BINARY;

// OpenSSL queues its errors; the first one is the cause of the others.
[[noreturn]] void throw_openssl(const std::string &what) {
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

private_key read_key(const std::string &key) {
  // OpenSSL takes the name of a missing file for a URI of an unknown scheme.
  if (key.find(':') == std::string::npos && !is_there(key)) {
    throw std::runtime_error("cannot open the key " + key + ": no such file");
  }
  const key_store store(
      ::OSSL_STORE_open(key.c_str(), ::UI_get_default_method(), nullptr, nullptr, nullptr));
  if (store == nullptr || ::OSSL_STORE_expect(store.get(), OSSL_STORE_INFO_PKEY) != 1) {
    throw_openssl("cannot open the key " + key);
  }
  while (::OSSL_STORE_eof(store.get()) == 0) {
    const store_item object(::OSSL_STORE_load(store.get()));
    if (object != nullptr && ::OSSL_STORE_INFO_get_type(object.get()) == OSSL_STORE_INFO_PKEY) {
      ::ERR_clear_error();
      return private_key(::OSSL_STORE_INFO_get1_PKEY(object.get()));
    }
  }
  throw_openssl("cannot read a private key from " + key);
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
  const bool is_rsa = ::EVP_PKEY_is_a(key, "RSA") == 1;
  if (!is_rsa && ::EVP_PKEY_is_a(key, "EC") != 1) {
    throw std::runtime_error(name + ": the key is neither EC nor RSA");
  }
  if (is_rsa && ::EVP_PKEY_get_bits(key) < least_rsa_bits) {
    throw std::runtime_error(name + ": an RSA key needs at least 2048 bits");
  }
  if (::X509_check_private_key(own, key) != 1) {
    ::ERR_clear_error();
    throw std::runtime_error(name + ": the key does not match the certificate");
  }
}

std::string der_of(CMS_ContentInfo *message) {
  const memory_bio bio(::BIO_new(::BIO_s_mem()));
  if (bio == nullptr || ::i2d_CMS_bio(bio.get(), message) != 1) {
    throw_openssl("cannot write the signature");
  }
  char *bytes = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &bytes);
  return {bytes, static_cast<size_t>(size)};
}

}  // namespace

signer::signer(const fs::path &certificates, const std::string &key)
    : chain_(read_certificates(certificates)),
      own_(sk_X509_shift(chain_.get())),
      key_(read_key(key)) {
  check_signing_certificate(own_.get(), certificates);
  check_signing_key(own_.get(), key_.get(), key);
}

std::string signer::sign(std::string_view bytes) const {
  const memory_bio content = bio_over(bytes);
  const cms_message message(
      ::CMS_sign(nullptr, nullptr, chain_.get(), content.get(), detached | CMS_PARTIAL));
  if (message == nullptr ||
      ::CMS_add1_signer(message.get(), own_.get(), key_.get(), ::EVP_sha256(),
                        detached | CMS_NOSMIMECAP) == nullptr ||
      ::CMS_final(message.get(), content.get(), nullptr, detached) != 1) {
    throw_openssl("cannot sign");
  }
  return der_of(message.get());
}

bool signer::has_signed(std::string_view bytes, std::string_view signature) const {
  const memory_bio content = bio_over(bytes);
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
