// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/synchroniser.hpp"

#include <sys/statvfs.h>

#include <algorithm>

#include "tests/tools/relay/relaying.hpp"
#include "tools/publication/publication_store.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::sync_round;

const std::string checksum_request = "/" + checksum_name;
const std::string k_request = "/" + k_name + " ";

class Synchroniser : public Relaying {};

TEST_F(Synchroniser, TheFirstRoundBringsThePublicationIntoService) {
  const sync_round first = round();
  EXPECT_EQ(first.result, round_result::updated);
  EXPECT_EQ(first.wrong, "");
  EXPECT_EQ(first.fetched_files, 2U);
  EXPECT_EQ(first.fetched_bytes, 16U);
  EXPECT_TRUE(first.has_progressed);
  EXPECT_EQ(served_k(), published(k_name));
  EXPECT_EQ(served("Wlan", "a"), "ssid=a");
  EXPECT_EQ(served("Zone", "z"), "country=DE");
  EXPECT_EQ(store_->read_checksum(who_), published(checksum_name));
}

TEST_F(Synchroniser, AnUpdateFetchesOnlyWhatIsNew) {
  ASSERT_EQ(round().result, round_result::updated);
  put("Wlan/a", "ssid=another");
  put("Wlan/b", "country=DE");
  publish_source();
  const sync_round update = round();
  EXPECT_EQ(update.result, round_result::updated);
  EXPECT_EQ(update.fetched_files, 1U);
  EXPECT_EQ(update.fetched_bytes, 12U);
  EXPECT_EQ(site_.count("/config/"), 1U);
  EXPECT_EQ(site_.count("/config/Wlan/a/"), 1U);
  EXPECT_EQ(served("Wlan", "a"), "ssid=another");
  EXPECT_EQ(served("Wlan", "b"), "country=DE");
}

TEST_F(Synchroniser, BringsInAPublicationWithoutFiles) {
  ASSERT_EQ(round().result, round_result::updated);
  remove_source("Wlan/a");
  remove_source("Zone/z");
  publish_source({"--allow-empty"});
  expect_round(round_result::updated);
  EXPECT_EQ(site_.count("/config/"), 0U);
  EXPECT_TRUE(store_->current()->content.files.empty());
}

TEST_F(Synchroniser, AnUnchangedPublicationCostsOneRequest) {
  ASSERT_EQ(round().result, round_result::updated);
  expect_round(round_result::unchanged);
  EXPECT_EQ(site_.requests(), std::vector<std::string>{checksum_request + " 200"});
  for (int times = 0; times < 3; ++times) {
    expect_round(round_result::unchanged);
    EXPECT_EQ(site_.requests(), std::vector<std::string>{checksum_request + " 304"});
  }
}

// nginx makes the tag from the second and the size of a file, and every checksum file has the same
// size.
TEST_F(Synchroniser, APublicationInTheSecondOfTheOneBeforeIsNotMissed) {
  site_.send_tag("\"1\"");
  ASSERT_EQ(round().result, round_result::updated);
  put("Wlan/a", "ssid=b");
  publish_source();
  expect_round(round_result::updated);
}

TEST_F(Synchroniser, APublicationWithTheSameTagIsFoundAfterAFewRounds) {
  site_.send_tag("\"1\"");
  ASSERT_EQ(round().result, round_result::updated);
  expect_round(round_result::unchanged);
  put("Wlan/a", "ssid=b");
  publish_source();
  for (int times = 0; times < 9; ++times) {
    expect_round(round_result::unchanged);
    EXPECT_EQ(site_.requests(), std::vector<std::string>{checksum_request + " 304"});
  }
  expect_round(round_result::updated);
}

TEST_F(Synchroniser, AServerWithoutEntityTagsCostsOneRequestToo) {
  site_.send_no_tags();
  ASSERT_EQ(round().result, round_result::updated);
  expect_round(round_result::unchanged);
  EXPECT_EQ(site_.requests(), std::vector<std::string>{checksum_request + " 200"});
}

