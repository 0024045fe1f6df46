// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/synchroniser.hpp"

#include <algorithm>
#include <ctime>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/files/digest.hpp"
#include "tools/output/console.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/relay/trusted_time.hpp"

namespace zotconf {
namespace {

// A server may make the tag from the time and the size of a file, and a copy of a folder may have
// the same times for all files. So the checksum itself is requested now and then.
constexpr unsigned most_conditional_rounds = 9;
constexpr uint64_t longest_checksum_file = 1024;
constexpr uint64_t longest_signature = uint64_t{64} << 10;

std::string path_of_latest(const element &who, const std::string &suffix) {
  std::string path;
  for (const std::string &part : latest_parts(who, suffix)) {
    path += (path.empty() ? "" : "/") + part;
  }
  return path;
}

std::string path_of(const published_file &file) {
  return "config/" + file.category_name + "/" + file.key + "/" + std::to_string(file.version);
}

sync_round failed(const std::string &wrong, std::optional<std::chrono::seconds> retry_after = {}) {
  return {.result = round_result::failed, .wrong = wrong, .retry_after = retry_after};
}

sync_round refused(const std::string &wrong, const std::string &digest) {
  return {.result = round_result::refused, .wrong = wrong, .refused_digest = digest};
}

// Why a reply is not a file; empty if it is one.
std::string why_not_file(const upstream_reply &reply, const std::string &path) {
  if (!reply.wrong.empty()) {
    return path + ": " + reply.wrong;
  }
  return reply.status == 200 ? "" : path + ": status " + std::to_string(reply.status);
}

// The digest in a checksum file; nullopt for any other text.
std::optional<std::string> digest_in(std::string_view text) {
  if (!text.empty() && text.back() == '\n') {
    text.remove_suffix(1);
  }
  return is_digest(text) ? std::optional<std::string>(text) : std::nullopt;
}

// What a client of the store reads as K; nullopt if it is damaged.
std::optional<std::string> k_in_service(const relay_store &store, const element &who) {
  try {
    const zot::descriptor file = store.open_member(latest_parts(who, ".k"));
    return read_file_at(file.get(), "K");
  } catch (const std::exception &) {
    return std::nullopt;
  }
}

}  // namespace

synchroniser::synchroniser(acceptance rules, size_t keep, upstream &server, relay_store &store)
    : rules_(std::move(rules)), keep_(keep), server_(server), store_(store) {
  verify_current();
}

// An earlier process may have accepted the publication by other rules. The certificate is judged at
// the time of the signature, because it may have expired since.
void synchroniser::verify_current() {
  const auto current = store_.current();
  if (current == nullptr || rules_.trusted == nullptr) {
    return;
  }
  is_verified_ = false;
  const auto k = current->signature ? k_in_service(store_, rules_.who) : std::nullopt;
  if (!k) {
    return;
  }
  const std::time_t stated = stated_in(*current->signature).signed_at;
  const keyring::verdict said = rules_.trusted->check(
      *k, *current->signature, stated == 0 ? trusted_time(std::time(nullptr), 0) : stated);
  is_verified_ = said.wrong.empty();
  signer_ = said.signer;
  signed_at_ = said.signed_at;
}

bool synchroniser::is_in_service(const std::string &digest) const {
  const auto current = store_.current();
  return current != nullptr && current->digest == digest && is_verified_ && !store_.is_damaged();
}

sync_round synchroniser::run() {
  const std::string path = path_of_latest(rules_.who, ".checksum");
  const bool may_stay = !etag_.empty() && is_in_service(announced_) &&
                        ++conditional_rounds_ <= most_conditional_rounds;
  const upstream_reply reply =
      server_.get(path, longest_checksum_file, may_stay ? etag_ : std::string());
  if (may_stay && reply.wrong.empty() && reply.status == 304) {
    return {};
  }
  if (const std::string wrong = why_not_file(reply, path); !wrong.empty()) {
    return failed(wrong, reply.retry_after);
  }
  const auto digest = digest_in(reply.body);
  if (!digest) {
    return failed(path + ": is not a SHA-256 of 64 lower-case digits");
  }
  sync_round round;
  if (!is_in_service(*digest)) {
    round = bring_in(*digest);
  }
  if (round.wrong.empty()) {
    // Some servers make the tag from the second and the size of a file, so a publication in the
    // second of this one would have the same tag. A checksum that is still the same in the next
    // round is not of this second.
    etag_ = round.result == round_result::unchanged ? reply.etag : "";
    announced_ = *digest;
    conditional_rounds_ = 0;
    pending_.reset();
  }
  return round;
}

std::optional<sync_round> synchroniser::fetch_k(const std::string &digest) {
  if (pending_ && pending_->digest == digest) {
    return std::nullopt;
  }
  pending_.reset();
  const std::string path = path_of_latest(rules_.who, ".k");
  upstream_reply reply = server_.get(path, longest_k);
  if (const std::string wrong = why_not_file(reply, path); !wrong.empty()) {
    return failed(wrong, reply.retry_after);
  }
  if (reply.body.empty() || sha256_text(reply.body) != digest) {
    return failed("K does not match its checksum file");
  }
  pending_ = pending_k{.digest = digest, .k = std::move(reply.body)};
  return std::nullopt;
}

// A missing signature is a reason to refuse K, not a failure of the server. One that is not
// required is fetched too, for those who read it from here.
std::optional<sync_round> synchroniser::fetch_signature(std::optional<std::string> &signature) {
  const std::string path = path_of_latest(rules_.who, ".k.p7s");
  upstream_reply reply = server_.get(path, longest_signature);
  if (reply.wrong.empty() && reply.status == 200) {
    signature = std::move(reply.body);
    return std::nullopt;
  }
  const bool is_missing = reply.wrong.empty() && (reply.status == 404 || reply.status == 403);
  if (is_missing || rules_.trusted == nullptr) {
    return std::nullopt;
  }
  return failed(why_not_file(reply, path), reply.retry_after);
}

// The bytes that have not arrived yet.
uint64_t synchroniser::left_to_fetch(const std::vector<published_file> &files) const {
  uint64_t bytes = 0;
  for (const published_file &file : files) {
    std::error_code error;
    const uintmax_t arrived = fs::file_size(store_.partial(file), error);
    bytes += file.size - (error ? 0 : std::min<uint64_t>(arrived, file.size));
  }
  return bytes;
}

std::string synchroniser::why_no_room(const std::vector<published_file> &files,
                                      const manifest &content) {
  // A file takes whole blocks, and the publication itself takes a few more.
  constexpr uint64_t block = 4096;
  const uint64_t needed = left_to_fetch(files) + (files.size() + 16) * block + pending_->k.size();
  if (needed > store_.room()) {
    store_.clean(1, content);
  }
  const uint64_t room = store_.room();
  return needed <= room ? ""
                        : "no space left in the store: the update needs " + human_bytes(needed);
}

std::optional<sync_round> synchroniser::fetch_files(const manifest &content, sync_round &round) {
  // What earlier publications have left that never came into service.
  store_.clean(keep_, content);
  const std::vector<published_file> files = store_.missing(content);
  if (const std::string wrong = why_no_room(files, content); !wrong.empty()) {
    return failed(wrong);
  }
  std::vector<wanted_file> wanted;
  wanted.reserve(files.size());
  for (const published_file &file : files) {
    wanted.push_back({.path = path_of(file),
                      .to = store_.partial(file),
                      .size = file.size,
                      .bypasses_caches = pending_->damaged.contains(file.checksum)});
  }
  std::string wrong;
  const fetch_end end = server_.fetch(wanted, [&](size_t at) {
    if (!store_.take(files[at])) {
      pending_->damaged.insert(files[at].checksum);
      wrong = wanted[at].path + ": does not have the SHA-256 that K states";
      return;
    }
    round.has_progressed = true;
    ++pending_->fetched_files;
    pending_->fetched_bytes += files[at].size;
  });
  if (!end.wrong.empty()) {
    wrong = end.wrong;
  }
  if (wrong.empty()) {
    return std::nullopt;
  }
  sync_round ended = failed(wrong, end.retry_after);
  ended.has_progressed = round.has_progressed;
  return ended;
}

sync_round synchroniser::put_into_service(const std::optional<std::string> &signature,
                                          manifest content, sync_round round) {
  store_.put_into_service(pending_->k, signature, std::move(content));
  store_.clean(keep_, {});
  round.fetched_files = pending_->fetched_files;
  round.fetched_bytes = pending_->fetched_bytes;
  return round;
}

sync_round synchroniser::bring_in(const std::string &digest) {
  if (auto end = fetch_k(digest)) {
    return *end;
  }
  const auto current = store_.current();
  const bool is_current = current != nullptr && current->digest == digest && is_verified_;
  return is_current ? repair(*current) : update(digest);
}

sync_round synchroniser::update(const std::string &digest) {
  std::optional<std::string> signature;
  if (auto end = fetch_signature(signature)) {
    return *end;
  }
  const accepted_before before{
      .sequence = store_.last_sequence(), .digest = store_.last_digest(), .signed_at = signed_at_};
  judgement made = judge_offer(rules_, pending_->k, digest, signature, before);
  if (!made.wrong.empty()) {
    return refused(made.wrong, digest);
  }
  sync_round round{.result = round_result::updated};
  if (auto end = fetch_files(made.content, round)) {
    return *end;
  }
  round = put_into_service(signature, std::move(made.content), std::move(round));
  is_verified_ = true;
  signer_ = std::move(made.signer);
  signed_at_ = made.signed_at;
  return round;
}

// The publication was accepted when it came into service, so it is not judged again: the
// certificate may have expired since.
sync_round synchroniser::repair(const kept_publication &current) {
  sync_round round{.result = round_result::repaired};
  if (auto end = fetch_files(current.content, round)) {
    return *end;
  }
  return put_into_service(current.signature, current.content, std::move(round));
}

}  // namespace zotconf
