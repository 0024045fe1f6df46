// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/sign.hpp"

#include <gtest/gtest.h>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/publishing.hpp"
#include "tests/tools/support/signing.hpp"

namespace zot::test {
namespace {

const std::string signature_name = k_name + ".p7s";

class Sign : public Publishing {
 protected:
  void SetUp() override {
    authority_.issue("publisher");
    authority_.issue("successor");
    put("Wlan/a", "one");
  }
  [[nodiscard]] finished sign_as(const std::string &name,
                                 const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"sign", publication_};
    const auto by = authority_.signs_as(name);
    args.insert(args.end(), by.begin(), by.end());
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args);
  }
  [[nodiscard]] bool is_accepted() const { return authority_.accepts(publication_ + "/" + k_name); }

  authority authority_;
};

TEST_F(Sign, PublishWritesASignatureThatOpensslTakes) {
  const finished done = run(authority_.signs_as("publisher"));
  ASSERT_EQ(done.status, 0) << done.err;
  EXPECT_NE(done.out.find("bytes, signed\n"), std::string::npos);
  EXPECT_TRUE(is_accepted());
}

TEST_F(Sign, KNamesItsElementAndANumberThatRises) {
  ASSERT_EQ(run().status, 0);
  const zotconf::manifest first = k();
  EXPECT_EQ(first.who.subsys, "AP");
  EXPECT_EQ(first.who.index, "001122334455");
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_GT(k().sequence, first.sequence);
}

TEST_F(Sign, TheNumberRisesAlsoWhereTheKBeforeIsLost) {
  ASSERT_EQ(run().status, 0);
  const uint64_t before = k().sequence;
  std::filesystem::remove(publication_ + "/" + k_name);
  ASSERT_EQ(run().status, 0);
  EXPECT_GE(k().sequence, before);
}

TEST_F(Sign, UnchangedContentKeepsItsKAndItsSignature) {
  ASSERT_EQ(run(authority_.signs_as("publisher")).status, 0);
  const std::string k_before = published(k_name);
  const std::string signature = published(signature_name);
  const finished done = run(authority_.signs_as("publisher"));
  EXPECT_EQ(done.out.rfind("unchanged: ", 0), 0U) << done.out;
  EXPECT_EQ(published(k_name), k_before);
  EXPECT_EQ(published(signature_name), signature);
}

TEST_F(Sign, UnchangedContentIsSignedByANewCertificate) {
  ASSERT_EQ(run(authority_.signs_as("publisher")).status, 0);
  const std::string k_before = published(k_name);
  const std::string signature = published(signature_name);
  ASSERT_EQ(run(authority_.signs_as("successor")).status, 0);
  EXPECT_EQ(published(k_name), k_before);
  EXPECT_NE(published(signature_name), signature);
  EXPECT_TRUE(is_accepted());
}

TEST_F(Sign, PublishingWithoutAKeyRemovesTheSignatureAndSaysSo) {
  ASSERT_EQ(run(authority_.signs_as("publisher")).status, 0);
  put("Wlan/a", "two");
  const finished done = run();
  ASSERT_EQ(done.status, 0);
  EXPECT_FALSE(holds(signature_name));
  EXPECT_NE(done.err.find("was signed, the new one is not"), std::string::npos);
}

TEST_F(Sign, AKeyThatCannotBeUsedWritesNothing) {
  const finished done = run({"--sign-cert", authority_.certificate_of("publisher"), "--sign-key",
                             authority_.key_of("successor")});
  EXPECT_EQ(done.status, 1);
  EXPECT_FALSE(exists(publication_));
}

TEST_F(Sign, CertificateAndKeyBelongTogether) {
  EXPECT_EQ(run({"--sign-cert", authority_.certificate_of("publisher")}).status, 2);
  EXPECT_EQ(run({"--sign-key", authority_.key_of("publisher")}).status, 2);
}

TEST_F(Sign, ADryRunSignsNothing) {
  ASSERT_EQ(run().status, 0);
  std::vector<std::string> args = authority_.signs_as("publisher");
  args.emplace_back("--dry-run");
  ASSERT_EQ(run(args).status, 0);
  EXPECT_FALSE(holds(signature_name));
}

TEST_F(Sign, SignsEachKOfAFolderOnce) {
  ASSERT_EQ(run().status, 0);
  ASSERT_EQ(publish_for("AABBCCDDEEFF").status, 0);
  const finished first = sign_as("publisher");
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(first.out, "signed: 2 K, 0 already signed, 0 failed\n");
  EXPECT_TRUE(is_accepted());
  EXPECT_EQ(sign_as("publisher").out, "signed: 0 K, 2 already signed, 0 failed\n");
}

TEST_F(Sign, SignsOneElementAlone) {
  ASSERT_EQ(run().status, 0);
  ASSERT_EQ(publish_for("AABBCCDDEEFF").status, 0);
  const finished done = sign_as("publisher", {"--index", "aabbccddeeff", "--json"});
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_NE(done.out.find("AABBCCDDEEFF"), std::string::npos);
  EXPECT_FALSE(holds(signature_name));
}

TEST_F(Sign, TellsOfAnElementThatIsNotPublished) {
  ASSERT_EQ(run().status, 0);
  const finished done = sign_as("publisher", {"--index", "AABBCCDDEEFF"});
  EXPECT_EQ(done.status, 1);
  EXPECT_NE(done.err.find("no such element is published"), std::string::npos);
}

TEST_F(Sign, SignsNoKThatIsDamagedOrOfAnotherElement) {
  ASSERT_EQ(run().status, 0);
  ASSERT_EQ(publish_for("AABBCCDDEEFF").status, 0);
  const std::string other = "file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.k";
  write_bytes(publication_ + "/" + other, published(k_name));
  const finished damaged = sign_as("publisher");
  EXPECT_EQ(damaged.status, 1);
  EXPECT_NE(damaged.err.find("AABBCCDDEEFF: K does not match its checksum file"),
            std::string::npos);
  EXPECT_TRUE(is_accepted()) << "the others are signed";

  write_bytes(publication_ + "/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.checksum",
              published(checksum_name));
  const finished swapped = sign_as("publisher");
  EXPECT_EQ(swapped.status, 1);
  EXPECT_NE(swapped.err.find("AABBCCDDEEFF: K is that of AP 001122334455"), std::string::npos);
  EXPECT_FALSE(holds(other + ".p7s"));
}

TEST_F(Sign, AKOfAnEarlierPublisherHasToBePublishedAgain) {
  ASSERT_EQ(run().status, 0);
  zotconf::manifest old = k();
  old.sequence = 0;
  const std::string text = zotconf::render_manifest(old);
  write_bytes(publication_ + "/" + k_name, text);
  write_bytes(publication_ + "/" + checksum_name, sha256_hex(text) + "\n");
  EXPECT_NE(sign_as("publisher").err.find("publish it again with --sign-cert"), std::string::npos);
  EXPECT_EQ(run().out.rfind("unchanged: ", 0), 0U);
  EXPECT_EQ(published(k_name), text) << "without a key there is no reason for another K";
  ASSERT_EQ(run(authority_.signs_as("publisher")).status, 0);
  EXPECT_GT(k().sequence, 0U);
  EXPECT_TRUE(is_accepted());
}

}  // namespace
}  // namespace zot::test