TEST_F(Synchroniser, ARestartFetchesOnlyTheChecksum) {
  ASSERT_EQ(round().result, round_result::updated);
  start();
  EXPECT_EQ(served_k(), published(k_name));
  expect_round(round_result::unchanged);
  EXPECT_EQ(site_.requests(), std::vector<std::string>{checksum_request + " 200"});
  expect_round(round_result::unchanged);
  EXPECT_EQ(site_.requests(), std::vector<std::string>{checksum_request + " 304"});
}

// Such an answer has no content, and nothing says that it is about the publication in service.
TEST_F(Synchroniser, AnUnaskedNotModifiedIsAFailure) {
  site_.answer(".checksum", 304);
  expect_round(round_result::failed, checksum_name + ": status 304");
}

TEST_F(Synchroniser, FetchesKOnceWhileFilesAreMissing) {
  site_.answer("/config/Zone/z/" + std::to_string(version("Zone", "z")), 404);
  const sync_round first = round();
  EXPECT_EQ(first.result, round_result::failed);
  EXPECT_NE(first.wrong.find("config/Zone/z/"), std::string::npos) << first.wrong;
  EXPECT_NE(first.wrong.find("404"), std::string::npos) << first.wrong;
  EXPECT_EQ(store_->current(), nullptr);
  EXPECT_EQ(round().result, round_result::failed);
  EXPECT_EQ(site_.count(k_request), 0U);
  site_.deviate({});
  EXPECT_EQ(round().result, round_result::updated);
  EXPECT_EQ(site_.count(k_request), 0U);
  EXPECT_EQ(served_k(), published(k_name));
}

// One file has arrived, and the other one cannot be fetched.
class HalfFetched : public Synchroniser {
 protected:
  HalfFetched() {
    break_after("ssid=a", "Zone", "z");
    const sync_round first = round();
    EXPECT_EQ(first.result, round_result::failed);
    EXPECT_TRUE(first.has_progressed);
  }
};

TEST_F(HalfFetched, ProgressIsWhatArrivesInARound) {
  const sync_round next = round();
  EXPECT_EQ(next.result, round_result::failed);
  EXPECT_FALSE(next.has_progressed);
  EXPECT_EQ(site_.count("/config/Wlan/a/"), 0U);
}

TEST_F(HalfFetched, AnUpdateCountsTheFilesOfAllItsRounds) {
  site_.deviate({});
  const sync_round update = round();
  EXPECT_EQ(update.result, round_result::updated);
  EXPECT_EQ(update.fetched_files, 2U);
  EXPECT_EQ(update.fetched_bytes, 16U);
}

TEST_F(HalfFetched, ARestartKeepsWhatHasArrived) {
  start();
  site_.deviate({});
  const sync_round update = round();
  EXPECT_EQ(update.result, round_result::updated);
  EXPECT_EQ(update.fetched_files, 1U);
  EXPECT_EQ(site_.count("/config/"), 1U);
  EXPECT_EQ(served("Wlan", "a"), "ssid=a");
}

TEST_F(Synchroniser, WrongBytesAreAFailureAndAreFetchedAgain) {
  site_.answer("/config/Wlan/a/" + std::to_string(version("Wlan", "a")), 200, "ssid=b");
  expect_round(round_result::failed, "config/Wlan/a/" + std::to_string(version("Wlan", "a")) +
                                         ": does not have the SHA-256 that K states");
  EXPECT_EQ(store_->current(), nullptr);
  EXPECT_FALSE(exists(object("ssid=b")));
  EXPECT_EQ(site_.count_past_caches(), 0U);
  site_.deviate({});
  expect_round(round_result::updated);
  EXPECT_EQ(site_.count("/config/"), 1U);
  EXPECT_EQ(site_.count_past_caches(), 1U);
}

TEST_F(Synchroniser, AKThatDoesNotMatchItsChecksumIsFetchedAgain) {
  site_.answer(".k", 200, "{}");
  expect_round(round_result::failed, "K does not match its checksum file");
  site_.deviate({});
  expect_round(round_result::updated);
  EXPECT_EQ(site_.count(k_request), 1U);
}

