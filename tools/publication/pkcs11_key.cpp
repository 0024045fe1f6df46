// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/pkcs11_key.hpp"

#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/ui.h>

#include <stdexcept>
#include <utility>

namespace zotconf {

#ifdef OPENSSL_NO_ENGINE

signing_key open_pkcs11_key(const std::string & /*uri*/, const std::string &name) {
  throw std::runtime_error("cannot open the key " + name + ": OpenSSL has no PKCS#11 provider");
}

#else

signing_key open_pkcs11_key(const std::string &uri, const std::string &name) {
  using loaded_engine = std::unique_ptr<ENGINE, zot::releaser< ::ENGINE_free> >;
  ::ENGINE_load_dynamic();
  const loaded_engine loaded(::ENGINE_by_id("pkcs11"));
  if (loaded == nullptr) {
    ::ERR_clear_error();
    throw std::runtime_error("cannot open the key " + name +
                             ": OpenSSL has neither a PKCS#11 provider nor the engine");
  }
  // It would print the URI of a key that it cannot open, with the PIN.
  static_cast<void>(::ENGINE_ctrl_cmd_string(loaded.get(), "QUIET", nullptr, 0));
  if (::ENGINE_init(loaded.get()) != 1) {
    throw_openssl("cannot start the PKCS#11 engine");
  }
  std::shared_ptr<void> engine(loaded.get(),
                               [](void *used) { ::ENGINE_finish(static_cast<ENGINE *>(used)); });
  private_key key(::ENGINE_load_private_key(loaded.get(), uri.c_str(), ::UI_OpenSSL(), nullptr));
  if (key == nullptr) {
    throw_openssl("cannot open the key " + name);
  }
  return {std::move(engine), std::move(key)};
}

#endif

}  // namespace zotconf
