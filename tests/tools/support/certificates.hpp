// SPDX-License-Identifier: Apache-2.0
// Certificates, revocation lists and signatures of any kind, made by libcrypto.
#pragma once

#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/publication/openssl.hpp"

namespace zot::test {

inline void must(bool holds, const char *what) {
  if (!holds) {
    throw std::runtime_error(what);
  }
}

inline std::shared_ptr<EVP_PKEY> ec_key() {
  return {EVP_EC_gen("P-256"), ::EVP_PKEY_free};
}
inline std::shared_ptr<EVP_PKEY> rsa_key(size_t bits = 2048) {
  // Under emulation, the program is native: it finds the primes quickly.
  const std::string command = "openssl genrsa " + std::to_string(bits) + " 2>/dev/null";
  const std::unique_ptr<FILE, decltype(&::pclose)> pem(::popen(command.c_str(), "r"), ::pclose);
  return {::PEM_read_PrivateKey(pem.get(), nullptr, nullptr, nullptr), ::EVP_PKEY_free};
}
inline std::shared_ptr<EVP_PKEY> edwards_key() {
  return {::EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), ::EVP_PKEY_free};
}

constexpr const char *ca_usage = "critical,keyCertSign,cRLSign";

inline std::time_t days_from_now(int days) {
  return std::time(nullptr) + std::time_t{86400} * days;
}

// What a certificate states.
struct statement {
  std::string name;
  std::string usage = "critical,digitalSignature";  // empty: not stated
  bool is_ca = false;
  std::time_t from = days_from_now(-10);
  std::time_t until = days_from_now(300);
  std::shared_ptr<EVP_PKEY> key = ec_key();
  long serial = 0;  // 0: another one each time
};

// A certificate with its key.
struct identity {
  std::shared_ptr<X509> certificate;
  std::shared_ptr<EVP_PKEY> key;

  [[nodiscard]] std::string pem() const {
    const zotconf::memory_bio bio(::BIO_new(::BIO_s_mem()));
    must(::PEM_write_bio_X509(bio.get(), certificate.get()) == 1, "a certificate is written");
    char *bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<size_t>(size)};
  }
  [[nodiscard]] std::string key_pem() const {
    const zotconf::memory_bio bio(::BIO_new(::BIO_s_mem()));
    must(::PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) ==
             1,
         "a key is written");
    char *bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<size_t>(size)};
  }
};

inline void add_extension(X509 *to, int nid, const std::string &value) {
  X509_EXTENSION *const extension = ::X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
  must(extension != nullptr && ::X509_add_ext(to, extension, -1) == 1, "an extension is added");
  ::X509_EXTENSION_free(extension);
}

inline const EVP_MD *digest_for(const EVP_PKEY *key) {
  return ::EVP_PKEY_is_a(key, "ED25519") == 1 ? nullptr : ::EVP_sha256();
}

// Issues a certificate; without an issuer it is signed by its own key.
inline identity issue(const statement &stated, const identity *issuer = nullptr,
                      const EVP_MD *digest = nullptr) {
  static long last_serial = 1000;
  const std::shared_ptr<X509> made(::X509_new(), ::X509_free);
  X509_NAME *const name = ::X509_get_subject_name(made.get());
  ::X509_set_version(made.get(), X509_VERSION_3);
  ::ASN1_INTEGER_set(::X509_get_serialNumber(made.get()),
                     stated.serial == 0 ? ++last_serial : stated.serial);
  ::ASN1_TIME_set(::X509_getm_notBefore(made.get()), stated.from);
  ::ASN1_TIME_set(::X509_getm_notAfter(made.get()), stated.until);
  must(::X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char *>(stated.name.data()),
                                    static_cast<int>(stated.name.size()), -1, 0) == 1,
       "a name is set");
  ::X509_set_issuer_name(
      made.get(), issuer == nullptr ? name : ::X509_get_subject_name(issuer->certificate.get()));
  ::X509_set_pubkey(made.get(), stated.key.get());
  add_extension(made.get(), NID_basic_constraints,
                stated.is_ca ? "critical,CA:TRUE" : "critical,CA:FALSE");
  if (!stated.usage.empty()) {
    add_extension(made.get(), NID_key_usage, stated.usage);
  }
  EVP_PKEY *const signs = issuer == nullptr ? stated.key.get() : issuer->key.get();
  must(::X509_sign(made.get(), signs, digest == nullptr ? digest_for(signs) : digest) > 0,
       "a certificate is signed");
  return {made, stated.key};
}

