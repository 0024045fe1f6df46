// SPDX-License-Identifier: Apache-2.0
// Certificates, keys, revocation lists and CMS signatures, as valid or as wrong as a trial needs
// them.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "utilities/owner.hpp"

namespace zot::test {

// A certificate and its key.
struct identity {
  std::shared_ptr<X509> certificate;
  std::shared_ptr<EVP_PKEY> key;

  [[nodiscard]] std::string certificate_pem() const;
  [[nodiscard]] std::string key_pem() const;
};

struct certificate_wish {
  std::string name;
  bool is_authority = false;
  std::string key_usage = "critical,digitalSignature";  // empty: the certificate states none
  std::string alternative_name = {};                    // as in "IP:127.0.0.1"
  long from_days = -1;                                  // relative to the present
  long to_days = 3650;
};

// Issued by itself.
[[nodiscard]] identity make_authority(const std::string &name);
[[nodiscard]] identity issue(const identity &issuer, const certificate_wish &wish);

// A list in PEM that revokes these certificates, or none.
[[nodiscard]] std::string revocation_list(const identity &issuer,
                                          const std::vector<identity> &revoked);

struct signature_wish {
  bool has_content = false;      // the signed bytes are in the message
  bool is_pem = false;           // text instead of DER
  bool has_certificates = true;  // the message has the certificates of the signers
  std::vector<identity> signers = {};
};
[[nodiscard]] std::string sign(std::string_view bytes, const signature_wish &wish);

}  // namespace zot::test