TEST_F(Synchroniser, AFileThatIsNoChecksumIsAFailure) {
  const std::string digits(64, 'a');
  for (const std::string &body :
       {std::string("<html>"), std::string(), digits.substr(1), digits + "\n\n", digits + "\r\n",
        digits + "  name\n", std::string(64, 'A') + "\n"}) {
    site_.answer(".checksum", 200, body);
    expect_round(round_result::failed,
                 checksum_name + ": is not a SHA-256 of 64 lower-case digits");
    EXPECT_EQ(site_.requests().size(), 1U);
  }
}

TEST_F(Synchroniser, AChecksumFileThatIsTooLongIsAFailure) {
  site_.answer(".checksum", 200, std::string(2000, 'a'));
  const sync_round found = round();
  EXPECT_EQ(found.result, round_result::failed);
  EXPECT_NE(found.wrong.find(checksum_name), std::string::npos) << found.wrong;
}

TEST_F(Synchroniser, AChecksumFileNeedsNoNewline) {
  site_.answer(".checksum", 200, published(checksum_name).substr(0, 64));
  expect_round(round_result::updated);
}

TEST_F(Synchroniser, AFailurePassesOnWhatTheServerAsksFor) {
  const std::string file = "/config/Wlan/a/" + std::to_string(version("Wlan", "a"));
  for (const std::string &suffix : {std::string(".checksum"), std::string(".k"), file}) {
    site_.answer(suffix, 503, "busy", "77");
    const sync_round found = round();
    EXPECT_EQ(found.result, round_result::failed) << suffix;
    EXPECT_NE(found.wrong.find("503"), std::string::npos) << found.wrong;
    EXPECT_EQ(found.retry_after, 77s) << suffix;
  }
}

TEST_F(Synchroniser, AServerThatDoesNotListenIsAFailure) {
  ASSERT_EQ(round().result, round_result::updated);
  site_.stop();
  const sync_round found = round();
  EXPECT_EQ(found.result, round_result::failed);
  EXPECT_NE(found.wrong, "");
  EXPECT_EQ(served("Wlan", "a"), "ssid=a");
}

TEST_F(Synchroniser, AnOlderKIsRefusedAndTheLastOneStaysInService) {
  const std::string old_k = published(k_name);
  const std::string old_checksum = published(checksum_name);
  put("Wlan/a", "second");
  publish_source();
  ASSERT_EQ(round().result, round_result::updated);
  const std::string new_k = published(k_name);
  const std::string new_checksum = published(checksum_name);
  write_bytes(publication_ + "/" + k_name, old_k);
  write_bytes(publication_ + "/" + checksum_name, old_checksum);
  const sync_round found = round();
  EXPECT_EQ(found.result, round_result::refused);
  EXPECT_TRUE(found.wrong.starts_with("K is older: ")) << found.wrong;
  EXPECT_EQ(site_.count("/config/"), 0U);
  EXPECT_EQ(served_k(), new_k);
  ASSERT_EQ(round().result, round_result::refused);
  EXPECT_EQ(site_.count(k_request), 0U);
  write_bytes(publication_ + "/" + k_name, new_k);
  write_bytes(publication_ + "/" + checksum_name, new_checksum);
  expect_round(round_result::unchanged);
}

TEST_F(Synchroniser, ADamagedFileIsFetchedAgain) {
  ASSERT_EQ(round().result, round_result::updated);
  flip_bit(object("ssid=a"));
  EXPECT_THROW(static_cast<void>(served("Wlan", "a")), std::runtime_error);
  const sync_round repair = round();
  EXPECT_EQ(repair.result, round_result::repaired);
  EXPECT_EQ(repair.fetched_files, 1U);
  EXPECT_EQ(site_.count("/config/"), 1U);
  EXPECT_EQ(served("Wlan", "a"), "ssid=a");
  expect_round(round_result::unchanged);
  EXPECT_EQ(site_.requests(), std::vector<std::string>{checksum_request + " 200"});
}

