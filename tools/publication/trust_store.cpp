// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/trust_store.hpp"

#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

namespace zotconf {
namespace {

inline void free_items(STACK_OF(X509_INFO) * items) {
  sk_X509_INFO_pop_free(items, ::X509_INFO_free);
}
using pem_items = std::unique_ptr<STACK_OF(X509_INFO), zot::releaser<free_items>>;
// Its certificates belong to others.
inline void free_stack(STACK_OF(X509) * stack) {
  sk_X509_free(stack);
}
using store_context = std::unique_ptr<X509_STORE_CTX, zot::releaser<::X509_STORE_CTX_free>>;

// 112 bits, which excludes SHA-1 and RSA keys below 2048 bits.
constexpr int security_level = 2;

bool is_named_by(X509_CRL *list, const X509_NAME *issuer) {
  return ::X509_NAME_cmp(::X509_CRL_get_issuer(list), issuer) == 0;
}

bool is_signed_by(X509_CRL *list, X509 *issuer) {
  EVP_PKEY *const key = ::X509_get0_pubkey(issuer);
  return key != nullptr && ::X509_CRL_verify(list, key) == 1;
}

bool is_unknown(int error) {
  return error == X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT ||
         error == X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY ||
         error == X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE ||
         error == X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT ||
         error == X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN ||
         error == X509_V_ERR_CERT_SIGNATURE_FAILURE;
}

// Why a chain was not accepted; empty if it does not lead to the trusted certificate.
std::string reason_of(X509_STORE_CTX *context) {
  const int error = ::X509_STORE_CTX_get_error(context);
  const X509 *const at = ::X509_STORE_CTX_get_current_cert(context);
  if (is_unknown(error) || at == nullptr) {
    return "";
  }
  const std::string name = ::X509_STORE_CTX_get_error_depth(context) == 0
                               ? "the signer's certificate"
                               : "the certificate " + subject_of(at);
  switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return name + " has expired on " + date_of(::X509_get0_notAfter(at));
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return name + " is not valid before " + date_of(::X509_get0_notBefore(at));
    default:
      return name + " is not accepted: " + ::X509_verify_cert_error_string(error);
  }
}

void set_rules(X509_STORE_CTX *context, std::time_t now) {
  X509_VERIFY_PARAM *const rules = ::X509_STORE_CTX_get0_param(context);
  ::X509_VERIFY_PARAM_set_purpose(rules, X509_PURPOSE_ANY);
  ::X509_VERIFY_PARAM_set_auth_level(rules, security_level);
  ::X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_PARTIAL_CHAIN);
  ::X509_VERIFY_PARAM_set_time(rules, now);
}

}  // namespace

trust_store::trust_store(const fs::path &file) : certificates_(sk_X509_new_null()) {
  if (certificates_ == nullptr) {
    throw std::bad_alloc();
  }
  read(file);
  check_lists(file);
}

void trust_store::read(const fs::path &file) {
  const std::string text = read_file_text(file);
  const memory_bio bio = bio_over(text);
  const pem_items items(::PEM_X509_INFO_read_bio(bio.get(), nullptr, nullptr, nullptr));
  if (items == nullptr) {
    throw_openssl(file.string() + ": cannot be read as PEM");
  }
  for (int i = 0; i < sk_X509_INFO_num(items.get()); ++i) {
    X509_INFO *const item = sk_X509_INFO_value(items.get(), i);
    if (item->crl != nullptr) {
      lists_.emplace_back(std::exchange(item->crl, nullptr));
    }
    if (item->x509 != nullptr &&
        ::X509_add_cert(certificates_.get(), item->x509, X509_ADD_FLAG_UP_REF) != 1) {
      throw std::bad_alloc();
    }
  }
  if (sk_X509_num(certificates_.get()) == 0) {
    throw std::runtime_error(file.string() + ": contains no PEM certificate");
  }
}

// A list that its issuer has not signed would revoke nothing.
void trust_store::check_lists(const fs::path &file) const {
  for (const revocation_list &list : lists_) {
    bool has_issuer = false;
    bool is_signed = false;
    for (int i = 0; i < sk_X509_num(certificates_.get()); ++i) {
      X509 *const issuer = sk_X509_value(certificates_.get(), i);
      if (is_named_by(list.get(), ::X509_get_subject_name(issuer))) {
        has_issuer = true;
        is_signed = is_signed || is_signed_by(list.get(), issuer);
      }
    }
    if (has_issuer && !is_signed) {
      throw std::runtime_error(file.string() + ": the revocation list of " +
                               text_of(::X509_CRL_get_issuer(list.get())) + " is not signed by it");
    }
  }
}

std::string trust_store::why_not_trusted(X509 *own, STACK_OF(X509) * others,
                                         std::time_t now) const {
  std::string reason;
  for (int i = 0; i < sk_X509_num(certificates_.get()); ++i) {
    const outcome found = lead_to(sk_X509_value(certificates_.get(), i), own, others, now);
    if (found.is_complete) {
      return found.wrong;
    }
    if (reason.empty()) {
      reason = found.wrong;
    }
  }
  return reason.empty() ? "signed by an unknown certificate: " + subject_of(own) : reason;
}

// One trusted certificate at a time: OpenSSL tries only one of those that have the same name, as
// the old and the new one have while an authority replaces its key.
trust_store::outcome trust_store::lead_to(X509 *trusted, X509 *own, STACK_OF(X509) * others,
                                          std::time_t now) const {
  const std::unique_ptr<STACK_OF(X509), zot::releaser<free_stack>> only(sk_X509_new_null());
  const store_context context(::X509_STORE_CTX_new());
  if (only == nullptr || sk_X509_push(only.get(), trusted) == 0 || context == nullptr ||
      ::X509_STORE_CTX_init(context.get(), nullptr, own, others) != 1) {
    throw std::bad_alloc();
  }
  ::X509_STORE_CTX_set0_trusted_stack(context.get(), only.get());
  set_rules(context.get(), now);
  if (::X509_verify_cert(context.get()) != 1) {
    return {.is_complete = false, .wrong = reason_of(context.get())};
  }
  return {.is_complete = true, .wrong = why_revoked(::X509_STORE_CTX_get0_chain(context.get()))};
}

// A list counts only for the one of them that signed it. If the chain ends before the issuer, the
// name alone decides.
bool trust_store::is_revoked(X509 *one, X509 *issuer) const {
  return std::ranges::any_of(lists_, [one, issuer](const revocation_list &list) {
    X509_REVOKED *entry = nullptr;
    return is_named_by(list.get(), ::X509_get_issuer_name(one)) &&
           ::X509_CRL_get0_by_cert(list.get(), &entry, one) == 1 &&
           (issuer == nullptr || is_signed_by(list.get(), issuer));
  });
}

std::string trust_store::why_revoked(STACK_OF(X509) * chain) const {
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    X509 *const one = sk_X509_value(chain, i);
    if (is_revoked(one, sk_X509_value(chain, i + 1))) {
      return (i == 0 ? "the signer's certificate is revoked: "
                     : "an issuer of the signer's certificate is revoked: ") +
             subject_of(one);
    }
  }
  return "";
}

}  // namespace zotconf
