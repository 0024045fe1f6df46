// SPDX-License-Identifier: Apache-2.0
// Private keys of PKCS#11 tokens through OpenSSL's engine, for systems without the provider, such
// as Debian 12.
#pragma once

#include <memory>
#include <string>

#include "tools/publication/openssl.hpp"

namespace zotconf {

// A key of a token needs its engine until it is freed.
struct signing_key {
  std::shared_ptr<void> engine;  // null: none is needed
  private_key key;
};

// Throws std::runtime_error if there is no engine, or if it cannot open the key. `name` is the URI
// without the PIN, for the message.
signing_key open_pkcs11_key(const std::string &uri, const std::string &name);

}  // namespace zotconf