// The store puts the publication before it into service, but its K must not count as an older one.
TEST_F(Synchroniser, APublicationThatLostAFileIsBroughtInAgainAfterARestart) {
  ASSERT_EQ(round().result, round_result::updated);
  put("Wlan/a", "second");
  publish_source();
  ASSERT_EQ(round().result, round_result::updated);
  std::filesystem::remove(object("second"));
  start();
  ASSERT_EQ(served("Wlan", "a"), "ssid=a");
  expect_round(round_result::updated);
  EXPECT_EQ(served("Wlan", "a"), "second");
}

// A publication that is larger than the file system.
class TooLarge : public Synchroniser {
 protected:
  TooLarge() {
    struct statvfs info {};
    EXPECT_EQ(::statvfs(dir_.path().c_str(), &info), 0);
    content_ = k();
    content_.files.clear();
    const uint64_t count = uint64_t{info.f_blocks} * info.f_frsize / largest + 1;
    for (uint64_t key = 0; key < count; ++key) {
      content_.files.push_back({.category = 0,
                                .category_name = "Wlan",
                                .key = std::to_string(key),
                                .version = 1,
                                .size = largest,
                                .checksum = sha256_hex(std::to_string(key))});
    }
    const std::string text = zotconf::render_manifest(content_);
    write_bytes(publication_ + "/" + k_name, text);
    write_bytes(publication_ + "/" + checksum_name, sha256_hex(text) + "\n");
  }

  static constexpr uint64_t largest = 2147483647;
  zotconf::manifest content_;
};

TEST_F(TooLarge, IsNotFetched) {
  const sync_round found = round();
  EXPECT_EQ(found.result, round_result::failed);
  EXPECT_TRUE(found.wrong.starts_with("no space left in the store: the update needs "))
      << found.wrong;
  EXPECT_EQ(site_.count("/config/"), 0U);
}

TEST_F(TooLarge, NeedsRoomOnlyForWhatHasNotArrived) {
  for (const auto &file : content_.files) {
    write_bytes(store_->partial(file), "");
    std::filesystem::resize_file(store_->partial(file), file.size - 1);
  }
  const sync_round found = round();
  EXPECT_EQ(found.result, round_result::failed);
  EXPECT_NE(found.wrong.find("404"), std::string::npos) << found.wrong;
}

// A publication of which one file has arrived, and which the next one replaces before the other
// file has.
class NeverInService : public Synchroniser {
 protected:
  NeverInService() {
    EXPECT_EQ(round().result, round_result::updated);
    put("Wlan/b", "arrives");
    put("Wlan/c", "never");
    publish_source();
    break_after("arrives", "Wlan", "c");
    EXPECT_EQ(round().result, round_result::failed);
    EXPECT_EQ(objects(), 3U);
    remove_source("Wlan/b");
    put("Wlan/d", "later");
    publish_source();
  }
};

TEST_F(NeverInService, LeavesNothingInTheStore) {
  remove_source("Wlan/c");
  publish_source();
  ASSERT_EQ(round().result, round_result::updated);
  EXPECT_TRUE(exists(object("later")));
  EXPECT_EQ(objects(), 3U);
  EXPECT_EQ(partials(), 0U);
  EXPECT_EQ(kept(), 2U);
}

TEST_F(NeverInService, MakesRoomBeforeTheNextOneIsFetched) {
  break_after("later", "Wlan", "c");
  ASSERT_EQ(round().result, round_result::failed);
  EXPECT_FALSE(exists(object("arrives")));
  EXPECT_TRUE(exists(object("ssid=a")));
  EXPECT_EQ(objects(), 3U);
}

TEST_F(Synchroniser, KeepsAsManyPublicationsAsItIsTold) {
  for (const std::string bytes : {"first", "second", "third", "fourth"}) {
    put("Wlan/a", bytes);
    publish_source();
    ASSERT_EQ(round().result, round_result::updated);
  }
  EXPECT_EQ(kept(), 2U);
  EXPECT_EQ(objects(), 3U);
}

