// SPDX-License-Identifier: Apache-2.0
// Checks arbitrary bytes as the signature of a K with the keyring of an element, and reads the same
// bytes as a K. The corpus has valid signatures, so that the fuzzer starts from them.
#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/check.hpp"
#include "tests/support/files.hpp"
#include "tools/model/manifest.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/publication/keyring.hpp"

namespace {
namespace test = zot::test;
using zot::fuzz::check;

// What the authority "CN=ca" trusts: its publisher, and no longer "CN=other".
constexpr const char *keyring_text =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBfjCCASWgAwIBAgIUOp+X3Q4+byEFRjY0j8N/Bl30R0gwCgYIKoZIzj0EAwIw\n"
    "DTELMAkGA1UEAwwCY2EwHhcNMjYxMTIzMDczNzM0WhcNMzYxMTIwMDczNzM0WjAN\n"
    "MQswCQYDVQQDDAJjYTBZMBMGByqGSM49AgEGCCqGSM49AwEHA0IABKmZLIjTbJpE\n"
    "s6lfh3/5FLaENuauzkA0e7TyOkaqPmDxcjTb3ZAb3tNIsMt1Dk6OFFivy0FETNgE\n"
    "rpu0nbjm4GSjYzBhMB0GA1UdDgQWBBQXkmBeyGFhPZAagdrlbPuAdHwpAjAfBgNV\n"
    "HSMEGDAWgBQXkmBeyGFhPZAagdrlbPuAdHwpAjAPBgNVHRMBAf8EBTADAQH/MA4G\n"
    "A1UdDwEB/wQEAwIBBjAKBggqhkjOPQQDAgNHADBEAiBSpXKrXScZmSzIM3NvSEFP\n"
    "OJB1weuyHWUOFhdNGga7oQIgLdJbtOd2yNOzBxuRkZSARRC2Oc/RJVxDovu0ovA5\n"
    "BG8=\n"
    "-----END CERTIFICATE-----\n"
    "-----BEGIN X509 CRL-----\n"
    "MIG5MGIwCgYIKoZIzj0EAwIwDTELMAkGA1UEAwwCY2EXDTI2MTEyMzA3MzczNFoX\n"
    "DTI2MTIyMzA3MzczNFowJzAlAhQcrj15EDMxancf8gUAWm4S9n06dBcNMjYxMTIz\n"
    "MDczNzM0WjAKBggqhkjOPQQDAgNHADBEAiBizLOeQHVadVF9w4GS6BFZj3iYVDfV\n"
    "mk/xaJ746q+clQIgUQclyc+xcxHCrDSy0n5Vl663kSB/syJNf0R8ITEkRSE=\n"
    "-----END X509 CRL-----\n";
constexpr std::time_t now = 1795500000;
constexpr std::size_t rsa_bytes = 256;
const std::string signed_k = R"({"clusterId":"c","gpbs":[]})";
const std::string other_k = R"({"clusterId":"d","gpbs":[]})";

class reader {
 public:
  reader() {
    for (const char *const name : {"valid.p7s", "without_attributes.p7s"}) {
      const std::string bytes = stored(name);
      check(trusted_.check(signed_k, bytes, now).wrong.empty(), "a valid signature is accepted");
      values_.push_back(bytes.substr(bytes.size() - rsa_bytes));
    }
    check(trusted_.check(signed_k, stored("revoked.p7s"), now).wrong ==
              "the signer's certificate is revoked: CN=other",
          "a revoked signature is refused");
  }

  // A signature that the publisher never made has none of these numbers.
  [[nodiscard]] bool is_of_publisher(const std::string &signature) const {
    return std::ranges::any_of(values_, [&signature](const std::string &value) {
      return signature.find(value) != std::string::npos;
    });
  }
  void read(const std::string &signature) const;

 private:
  static std::string stored(const std::string &name) {
    return test::read_bytes(std::string(ZOTCONF_SIGNATURES) + "/" + name);
  }
  static zotconf::keyring make_keyring() {
    const test::temp_dir dir;
    test::write_bytes(dir / "keyring.pem", keyring_text);
    return zotconf::keyring(dir / "keyring.pem");
  }

  zotconf::keyring trusted_ = make_keyring();
  std::vector<std::string> values_;
};

void reader::read(const std::string &signature) const {
  const zot::fuzz::exact_copy<char> bytes(signature);
  const std::string_view copy(bytes.get(), bytes.size());
  check(!trusted_.check(other_k, copy, now).wrong.empty(), "a K that nobody signed is refused");
  const zotconf::keyring::verdict found = trusted_.check(signed_k, copy, now);
  check(zotconf::printable(found.wrong) == found.wrong, "the reason can be printed");
  if (!found.wrong.empty()) {
    check(found.signer.empty() && found.signed_at == 0, "nothing is said of a refused signature");
    return;
  }
  check(is_of_publisher(signature), "only the publisher signs");
  check(found.signer == "CN=publisher", "the signer is named");
}

bool is_same(const zotconf::published_file &one, const zotconf::published_file &other) {
  return one.category == other.category && one.category_name == other.category_name &&
         one.key == other.key && one.version == other.version && one.size == other.size &&
         one.checksum == other.checksum;
}

bool is_same(const zotconf::manifest &one, const zotconf::manifest &other) {
  return one.cluster == other.cluster && one.config_id == other.config_id &&
         one.firmware == other.firmware && one.who.subsys == other.who.subsys &&
         one.who.index == other.who.index && one.sequence == other.sequence &&
         std::ranges::equal(one.files, other.files,
                            [](const auto &a, const auto &b) { return is_same(a, b); });
}

// What is written is UTF-8, so a K that is not reads otherwise.
void read_k(const std::string &text) {
  const auto content = zotconf::parse_manifest(text);
  if (!content || !zotconf::is_utf8(text)) {
    return;
  }
  const std::string written = zotconf::render_manifest(*content);
  const auto again = zotconf::parse_manifest(written);
  check(again.has_value(), "what is written can be read");
  check(is_same(*content, *again), "a K is written as it was read");
  check(zotconf::render_manifest(*again) == written, "a K is written in one way");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static const reader reads;
  const std::string text(bytes, bytes + size);
  reads.read(text);
  read_k(text);
  return 0;
}
