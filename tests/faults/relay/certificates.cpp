// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/certificates.hpp"

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace zot::test {
namespace {

using memory_bio = std::unique_ptr<BIO, releaser<::BIO_free_all>>;
using list_owner = std::unique_ptr<X509_CRL, releaser<::X509_CRL_free>>;
using time_owner = std::unique_ptr<ASN1_TIME, releaser<::ASN1_TIME_free>>;
using message_owner = std::unique_ptr<CMS_ContentInfo, releaser<::CMS_ContentInfo_free>>;
using extension_owner = std::unique_ptr<X509_EXTENSION, releaser<::X509_EXTENSION_free>>;

void check(bool is_good, const char *what) {
  if (!is_good) {
    const char *const reason = ::ERR_reason_error_string(::ERR_get_error());
    throw std::runtime_error(std::string(what) + ": " + (reason == nullptr ? "failed" : reason));
  }
}

memory_bio new_bio() {
  memory_bio bio(::BIO_new(::BIO_s_mem()));
  check(bio != nullptr, "BIO_new");
  return bio;
}

std::string text_of(BIO *bio) {
  char *bytes = nullptr;
  const long size = BIO_get_mem_data(bio, &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

std::shared_ptr<EVP_PKEY> new_key() {
  std::shared_ptr<EVP_PKEY> key(::EVP_EC_gen("P-256"), ::EVP_PKEY_free);
  check(key != nullptr, "EVP_EC_gen");
  return key;
}

time_owner days_from_now(long days) {
  time_owner time(::X509_time_adj_ex(nullptr, static_cast<int>(days), 0, nullptr));
  check(time != nullptr, "X509_time_adj_ex");
  return time;
}

void add_extension(X509 *certificate, int kind, const std::string &value) {
  if (value.empty()) {
    return;
  }
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  ::X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const extension_owner extension(::X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
  check(extension != nullptr && ::X509_add_ext(certificate, extension.get(), -1) == 1,
        "X509_add_ext");
}

void set_name(X509 *certificate, const std::string &name) {
  const auto *const text = reinterpret_cast<const unsigned char *>(name.c_str());
  check(::X509_NAME_add_entry_by_txt(::X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                                     text, -1, -1, 0) == 1,
        "X509_NAME_add_entry_by_txt");
}

// Without an issuer, the certificate issues itself.
identity make(const identity *issuer, const certificate_wish &wish) {
  static long last_serial = 0;
  identity made{.certificate = {::X509_new(), ::X509_free}, .key = new_key()};
  X509 *const certificate = made.certificate.get();
  const identity &by = issuer == nullptr ? made : *issuer;
  check(::X509_set_version(certificate, X509_VERSION_3) == 1 &&
            ::ASN1_INTEGER_set(::X509_get_serialNumber(certificate), ++last_serial) == 1 &&
            ::X509_set1_notBefore(certificate, days_from_now(wish.from_days).get()) == 1 &&
            ::X509_set1_notAfter(certificate, days_from_now(wish.to_days).get()) == 1 &&
            ::X509_set_pubkey(certificate, made.key.get()) == 1,
        "a certificate");
  set_name(certificate, wish.name);
  check(::X509_set_issuer_name(certificate, ::X509_get_subject_name(by.certificate.get())) == 1,
        "X509_set_issuer_name");
  add_extension(certificate, NID_basic_constraints, wish.is_authority ? "critical,CA:TRUE" : "");
  add_extension(certificate, NID_key_usage, wish.key_usage);
  add_extension(certificate, NID_subject_alt_name, wish.alternative_name);
  check(::X509_sign(certificate, by.key.get(), ::EVP_sha256()) > 0, "X509_sign");
  return made;
}

}  // namespace

std::string identity::certificate_pem() const {
  const memory_bio bio = new_bio();
  check(::PEM_write_bio_X509(bio.get(), certificate.get()) == 1, "PEM_write_bio_X509");
  return text_of(bio.get());
}

std::string identity::key_pem() const {
  const memory_bio bio = new_bio();
  check(
      ::PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
      "PEM_write_bio_PrivateKey");
  return text_of(bio.get());
}

identity make_authority(const std::string &name) {
  return make(nullptr,
              {.name = name, .is_authority = true, .key_usage = "critical,keyCertSign,cRLSign"});
}

identity issue(const identity &issuer, const certificate_wish &wish) {
  return make(&issuer, wish);
}

std::string revocation_list(const identity &issuer, const std::vector<identity> &revoked) {
  const list_owner list(::X509_CRL_new());
  check(::X509_CRL_set_version(list.get(), X509_CRL_VERSION_2) == 1 &&
            ::X509_CRL_set_issuer_name(list.get(),
                                       ::X509_get_subject_name(issuer.certificate.get())) == 1 &&
            ::X509_CRL_set1_lastUpdate(list.get(), days_from_now(-1).get()) == 1 &&
            ::X509_CRL_set1_nextUpdate(list.get(), days_from_now(365).get()) == 1,
        "a revocation list");
  for (const identity &each : revoked) {
    X509_REVOKED *const entry = ::X509_REVOKED_new();
    check(::X509_REVOKED_set_serialNumber(entry, ::X509_get_serialNumber(each.certificate.get())) ==
                  1 &&
              ::X509_REVOKED_set_revocationDate(entry, days_from_now(-1).get()) == 1 &&
              ::X509_CRL_add0_revoked(list.get(), entry) == 1,
          "X509_CRL_add0_revoked");
  }
  const memory_bio bio = new_bio();
  check(::X509_CRL_sign(list.get(), issuer.key.get(), ::EVP_sha256()) > 0 &&
            ::PEM_write_bio_X509_CRL(bio.get(), list.get()) == 1,
        "X509_CRL_sign");
  return text_of(bio.get());
}

std::string sign(std::string_view bytes, const signature_wish &wish) {
  const unsigned flags = CMS_BINARY | (wish.has_content ? 0U : CMS_DETACHED) |
                         (wish.has_certificates ? 0U : CMS_NOCERTS);
  const memory_bio content(::BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  const message_owner message(
      ::CMS_sign(nullptr, nullptr, nullptr, content.get(), flags | CMS_PARTIAL));
  check(message != nullptr, "CMS_sign");
  for (const identity &each : wish.signers) {
    check(::CMS_add1_signer(message.get(), each.certificate.get(), each.key.get(), ::EVP_sha256(),
                            flags | CMS_NOSMIMECAP) != nullptr,
          "CMS_add1_signer");
  }
  check(wish.signers.empty() || ::CMS_final(message.get(), content.get(), nullptr, flags) == 1,
        "CMS_final");
  const memory_bio out = new_bio();
  const bool is_written =
      wish.is_pem ? ::PEM_write_bio_CMS_stream(out.get(), message.get(), nullptr, 0) == 1
                  : ::i2d_CMS_bio(out.get(), message.get()) == 1;
  check(is_written, "a signature");
  return text_of(out.get());
}

}  // namespace zot::test
