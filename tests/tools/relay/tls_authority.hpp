// SPDX-License-Identifier: Apache-2.0
// Certificates of TLS servers and clients, issued by an authority of the test.
#pragma once

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "tests/support/files.hpp"
#include "utilities/owner.hpp"

namespace zot::test {

class tls_authority {
 public:
  explicit tls_authority(const std::string &name = "authority") : key_(new_key()) {
    certificate_ = make({.name = name, .valid_until = day, .is_authority = true}, key_.get());
    write(path(), certificate_.get());
  }

  struct subject {
    std::string name;
    std::string names = {};  // such as "DNS:localhost,IP:127.0.0.1"; empty: none
    long valid_until = day;  // seconds from now
    bool is_authority = false;
  };
  // Issues a certificate NAME.crt with the key NAME.key.
  void issue(const subject &whom) const {
    const key_owner key = new_key();
    write(certificate_of(whom.name), make(whom, key.get()).get());
    const zot::file_stream file(std::fopen(key_of(whom.name).c_str(), "w"));
    require(::PEM_write_PrivateKey(file.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr));
  }

  // The certificate of the authority.
  [[nodiscard]] std::string path() const { return dir_ / "ca.crt"; }
  [[nodiscard]] std::string certificate_of(const std::string &name) const {
    return dir_ / (name + ".crt");
  }
  [[nodiscard]] std::string key_of(const std::string &name) const { return dir_ / (name + ".key"); }

 private:
  static constexpr long day = 86400;
  using key_owner = std::unique_ptr<EVP_PKEY, zot::releaser<::EVP_PKEY_free>>;
  using certificate_owner = std::unique_ptr<X509, zot::releaser<::X509_free>>;
  using extension_owner = std::unique_ptr<X509_EXTENSION, zot::releaser<::X509_EXTENSION_free>>;

  static void require(int result) {
    if (result <= 0) {
      throw std::runtime_error("OpenSSL cannot make a certificate");
    }
  }
  static key_owner new_key() { return key_owner(EVP_EC_gen("P-256")); }
  static void write(const std::string &path, X509 *certificate) {
    const zot::file_stream file(std::fopen(path.c_str(), "w"));
    require(::PEM_write_X509(file.get(), certificate));
  }
  static void add(X509 *certificate, int what, const std::string &value) {
    const extension_owner extension(::X509V3_EXT_conf_nid(nullptr, nullptr, what, value.c_str()));
    require(extension != nullptr ? ::X509_add_ext(certificate, extension.get(), -1) : 0);
  }
  static void set_name(X509_NAME *where, const std::string &name) {
    require(::X509_NAME_add_entry_by_txt(where, "CN", MBSTRING_ASC,
                                         reinterpret_cast<const unsigned char *>(name.c_str()), -1,
                                         -1, 0));
  }
  [[nodiscard]] certificate_owner make(const subject &whom, EVP_PKEY *key) const {
    static long serial = 0;
    certificate_owner made(::X509_new());
    require(::X509_set_version(made.get(), X509_VERSION_3));
    require(::ASN1_INTEGER_set(::X509_get_serialNumber(made.get()), ++serial));
    ::X509_gmtime_adj(::X509_getm_notBefore(made.get()), -2 * day);
    ::X509_gmtime_adj(::X509_getm_notAfter(made.get()), whom.valid_until);
    set_name(::X509_get_subject_name(made.get()), whom.name);
    require(::X509_set_issuer_name(
        made.get(), ::X509_get_subject_name(whom.is_authority ? made.get() : certificate_.get())));
    require(::X509_set_pubkey(made.get(), key));
    if (whom.is_authority) {
      add(made.get(), NID_basic_constraints, "critical,CA:TRUE");
    }
    if (!whom.names.empty()) {
      add(made.get(), NID_subject_alt_name, whom.names);
    }
    require(::X509_sign(made.get(), key_.get(), ::EVP_sha256()));
    return made;
  }

  temp_dir dir_;
  key_owner key_;
  certificate_owner certificate_;
};

}  // namespace zot::test
