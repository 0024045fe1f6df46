// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/keyring.hpp"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "tools/publication/openssl.hpp"
#include "tools/publication/trust_store.hpp"

namespace zotconf {
namespace {

constexpr size_t longest_signature = 65536;
constexpr std::array strong_digests = {NID_sha256,   NID_sha384,   NID_sha512,
                                       NID_sha3_256, NID_sha3_384, NID_sha3_512};

// Other users of OpenSSL in this thread must not find errors of what was refused here.
class error_queue {
 public:
  error_queue() = default;
  error_queue(const error_queue &) = delete;
  error_queue &operator=(const error_queue &) = delete;
  ~error_queue() { ::ERR_clear_error(); }
};

// The message that has exactly these bytes in DER; null if there is none.
cms_message parse_der(std::string_view bytes) {
  if (bytes.size() > longest_signature) {
    return nullptr;
  }
  const auto *at = reinterpret_cast<const unsigned char *>(bytes.data());
  cms_message message(::d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(bytes.size())));
  if (message == nullptr || der_of(message.get()) != bytes) {
    return nullptr;
  }
  return message;
}

std::string wrong_form(CMS_ContentInfo *message) {
  if (message == nullptr) {
    return "the signature is not DER";
  }
  if (::OBJ_obj2nid(::CMS_get0_type(message)) != NID_pkcs7_signed) {
    return "the signature is not CMS signed data";
  }
  if (::CMS_is_detached(message) != 1) {
    return "the signature is not detached";
  }
  const int signers = sk_CMS_SignerInfo_num(::CMS_get0_SignerInfos(message));
  if (signers != 1) {
    return "the signature has " + std::to_string(std::max(signers, 0)) + " signers, not one";
  }
  return "";
}

// The one signer of a message. Its certificate is null if neither the message nor the keyring has
// it.
struct signer_part {
  CMS_SignerInfo *info = nullptr;
  X509 *certificate = nullptr;
  X509_ALGOR *digest = nullptr;
};

signer_part find_signer(CMS_ContentInfo *message, STACK_OF(X509) * known) {
  signer_part found;
  found.info = sk_CMS_SignerInfo_value(::CMS_get0_SignerInfos(message), 0);
  static_cast<void>(::CMS_set1_signers_certs(message, known, 0));
  ::CMS_SignerInfo_get0_algs(found.info, nullptr, &found.certificate, &found.digest, nullptr);
  return found;
}

std::string wrong_algorithm(const signer_part &signer) {
  const ASN1_OBJECT *digest = nullptr;
  ::X509_ALGOR_get0(&digest, nullptr, nullptr, signer.digest);
  if (std::ranges::find(strong_digests, ::OBJ_obj2nid(digest)) == strong_digests.end()) {
    return "the digest of the signature is weaker than SHA-256";
  }
  EVP_PKEY *const key = ::X509_get0_pubkey(signer.certificate);
  const std::string wrong = key == nullptr ? "the key cannot be read" : wrong_key(key);
  return wrong.empty() ? "" : "the signer's certificate: " + wrong;
}

std::string wrong_content(CMS_ContentInfo *message, std::string_view bytes) {
  const memory_bio content = content_over(bytes);
  const bool is_valid = ::CMS_verify(message, nullptr, nullptr, content.get(), nullptr,
                                     detached | CMS_NO_SIGNER_CERT_VERIFY) == 1;
  return is_valid ? "" : "the signature is not that of this K";
}

std::string wrong_usage(X509 *own) {
  const bool states_usage = (::X509_get_extension_flags(own) & EXFLAG_KUSAGE) != 0;
  const bool allows = states_usage && (::X509_get_key_usage(own) & KU_DIGITAL_SIGNATURE) != 0;
  return allows ? "" : "the signer's certificate does not allow digital signatures";
}

// The time that a message states, once and with one value; null otherwise.
const ASN1_TIME *signing_time(const CMS_SignerInfo *info) {
  constexpr int only_one = -3;
  for (const int type : {V_ASN1_UTCTIME, V_ASN1_GENERALIZEDTIME}) {
    const void *const time =
        ::CMS_signed_get0_data_by_OBJ(info, ::OBJ_nid2obj(NID_pkcs9_signingTime), only_one, type);
    if (time != nullptr) {
      return static_cast<const ASN1_TIME *>(time);
    }
  }
  return nullptr;
}

struct stated_time {
  std::time_t at = 0;  // 0: not stated
  std::string wrong;
};

stated_time read_signing_time(const signer_part &signer) {
  if (::CMS_signed_get_attr_by_NID(signer.info, NID_pkcs9_signingTime, -1) < 0) {
    return {};
  }
  const ASN1_TIME *const time = signing_time(signer.info);
  auto day = time == nullptr ? std::nullopt : calendar(time);
  const std::time_t at = day ? ::timegm(&*day) : -1;
  if (at <= 0) {
    return {.at = 0, .wrong = "the signing time cannot be read"};
  }
  if (::ASN1_TIME_compare(time, ::X509_get0_notBefore(signer.certificate)) < 0 ||
      ::ASN1_TIME_compare(time, ::X509_get0_notAfter(signer.certificate)) > 0) {
    return {
        .at = 0,
        .wrong = "signed on " + date_of(time) + ", when the signer's certificate was not valid"};
  }
  return {.at = at, .wrong = ""};
}

keyring::verdict refused(std::string wrong) {
  return {.wrong = std::move(wrong), .signer = ""};
}

}  // namespace

stated_signature stated_in(std::string_view signature) {
  const error_queue cleared;
  const cms_message message = parse_der(signature);
  if (!wrong_form(message.get()).empty()) {
    return {};
  }
  const signer_part signer = find_signer(message.get(), nullptr);
  if (signer.certificate == nullptr) {
    return {};
  }
  return {.signer = subject_of(signer.certificate), .signed_at = read_signing_time(signer).at};
}

keyring::keyring(const fs::path &file) {
  const error_queue cleared;
  trust_ = std::make_unique<trust_store>(file);
}

keyring::~keyring() = default;

keyring::verdict keyring::check(std::string_view bytes, std::string_view signature,
                                std::time_t now) const {
  if (signature.size() > longest_signature) {
    return refused("the signature is longer than 64 KiB");
  }
  const error_queue cleared;
  const cms_message message = parse_der(signature);
  if (std::string wrong = wrong_form(message.get()); !wrong.empty()) {
    return refused(std::move(wrong));
  }
  const signer_part signer = find_signer(message.get(), trust_->certificates());
  if (signer.certificate == nullptr) {
    return refused("the signer's certificate is missing");
  }
  const certificate_chain sent(::CMS_get1_certs(message.get()));
  const stated_time stated = read_signing_time(signer);
  std::string wrong = wrong_algorithm(signer);
  if (wrong.empty()) {
    wrong = wrong_content(message.get(), bytes);
  }
  if (wrong.empty()) {
    wrong = wrong_usage(signer.certificate);
  }
  if (wrong.empty()) {
    wrong = trust_->why_not_trusted(signer.certificate, sent.get(), now);
  }
  if (wrong.empty()) {
    wrong = stated.wrong;
  }
  if (!wrong.empty()) {
    return refused(std::move(wrong));
  }
  return {.wrong = "", .signer = subject_of(signer.certificate), .signed_at = stated.at};
}

}  // namespace zotconf
