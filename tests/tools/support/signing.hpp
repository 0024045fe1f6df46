// SPDX-License-Identifier: Apache-2.0
// Certificates and keys, made by openssl as a publisher makes them.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/files.hpp"

namespace zot::test {

// A certificate authority and the certificates that it has issued, in one folder.
class authority {
 public:
  authority() {
    run("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650 -subj /CN=ca "
        "-addext keyUsage=critical,keyCertSign,cRLSign -keyout " +
        (dir_ / "ca.key") + " -out " + certificate());
  }

  [[nodiscard]] std::string certificate() const { return dir_ / "ca.crt"; }

  // Issues NAME.crt with NAME.key, whose key openssl makes from these words.
  void issue(const std::string &name, const std::string &usage = "digitalSignature",
             const std::string &key = "ec -pkeyopt ec_paramgen_curve:P-256",
             int days = 3650) const {
    run("req -newkey " + key + " -nodes -subj /CN=" + name + " -keyout " + key_of(name) + " -out " +
        (dir_ / (name + ".csr")));
    write_bytes(dir_ / (name + ".ext"), usage.empty() ? "" : "keyUsage=" + usage + "\n");
    run("x509 -req -in " + (dir_ / (name + ".csr")) + " -CA " + certificate() + " -CAkey " +
        (dir_ / "ca.key") + " -CAcreateserial -days " + std::to_string(days) + " -extfile " +
        (dir_ / (name + ".ext")) + " -out " + certificate_of(name));
  }

  [[nodiscard]] std::string certificate_of(const std::string &name) const {
    return dir_ / (name + ".crt");
  }
  [[nodiscard]] std::string key_of(const std::string &name) const { return dir_ / (name + ".key"); }
  [[nodiscard]] std::vector<std::string> signs_as(const std::string &name) const {
    return {"--sign-cert", certificate_of(name), "--sign-key", key_of(name)};
  }

  // Whether openssl, which knows nothing of zotconf, takes the signature beside a K.
  [[nodiscard]] bool accepts(const std::string &k) const {
    return std::system(("openssl cms -verify -binary -inform DER -in " + k + ".p7s -content " + k +
                        " -purpose any -CAfile " + certificate() + " -out /dev/null 2>/dev/null")
                           .c_str()) == 0;
  }

 private:
  static void run(const std::string &words) {
    EXPECT_EQ(std::system(("openssl " + words + " 2>/dev/null").c_str()), 0) << words;
  }

  temp_dir dir_;
};

}  // namespace zot::test