TEST_F(Synchroniser, AStopEndsARoundAtOnce) {
  for (const std::string part : {".checksum", ".k", "/config/Wlan/a/"}) {
    static_site slow(publication_);
    slow.hang(part);
    zotconf::upstream server({.url = slow.url()}, [&] { return slow.is_hanging(); });
    zotconf::synchroniser syncing({.who = who_}, 2, server, *store_);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(syncing.run().result, round_result::failed) << part;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s) << part;
  }
}

TEST_F(Synchroniser, BringsInAnUnsignedPublicationWithTheSignatureThatIsThere) {
  write_bytes(publication_ + "/" + k_name + ".p7s", "bytes of a signature");
  expect_round(round_result::updated);
  EXPECT_EQ(served_signature(), "bytes of a signature");
  EXPECT_EQ(syncing_->signer(), "");
}

class SignedSynchroniser : public Relaying {
 protected:
  SignedSynchroniser() {
    authority_.issue("publisher");
    trusted_.emplace(authority_.certificate());
    start(&*trusted_);
  }
  void sign() const {
    std::vector<std::string> args = {"sign", publication_};
    const auto by = authority_.signs_as("publisher");
    args.insert(args.end(), by.begin(), by.end());
    const finished done = run_zotconf(args);
    ASSERT_EQ(done.status, 0) << done.err;
  }

  authority authority_;
  std::optional<zotconf::keyring> trusted_;
};

TEST_F(SignedSynchroniser, NamesTheSignerAlsoAfterARestart) {
  sign();
  expect_round(round_result::updated);
  const std::string signer = syncing_->signer();
  const std::time_t signed_at = syncing_->signed_at();
  EXPECT_NE(signer.find("publisher"), std::string::npos) << signer;
  EXPECT_GT(signed_at, 0);
  EXPECT_EQ(served_signature(), published(k_name + ".p7s"));
  start(&*trusted_);
  EXPECT_EQ(syncing_->signer(), signer);
  EXPECT_EQ(syncing_->signed_at(), signed_at);
  expect_round(round_result::unchanged);
}

TEST_F(SignedSynchroniser, AcceptsASignatureThatComesLaterThanK) {
  expect_round(round_result::refused, "K is not signed");
  EXPECT_EQ(site_.count("/config/"), 0U);
  expect_round(round_result::refused, "K is not signed");
  EXPECT_EQ(site_.count(k_request), 0U);
  sign();
  expect_round(round_result::updated);
  EXPECT_EQ(site_.count(k_request), 0U);
}

TEST_F(SignedSynchroniser, AForbiddenSignatureIsAMissingOne) {
  sign();
  site_.answer(".p7s", 403);
  expect_round(round_result::refused, "K is not signed");
}

TEST_F(SignedSynchroniser, ASignatureThatCannotBeFetchedIsAFailure) {
  sign();
  site_.answer(".p7s", 503, "", "9");
  const sync_round found = round();
  EXPECT_EQ(found.result, round_result::failed);
  EXPECT_EQ(found.wrong, k_name + ".p7s: status 503");
  EXPECT_EQ(found.retry_after, 9s);
}

TEST_F(SignedSynchroniser, RefusesTheSignatureOfAnotherK) {
  sign();
  const std::string old_signature = published(k_name + ".p7s");
  put("Wlan/a", "second");
  publish_source();
  write_bytes(publication_ + "/" + k_name + ".p7s", old_signature);
  EXPECT_EQ(round().result, round_result::refused);
  EXPECT_EQ(store_->current(), nullptr);
}

// A relay that accepted any K is now told whom to trust.
TEST_F(SignedSynchroniser, VerifiesAPublicationThatWasAcceptedUnsigned) {
  start(nullptr);
  expect_round(round_result::updated);
  start(&*trusted_);
  expect_round(round_result::refused, "K is not signed");
  sign();
  expect_round(round_result::updated);
  EXPECT_NE(syncing_->signer(), "");
  expect_round(round_result::unchanged);
}

}  // namespace
}  // namespace zot::test
