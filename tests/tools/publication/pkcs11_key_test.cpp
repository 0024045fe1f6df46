// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/pkcs11_key.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "tests/tools/support/publishing.hpp"
#include "tools/publication/keyring.hpp"

namespace zot::test {
namespace {

// A token in software with one key, as softhsm2 makes it, and a certificate for the key.
class Pkcs11Key : public Publishing {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(dir_ / "tokens");
    write_bytes(dir_ / "softhsm2.conf", "directories.tokendir = " + (dir_ / "tokens") + "\n");
    write_bytes(dir_ / "pin", "1234");
    shell("softhsm2-util --init-token --free --label release --pin 1234 --so-pin 4321");
    put("Wlan/a", "one");
    ASSERT_EQ(run().status, 0);
  }
  void shell(const std::string &words) const {
    std::string variables;
    for (const auto &[name, value] : variables_) {
      variables.append(name).append("=").append(value).append(" ");
    }
    const std::string log = dir_ / "log";
    ASSERT_EQ(std::system((variables + words + " >" + log + " 2>&1").c_str()), 0)
        << words << "\n"
        << read_bytes(log);
  }
  void make_key(const std::string &type) const {
    shell("pkcs11-tool --module " + std::string(ZOTCONF_SOFT_TOKEN) +
          " --token-label release --login --pin 1234 --keypairgen --label publisher --id 01" +
          " --key-type " + type);
    shell("openssl req -x509 -engine pkcs11 -keyform engine -key '" + uri_ +
          ";pin-value=1234' -days 30 -subj /CN=publisher" +
          " -addext keyUsage=critical,digitalSignature -out " + (dir_ / "publisher.crt"));
  }
  [[nodiscard]] finished sign(const std::string &key) const {
    return run_zotconf(
        {"sign", publication_, "--sign-cert", dir_ / "publisher.crt", "--sign-key", key},
        variables_);
  }
  [[nodiscard]] std::string wrong() const {
    return zotconf::keyring(dir_ / "publisher.crt")
        .check(published(k_name), published(k_name + ".p7s"), std::time(nullptr))
        .wrong;
  }

  // The engine loads this module alone, not each one that the machine has.
  environment variables_ = {{"SOFTHSM2_CONF", dir_ / "softhsm2.conf"},
                            {"PKCS11_MODULE_PATH", ZOTCONF_SOFT_TOKEN}};
  std::string uri_ = "pkcs11:token=release;object=publisher";
};

TEST_F(Pkcs11Key, SignsWithAnEcKey) {
  make_key("EC:prime256v1");
  const finished done = sign(uri_ + ";pin-value=1234");
  EXPECT_EQ(done.out, "signed: 1 K, 0 already signed, 0 failed\n") << done.err;
  EXPECT_EQ(done.err, "");
  EXPECT_EQ(wrong(), "");
}

TEST_F(Pkcs11Key, SignsWithAnRsaKey) {
  make_key("rsa:2048");
  const finished done = sign(uri_ + ";pin-value=1234");
  EXPECT_EQ(done.out, "signed: 1 K, 0 already signed, 0 failed\n") << done.err;
  EXPECT_EQ(wrong(), "");
}

TEST_F(Pkcs11Key, ReadsThePinFromAFile) {
  make_key("EC:prime256v1");
  const finished done = sign(uri_ + "?pin-source=file:" + (dir_ / "pin"));
  EXPECT_EQ(done.out, "signed: 1 K, 0 already signed, 0 failed\n") << done.err;
  EXPECT_EQ(wrong(), "");
}

TEST_F(Pkcs11Key, PrintsNoPinWhenItCannotBeOpened) {
  make_key("EC:prime256v1");
  // The engine leaks memory when it cannot open a key.
  variables_["ASAN_OPTIONS"] = "detect_leaks=0";
  const finished wrong_pin = sign(uri_ + ";pin-value=98765");
  EXPECT_EQ(wrong_pin.status, 1);
  EXPECT_NE(wrong_pin.err.find("cannot open the key " + uri_ + ";pin-value=...: "),
            std::string::npos)
      << wrong_pin.err;
  EXPECT_EQ(wrong_pin.err.find("98765"), std::string::npos) << wrong_pin.err;
  const finished absent = sign("pkcs11:token=release;object=absent?pin-value=1234");
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.err.find("1234"), std::string::npos) << absent.err;
  EXPECT_FALSE(holds(k_name + ".p7s"));
}

}  // namespace
}  // namespace zot::test
