// SPDX-License-Identifier: Apache-2.0
// Commit, rollback and start in the model, and its observable state.
#include "model.hpp"

#include <algorithm>
#include <utility>

namespace zot::faults {
namespace {

constexpr std::array<const char *, ZOT_SLOT_COUNT> slot_names = {"current", "last", "temporary",
                                                                 "corrupted"};
constexpr std::uint32_t done = ZOT_CYCLE_DONE_COMMIT | ZOT_CYCLE_DONE_ROLL_BACK;

outcome of(int status) {
  outcome seen;
  seen.status = status;
  return seen;
}

const char *name_of(area where) {
  return where == area::cache ? "cache" : "scratch";
}

std::string text_of(const std::vector<gpb> &list) {
  std::string text;
  for (const gpb &file : list) {
    text += file.path + " ";
  }
  return text;
}

// The first slot that holds the same, or the slot itself.
template <class Same>
std::string first_holder(std::size_t slot_index, Same same) {
  std::size_t first = 0;
  while (first < slot_index && !same(first)) {
    ++first;
  }
  return slot_names.at(first);
}

// Only files can be seen: what was not there is told by an empty directory.
void add_undo(const undo_folder &kept, view &seen) {
  for (const auto &[name, bytes] : kept.k_files) {
    if (bytes.has_value()) {
      seen["cache undo/" + name.substr(name.rfind('/') + 1)] = *bytes;
    }
  }
  for (const auto &[name, bytes] : kept.config) {
    seen["cache undo/" + name] = bytes;
  }
}

}  // namespace

std::vector<change> model::damage(const step &one) {
  directory &hit = one.kind == step_kind::damage_cache ? cache_ : scratch_;
  const std::vector<change> changes = damage_of(one, hit);
  for (const change &what : changes) {
    apply(what, hit);
    checksum_written_ += what.where == area::scratch && what.name == "subsys.checksum" ? 1 : 0;
  }
  return changes;
}

void model::restart() {
  make_directories();
  undo_interrupted_commit();
  slots_ = {};
  has_marked_ = false;
  marked_.clear();
  marked_root_ = area::cache;
  marks_wait_ = false;
  load_flags_ = 0;
  cache_doubts_ = 0;
  state_ = 0;
  has_begun_ = false;
}

bool model::is_open(int &status) const {
  if ((state_ & done) != 0) {
    status = ZOT_OK;
  } else if ((state_ & ZOT_CYCLE_SAME_K) != 0) {
    status = ZOT_NO_UPDATE;
  } else if ((state_ & ZOT_CYCLE_NEW_CONF) == 0) {
    status = ZOT_ERR_NOT_READY;
  } else {
    return true;
  }
  return false;
}

bool model::waits_for_verdict() const {
  return (state_ & (done | ZOT_CYCLE_NEW_CONF)) == ZOT_CYCLE_NEW_CONF;
}

void model::undo_interrupted_commit() {
  if (lie_ != lie::cut_off_commit_stays) {
    static_cast<void>(cache_.restore_from_undo());
  }
}

bool model::is_untouched() const {
  return scratch_.has("subsys.checksum") && checksum_written_ == checksum_fetched_;
}

bool model::is_k_as_fetched() const {
  const auto k = scratch_.held.find("subsys.k");
  const auto checksum = scratch_.held.find("subsys.checksum");
  const std::string &bytes = slots_[ZOT_SLOT_TMP].k->bytes;
  return (k == scratch_.held.end() || k->second == bytes) &&
         (is_untouched() || checksum == scratch_.held.end() ||
          checksum->second.starts_with(test::sha256_hex(bytes)));
}

// An adapter may have its files elsewhere; and the copy finds that their folder is gone.
bool model::has_all_fetched() const {
  return !has_own_operations_ || !scratch_.has_config ||
         std::ranges::all_of(*slots_[ZOT_SLOT_TMP].gpbs, [this](const gpb &file) {
           const auto found = scratch_.held.find("config" + file.path);
           return found != scratch_.held.end() && found->second.size() == file.bytes.size();
         });
}

bool model::is_set_as_fetched() const {
  if (!has_all_fetched()) {
    return false;
  }
  if (!scratch_.has("subsys.checksum")) {
    return true;
  }
  const bool may_be_gone = is_untouched();
  return is_k_as_fetched() && std::ranges::all_of(*slots_[ZOT_SLOT_TMP].gpbs, [&](const gpb &file) {
           const auto found = scratch_.held.find("config" + file.path);
           return found != scratch_.held.end() ? found->second == file.bytes : may_be_gone;
         });
}

bool model::is_stored(const known_k &wanted, const std::string &name) const {
  const auto k = cache_.held.find("knowledge/" + name + ".k");
  const auto checksum = cache_.held.find("knowledge/" + name + ".checksum");
  return k != cache_.held.end() && k->second == wanted.bytes && checksum != cache_.held.end() &&
         checksum->second.substr(0, checksum->second.find('\n')) == test::sha256_hex(wanted.bytes);
}

model::verdicts model::verdicts_now() const {
  const auto number_of = [this](const std::string &name) {
    const auto found = cache_.held.find("knowledge/" + name + ".checksum");
    // One that is empty counts as none.
    return found == cache_.held.end()
               ? 0ULL
               : std::strtoull(found->second.substr(0, 16).c_str(), nullptr, 16);
  };
  return {number_of("subsys"), number_of("corrupted")};
}

bool model::is_overtaken() const {
  const known_k &fetched = *slots_[ZOT_SLOT_TMP].k;
  const bool is_decided = verdicts_now() != verdicts_fetched_;
  const k_ref &refused = slots_[ZOT_SLOT_CORRUPTED].k;
  const bool may_be_refused = is_decided || !refused || refused->bytes != fetched.bytes;
  return (may_be_refused && is_stored(fetched, "corrupted")) ||
         (is_decided && !is_stored(fetched, "subsys"));
}

bool model::is_in_force() const {
  const slot &fetched = slots_[ZOT_SLOT_TMP];
  return is_stored(*fetched.k, "subsys") &&
         (!has_own_operations_ || std::ranges::all_of(*fetched.gpbs, [this](const gpb &file) {
           const auto found = cache_.held.find("config" + file.path);
           return found != cache_.held.end() && found->second == file.bytes;
         }));
}

int model::commit_k() {
  cache_.held.erase("knowledge/prev_subsys.k");
  cache_.rename("knowledge/subsys.k", "knowledge/prev_subsys.k");
  if (!cache_.copy(scratch_, "subsys.k", "knowledge/subsys.k")) {
    return ZOT_ERR_GENERIC;
  }
  cache_.held.erase("knowledge/prev_subsys.checksum");
  cache_.rename("knowledge/subsys.checksum", "knowledge/prev_subsys.checksum");
  if (lie_ != lie::commit_keeps_corrupted) {
    cache_.held.erase("knowledge/corrupted.k");
  }
  if (!cache_.copy(scratch_, "subsys.checksum", "knowledge/subsys.checksum")) {
    return ZOT_ERR_GENERIC;
  }
  if (lie_ != lie::commit_keeps_corrupted) {
    cache_.held.erase("knowledge/corrupted.checksum");
    slots_[ZOT_SLOT_CORRUPTED].k.reset();
  }
  const read_k read = read_and_verify(cache_, "knowledge/subsys");
  if (read.status != ZOT_OK) {
    return read.status;
  }
  *slots_[ZOT_SLOT_TMP].k = {read.bytes, read.digest, area::cache, read.found};
  return ZOT_OK;
}

// The K files are put back at once when they don't all come.
int model::store_k() {
  slots_[ZOT_SLOT_TMP].k->root = area::scratch;
  if (!cache_.begin_undo(has_own_operations_)) {
    return ZOT_ERR_GENERIC;
  }
  const int status = commit_k();
  if (status != ZOT_OK) {
    static_cast<void>(cache_.restore_from_undo());
  }
  return status;
}

int model::commit_files() {
  cache_.remove_below("config/");
  cache_.has_config = false;
  if (!scratch_.has_config || !cache_.exists) {
    return ZOT_ERR_GENERIC;
  }
  cache_.has_config = true;
  cache_.held.merge(scratch_.below("config/"));
  const bool are_stored = std::ranges::all_of(*slots_[ZOT_SLOT_TMP].gpbs, [this](const gpb &file) {
    const auto found = cache_.held.find("config" + file.path);
    return found != cache_.held.end() && found->second.size() == file.bytes.size();
  });
  return !has_own_operations_ || are_stored ? ZOT_OK : ZOT_ERR_CORRUPTED;
}

int model::store() {
  if (const int status = store_k(); status != ZOT_OK) {
    return status;
  }
  if (const int status = commit_files(); status != ZOT_OK) {
    return status;
  }
  cache_.undo.reset();
  has_begun_ = false;
  return ZOT_OK;
}

void model::adopt() {
  slots_[ZOT_SLOT_LAST] = std::exchange(slots_[ZOT_SLOT_CURRENT], slots_[ZOT_SLOT_TMP]);
  has_begun_ = true;
  load_flags_ |= ZOT_LOADED_PREV_K;
}

// Begins a commit, or goes on with one that failed.
int model::run_commit(outcome &seen) {
  const k_ref &current = slots_[ZOT_SLOT_CURRENT].k;
  if (!has_begun_ && current && current->bytes == slots_[ZOT_SLOT_TMP].k->bytes) {
    return ZOT_NO_UPDATE;
  }
  const bool is_begun = has_begun_;
  seen.note = is_begun ? "again" : seen.note;
  if (!cache_.restore_from_undo()) {
    return ZOT_ERR_GENERIC;
  }
  if (has_own_operations_ && verdicts_now() != verdicts_fetched_ && is_in_force() &&
      reload_conf()) {
    seen.note = "as another has done";
    end_commit();
    return ZOT_OK;
  }
  if (is_overtaken() || !is_set_as_fetched()) {
    return ZOT_ERR_CORRUPTED;
  }
  if (!is_begun) {
    adopt();
  }
  if (const int status = store(); status != ZOT_OK) {
    return status;
  }
  if (!marks_wait_) {
    has_marked_ = false;
    marked_.clear();
  }
  end_commit();
  return ZOT_OK;
}

void model::end_commit() {
  marks_wait_ = false;
  has_begun_ = false;
  cache_doubts_ &= ~(conf_outdated | cache_unloadable);
  state_ |= ZOT_CYCLE_DONE_COMMIT;
}

outcome model::commit() {
  outcome seen;
  if (is_open(seen.status)) {
    seen.status = run_commit(seen);
  }
  return seen;
}

// False when the files cannot be put back yet.
bool model::undo_failed_commit() {
  if (has_begun_) {
    slots_[ZOT_SLOT_CURRENT] = std::exchange(slots_[ZOT_SLOT_LAST], {});
    load_flags_ &= ~static_cast<std::uint32_t>(ZOT_LOADED_PREV_K | ZOT_LOADED_FAIL_K);
  }
  has_begun_ = false;
  return cache_.restore_from_undo();
}

std::string model::settle_failed_commit() {
  if (!has_begun_ || !waits_for_verdict()) {
    return {};
  }
  outcome unseen;
  if (run_commit(unseen) == ZOT_OK) {
    return "after a commit that it finished";
  }
  static_cast<void>(undo_failed_commit());
  cache_doubts_ |= slots_[ZOT_SLOT_CURRENT].k ? 0 : conf_outdated;
  state_ = 0;
  return "after a commit that it undid";
}

int model::keep_as_corrupted() {
  const bool copied = cache_.copy(scratch_, "subsys.k", "knowledge/corrupted.k") &&
                      cache_.copy(scratch_, "subsys.checksum", "knowledge/corrupted.checksum");
  if (!copied) {
    return ZOT_ERR_GENERIC;
  }
  k_ref &corrupted = slots_[ZOT_SLOT_CORRUPTED].k;
  corrupted.reset();
  const read_k read = read_and_verify(cache_, "knowledge/corrupted");
  if (read.status != ZOT_OK) {
    return read.status;
  }
  corrupted = std::make_shared<known_k>(known_k{read.bytes, read.digest, area::cache, read.found});
  state_ |= ZOT_CYCLE_DONE_ROLL_BACK;
  return ZOT_OK;
}

int model::refuse() {
  if (!is_k_as_fetched()) {
    return ZOT_ERR_CORRUPTED;
  }
  if (!undo_failed_commit()) {
    return ZOT_ERR_GENERIC;
  }
  if (is_in_force()) {
    cache_doubts_ |= conf_outdated;
    return ZOT_ERR_CORRUPTED;
  }
  slot &last = slots_[ZOT_SLOT_LAST];
  if (!last.k && (load_flags_ & ZOT_LOADED_PREV_K) == 0) {
    load_last();
  }
  if (last.k && lie_ != lie::roll_back_keeps_last) {
    last.k.reset();
    cache_.held.erase("knowledge/prev_subsys.k");
    cache_.held.erase("knowledge/prev_subsys.checksum");
  }
  renew_marks();
  const k_ref &corrupted = slots_[ZOT_SLOT_CORRUPTED].k;
  if (!corrupted && (load_flags_ & ZOT_LOADED_FAIL_K) == 0) {
    load_corrupted();
  }
  if (corrupted && corrupted->bytes == slots_[ZOT_SLOT_TMP].k->bytes) {
    return ZOT_NO_UPDATE;
  }
  return keep_as_corrupted();
}

outcome model::roll_back() {
  int status = ZOT_OK;
  return of(is_open(status) ? refuse() : status);
}

view model::look() const {
  view seen;
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    const slot &one = slots_.at(i);
    const std::string name = slot_names.at(i);
    if (one.k) {
      seen["K of " + name] = one.k->bytes;
      seen["digest of " + name] = one.k->digest;
      seen["root of " + name] = name_of(one.k->root);
      seen["record of " + name] =
          first_holder(i, [&](std::size_t other) { return slots_.at(other).k == one.k; });
    }
    if (one.gpbs) {
      seen["files of " + name] = text_of(*one.gpbs);
      seen["list of " + name] =
          first_holder(i, [&](std::size_t other) { return slots_.at(other).gpbs == one.gpbs; });
    }
  }
  seen["marked list"] = has_marked_ ? "" : "none";
  for (const marked &one : marked_) {
    seen["marked list"] += one.file.path + "=" + std::to_string(one.stat) + " ";
  }
  seen["marked root"] = name_of(marked_root_);
  seen["state"] = std::to_string(state_);
  seen["load flags"] = std::to_string(load_flags_);
  seen["cache doubts"] = std::to_string(cache_doubts_);
  for (const auto &[name, bytes] : cache_.held) {
    seen["cache " + name] = bytes;
  }
  if (cache_.undo.has_value()) {
    add_undo(*cache_.undo, seen);
  }
  for (const auto &[name, bytes] : scratch_.held) {
    seen["scratch " + name] = bytes;
  }
  return seen;
}

}  // namespace zot::faults
