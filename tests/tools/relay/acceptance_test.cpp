// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/acceptance.hpp"

#include <gtest/gtest.h>

#include "tests/tools/support/signing.hpp"
#include "tools/publication/signature.hpp"

namespace zotconf {
namespace {

const std::string digest(64, '0');
const std::string other_digest(64, '1');
const std::string some_sha256 = zot::test::sha256_hex("bytes");

published_file file(const std::string &category, const std::string &key) {
  return {.category = 0,
          .category_name = category,
          .key = key,
          .version = 1,
          .size = 5,
          .checksum = some_sha256};
}

manifest content_with(const std::vector<published_file> &files) {
  return {.cluster = "c",
          .config_id = "",
          .firmware = "",
          .who = {"AP", "001122334455"},
          .sequence = 7,
          .files = files};
}

std::string k_with_sequence(uint64_t sequence) {
  manifest content = content_with({file("Wlan", "a")});
  content.sequence = sequence;
  return render_manifest(content);
}

const acceptance unsigned_rules = {.who = {"AP", "001122334455"}};

judgement judge_unsigned(const std::string &k, const accepted_before &before = {}) {
  return judge_offer(unsigned_rules, k, digest, std::nullopt, before);
}

std::string why_not(const std::string &k, const accepted_before &before = {}) {
  return judge_unsigned(k, before).wrong;
}

std::string why_not(const manifest &content, const accepted_before &before = {}) {
  return why_not(render_manifest(content), before);
}

std::string why_not(const published_file &only) {
  return why_not(content_with({only}));
}

TEST(Acceptance, ReturnsTheContentOfAnAcceptedK) {
  const judgement made =
      judge_unsigned(render_manifest(content_with({file("Wlan", "a"), file("Wlan", "b")})));
  EXPECT_EQ(made.wrong, "");
  EXPECT_EQ(made.signer, "");
  EXPECT_EQ(made.signed_at, 0);
  EXPECT_EQ(made.content.sequence, 7U);
  ASSERT_EQ(made.content.files.size(), 2U);
  EXPECT_EQ(made.content.files[1].key, "b");
}

TEST(Acceptance, AcceptsAKWithoutFiles) {
  EXPECT_EQ(why_not(content_with({})), "");
}

TEST(Acceptance, RefusesTextsThatAreNoManifest) {
  EXPECT_EQ(why_not(""), "K is empty");
  EXPECT_EQ(why_not("{"), "K is not a valid manifest");
  EXPECT_EQ(why_not("[]"), "K is not a valid manifest");
  EXPECT_EQ(why_not(R"({"clusterId": "c"})"), "K is not a valid manifest");
}

TEST(Acceptance, RefusesAZeroByte) {
  const std::string k = k_with_sequence(7);
  EXPECT_EQ(why_not(k + '\0'), "K contains a zero byte");
  EXPECT_EQ(why_not(k + '\0' + "{"), "K contains a zero byte");
}

// 8 MB of text would become 300 MB of parsed values.
TEST(Acceptance, RefusesMoreValuesThanMemoryIsFor) {
  constexpr size_t values = size_t{1} << 22;
  std::string list = ",0";
  while (list.size() < 2 * values) {
    list += list;
  }
  EXPECT_EQ(why_not(R"({"clusterId": "c", "gpbs": [0)" + list + "]}"), "K has too many entries");
}

TEST(Acceptance, ParsesAKOfManyEntries) {
  manifest content = content_with({});
  for (int i = 0; i < 5'000; ++i) {
    content.files.push_back(file("Wlan", std::to_string(i)));
  }
  const judgement made = judge_unsigned(render_manifest(content));
  EXPECT_EQ(made.wrong, "");
  EXPECT_EQ(made.content.files.size(), 5'000U);
}

TEST(Acceptance, RefusesAClusterIdThatTheLibraryCannotStore) {
  manifest content = content_with({});
  content.cluster = "";
  EXPECT_EQ(why_not(content), "the cluster ID is empty");
  content.cluster = std::string(37, 'c');
  EXPECT_EQ(why_not(content), "the cluster ID is longer than 36 bytes");
  content.cluster = std::string(36, 'c');
  EXPECT_EQ(why_not(content), "");
}

TEST(Acceptance, RefusesTheKOfAnotherElement) {
  manifest content = content_with({});
  content.who.index = "AABBCCDDEEFF";
  EXPECT_EQ(why_not(content), "K is that of AP AABBCCDDEEFF");
  content.who = {"DP", "001122334455"};
  EXPECT_EQ(why_not(content), "K is that of DP 001122334455");
}

TEST(Acceptance, PrintsTheNameOfAnotherElementAsTwoWords) {
  manifest content = content_with({});
  content.who.index = "A \x1b[31m";
  EXPECT_EQ(why_not(content), "K is that of AP A??[31m");
}

TEST(Acceptance, RefusesALowerSequence) {
  EXPECT_EQ(why_not(k_with_sequence(7), {.sequence = 8, .digest = other_digest}),
            "K is older: it has the sequence 7, the last accepted one has 8");
}

TEST(Acceptance, RefusesAnotherKWithTheSameSequence) {
  EXPECT_EQ(why_not(k_with_sequence(7), {.sequence = 7, .digest = other_digest}),
            "another K has the sequence 7, the last accepted one has 7");
}

TEST(Acceptance, AcceptsAHigherSequenceAndTheFirstOne) {
  EXPECT_EQ(why_not(k_with_sequence(9), {.sequence = 8, .digest = other_digest}), "");
  EXPECT_EQ(why_not(k_with_sequence(1)), "");
}

TEST(Acceptance, AcceptsTheSameKAgain) {
  EXPECT_EQ(why_not(k_with_sequence(7), {.sequence = 7, .digest = digest}), "");
}

TEST(Acceptance, AcceptsAKWithoutASequenceIfNoneMustBeSigned) {
  manifest content = content_with({file("Wlan", "a")});
  content.sequence = 0;
  EXPECT_EQ(why_not(content), "");
  EXPECT_EQ(why_not(content, {.sequence = 8, .digest = other_digest}), "");
}

TEST(Acceptance, KeepsFilesOfCategoriesThatThisVersionDoesNotKnow) {
  const judgement made =
      judge_unsigned(render_manifest(content_with({file("Future", "a"), file("Wlan", "a")})));
  EXPECT_EQ(made.wrong, "");
  ASSERT_EQ(made.content.files.size(), 2U);
  EXPECT_EQ(made.content.files[0].category_name, "Future");
  EXPECT_EQ(made.content.files[0].category, -1);
}

TEST(Acceptance, RefusesAnObjectThatIsListedTwice) {
  published_file later = file("Wlan", "a");
  later.version = 2;
  EXPECT_EQ(why_not(content_with({file("Wlan", "a"), file("Wlan", "b"), later})),
            "Wlan/a is listed twice");
  EXPECT_EQ(why_not(content_with({file("Wlan", "a"), file("Zone", "a")})), "");
}

TEST(Acceptance, RefusesTwoSizesOfOneSha256) {
  published_file larger = file("Zone", "a");
  EXPECT_EQ(why_not(content_with({file("Wlan", "a"), larger})), "");
  larger.size = 6;
  EXPECT_EQ(why_not(content_with({file("Wlan", "a"), larger})),
            "Zone/a has the SHA-256 of a file with another size");
}

TEST(Acceptance, RefusesNamesThatAreNoPartsOfAPath) {
  EXPECT_EQ(why_not(file("..", "a")), "K names the category \"..\", which cannot be a name");
  EXPECT_EQ(why_not(file("Wlan", "..")), "Wlan/.. cannot be a path component");
  EXPECT_EQ(why_not(file("Wlan", "../../x")), "Wlan/../../x cannot be a path component");
  EXPECT_EQ(why_not(file("Wlan", "")), "K is not a valid manifest");
  EXPECT_EQ(why_not(file("Wlan", "a\nb")), "Wlan/a?b contains a control character");
}

TEST(Acceptance, RefusesNamesThatAreTooLong) {
  EXPECT_EQ(why_not(file("Wlan", std::string(52, 'k'))), "");
  EXPECT_EQ(why_not(file("Wlan", std::string(53, 'k'))),
            "Wlan/" + std::string(53, 'k') + " has a key over 52 characters");
}

TEST(Acceptance, RefusesSizesThatNoFileHas) {
  published_file only = file("Wlan", "a");
  only.size = 0;
  EXPECT_EQ(why_not(only), "Wlan/a has an impossible size");
  only.size = 2147483647;
  EXPECT_EQ(why_not(only), "");
  only.size = 2147483648;
  EXPECT_EQ(why_not(only), "K is not a valid manifest");
}

TEST(Acceptance, RefusesChecksumsThatAreNoSha256) {
  published_file only = file("Wlan", "a");
  for (const std::string &checksum :
       {std::string(), std::string(63, 'a'), std::string(65, 'a'), std::string(64, 'A'),
        std::string(64, 'g'), "../" + std::string(61, 'a')}) {
    only.checksum = checksum;
    EXPECT_EQ(why_not(only), "Wlan/a has no SHA-256") << checksum;
  }
}

class SignedAcceptance : public testing::Test {
 protected:
  SignedAcceptance() { authority_.issue("publisher"); }

  [[nodiscard]] std::string signature_of(const std::string &k) const {
    return signer(authority_.certificate_of("publisher"), authority_.key_of("publisher")).sign(k);
  }
  [[nodiscard]] judgement judge_signed(const std::string &k,
                                       const std::optional<std::string> &signature,
                                       const accepted_before &before = {}) const {
    const keyring trusted(authority_.certificate());
    return judge_offer({.who = {"AP", "001122334455"}, .trusted = &trusted}, k, digest, signature,
                       before);
  }

  zot::test::authority authority_;
};

TEST_F(SignedAcceptance, NamesTheSignerAndTheTime) {
  const std::time_t begin = std::time(nullptr);
  const std::string k = k_with_sequence(7);
  const judgement made = judge_signed(k, signature_of(k));
  EXPECT_EQ(made.wrong, "");
  EXPECT_NE(made.signer.find("publisher"), std::string::npos) << made.signer;
  EXPECT_GE(made.signed_at, begin);
  EXPECT_LE(made.signed_at, std::time(nullptr));
  EXPECT_EQ(made.content.sequence, 7U);
}

TEST_F(SignedAcceptance, RefusesAKThatIsNotSigned) {
  EXPECT_EQ(judge_signed(k_with_sequence(7), std::nullopt).wrong, "K is not signed");
}

TEST_F(SignedAcceptance, RefusesTheSignatureOfAnotherK) {
  const judgement made = judge_signed(k_with_sequence(8), signature_of(k_with_sequence(7)));
  EXPECT_NE(made.wrong, "");
  EXPECT_EQ(made.signer, "");
  EXPECT_TRUE(made.content.files.empty());
}

TEST_F(SignedAcceptance, RefusesASignatureOfOneWhoIsNotTrusted) {
  const std::string k = k_with_sequence(7);
  const zot::test::authority stranger;
  const keyring trusted(stranger.certificate());
  const judgement made = judge_offer({.who = {"AP", "001122334455"}, .trusted = &trusted}, k,
                                     digest, signature_of(k), {});
  EXPECT_NE(made.wrong, "");
  EXPECT_EQ(made.signer, "");
}

// What is not signed is not parsed: the reason is the signature, not the text.
TEST_F(SignedAcceptance, ChecksTheSignatureBeforeTheContent) {
  EXPECT_EQ(judge_signed("", std::nullopt).wrong, "K is not signed");
  const std::string invalid = "no K";
  EXPECT_EQ(judge_signed(invalid, signature_of(invalid)).wrong, "K is not a valid manifest");
  const std::string by_content = judge_signed(invalid, signature_of("another text")).wrong;
  EXPECT_NE(by_content, "");
  EXPECT_NE(by_content, "K is not a valid manifest");
}

TEST_F(SignedAcceptance, RefusesAKThatStatesNoSequence) {
  const std::string k = k_with_sequence(0);
  EXPECT_EQ(judge_signed(k, signature_of(k)).wrong, "K states no sequence");
}

TEST_F(SignedAcceptance, RefusesTheSignedKOfAnotherElement) {
  manifest content = content_with({});
  content.who.index = "AABBCCDDEEFF";
  const std::string k = render_manifest(content);
  EXPECT_EQ(judge_signed(k, signature_of(k)).wrong, "K is that of AP AABBCCDDEEFF");
}

TEST_F(SignedAcceptance, RefusesAnOlderKAlsoIfItIsSigned) {
  const std::string k = k_with_sequence(7);
  EXPECT_EQ(judge_signed(k, signature_of(k), {.sequence = 8, .digest = other_digest}).wrong,
            "K is older: it has the sequence 7, the last accepted one has 8");
}

// The clock of the element may be far behind; an accepted signature tells that it is later.
TEST_F(SignedAcceptance, JudgesCertificatesAtTheTimeOfTheLastSignatureAtLeast) {
  authority_.issue("short", "digitalSignature", "ec -pkeyopt ec_paramgen_curve:P-256", 1);
  const std::string k = k_with_sequence(7);
  const std::string signature =
      signer(authority_.certificate_of("short"), authority_.key_of("short")).sign(k);
  EXPECT_EQ(judge_signed(k, signature).wrong, "");
  const std::time_t in_two_days = std::time(nullptr) + 2 * 24 * 3600;
  EXPECT_NE(judge_signed(k, signature, {.digest = other_digest, .signed_at = in_two_days}).wrong,
            "");
}

}  // namespace
}  // namespace zotconf
