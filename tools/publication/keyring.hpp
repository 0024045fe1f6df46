// SPDX-License-Identifier: Apache-2.0
// The certificates that a reader of signed K files trusts.
#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "tools/files/file_io.hpp"

namespace zotconf {

// What a signature states about itself. Proves nothing.
struct stated_signature {
  std::string signer;         // subject of the signer's certificate; empty: none
  std::time_t signed_at = 0;  // 0: not stated
};

// Reads a signature without verifying it. Of bytes that are no signature, nothing is stated.
stated_signature stated_in(std::string_view signature);

class trust_store;

class keyring {
 public:
  // The file has trusted certificates and, optionally, certificate revocation lists, in PEM. Throws
  // std::runtime_error if it has no certificate or cannot be read. A certificate is trusted if it
  // is in the file, or if a chain leads from it to one in the file.
  explicit keyring(const fs::path &file);
  keyring(const keyring &) = delete;
  keyring &operator=(const keyring &) = delete;
  ~keyring();

  struct verdict {
    std::string wrong;          // why the signature is not accepted; empty: it is
    std::string signer;         // subject of the signer's certificate; set when it is accepted
    std::time_t signed_at = 0;  // as the signer states it; 0: not stated
  };
  // Checks a detached signature of these bytes, and the signer's certificates at the time `now`.
  [[nodiscard]] verdict check(std::string_view bytes, std::string_view signature,
                              std::time_t now) const;

 private:
  std::unique_ptr<trust_store> trust_;
};

}  // namespace zotconf