inline identity issue_ca(const std::string &name, const identity *issuer = nullptr) {
  return issue({.name = name, .usage = ca_usage, .is_ca = true}, issuer);
}

// A list of revoked certificates, in PEM, that the issuer has signed.
inline std::string revoke(const identity &issuer, const std::vector<identity> &revoked,
                          std::time_t until = days_from_now(30)) {
  const std::shared_ptr<X509_CRL> list(::X509_CRL_new(), ::X509_CRL_free);
  const std::shared_ptr<ASN1_TIME> from(::ASN1_TIME_set(nullptr, days_from_now(-9)),
                                        ::ASN1_STRING_free);
  const std::shared_ptr<ASN1_TIME> to(::ASN1_TIME_set(nullptr, until), ::ASN1_STRING_free);
  ::X509_CRL_set_version(list.get(), X509_CRL_VERSION_2);
  ::X509_CRL_set_issuer_name(list.get(), ::X509_get_subject_name(issuer.certificate.get()));
  ::X509_CRL_set1_lastUpdate(list.get(), from.get());
  ::X509_CRL_set1_nextUpdate(list.get(), to.get());
  for (const identity &each : revoked) {
    X509_REVOKED *const entry = ::X509_REVOKED_new();
    ::X509_REVOKED_set_serialNumber(entry, ::X509_get_serialNumber(each.certificate.get()));
    ::X509_REVOKED_set_revocationDate(entry, from.get());
    must(::X509_CRL_add0_revoked(list.get(), entry) == 1, "a certificate is listed");
  }
  must(::X509_CRL_sign(list.get(), issuer.key.get(), ::EVP_sha256()) > 0, "a list is signed");
  const zotconf::memory_bio bio(::BIO_new(::BIO_s_mem()));
  must(::PEM_write_bio_X509_CRL(bio.get(), list.get()) == 1, "a list is written");
  char *bytes = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &bytes);
  return {bytes, static_cast<size_t>(size)};
}

// How a message is signed.
struct signing {
  std::vector<identity> signers;
  std::vector<identity> others = {};  // certificates that are sent along
  const EVP_MD *digest = ::EVP_sha256();
  unsigned flags = CMS_DETACHED | CMS_BINARY;
  unsigned signer_flags = CMS_NOSMIMECAP;
  std::time_t at = 0;  // the signing time; 0: now
};

// The message in DER.
inline std::string sign_as(const signing &how, std::string_view bytes) {
  const zotconf::memory_bio content = zotconf::bio_over(bytes);
  const zotconf::cms_message message(
      ::CMS_sign(nullptr, nullptr, nullptr, content.get(), how.flags | CMS_PARTIAL));
  must(message != nullptr, "a message is made");
  for (const identity &each : how.others) {
    ::CMS_add1_cert(message.get(), each.certificate.get());
  }
  for (const identity &each : how.signers) {
    CMS_SignerInfo *const info =
        ::CMS_add1_signer(message.get(), each.certificate.get(), each.key.get(), how.digest,
                          how.flags | how.signer_flags | CMS_PARTIAL);
    must(info != nullptr, "a signer is added");
    if (how.at != 0) {
      const std::shared_ptr<ASN1_TIME> time(::ASN1_TIME_set(nullptr, how.at), ::ASN1_STRING_free);
      ::CMS_signed_add1_attr_by_NID(info, NID_pkcs9_signingTime, time->type, time.get(), -1);
    }
  }
  must(how.signers.empty() || ::CMS_final(message.get(), content.get(), nullptr, how.flags) == 1,
       "a message is signed");
  return zotconf::der_of(message.get());
}

}  // namespace zot::test
