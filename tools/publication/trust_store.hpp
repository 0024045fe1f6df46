// SPDX-License-Identifier: Apache-2.0
// The certificates and revocation lists of a keyring file.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/publication/openssl.hpp"

namespace zotconf {

class trust_store {
 public:
  // Throws std::runtime_error if the file cannot be read or has no certificate, or if a certificate
  // of it has the name of a list's issuer but none has signed the list.
  explicit trust_store(const fs::path &file);

  [[nodiscard]] STACK_OF(X509) * certificates() const { return certificates_.get(); }

  // Why a certificate is not trusted at a time; empty: it is. It is if it is in the file, or if
  // others lead from it to one in the file, and if no list names one of them. A list counts however
  // old it is: an old one is better than none.
  [[nodiscard]] std::string why_not_trusted(X509 *own, STACK_OF(X509) * others,
                                            std::time_t now) const;

 private:
  using revocation_list = std::unique_ptr<X509_CRL, zot::releaser<::X509_CRL_free>>;

  // Of the search for a chain to one trusted certificate.
  struct outcome {
    bool is_complete = false;
    std::string wrong;
  };

  void read(const fs::path &file);
  void check_lists(const fs::path &file) const;
  [[nodiscard]] outcome lead_to(X509 *trusted, X509 *own, STACK_OF(X509) * others,
                                std::time_t now) const;
  [[nodiscard]] bool is_revoked(X509 *one, X509 *issuer) const;
  [[nodiscard]] std::string why_revoked(STACK_OF(X509) * chain) const;

  certificate_chain certificates_;
  std::vector<revocation_list> lists_;
};

}  // namespace zotconf
