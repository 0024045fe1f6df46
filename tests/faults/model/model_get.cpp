// SPDX-License-Identifier: Apache-2.0
// A get in the model.
#include <algorithm>
#include <utility>

#include "model.hpp"
#include "tests/support/files.hpp"

namespace zot::faults {
namespace {

bool same_bytes(const k_ref &a, const k_ref &b) {
  return a && b && a->bytes == b->bytes;
}

list_ref list_of(const configuration &found) {
  return std::make_shared<const std::vector<gpb>>(found.content->gpbs);
}

k_ref record_of(const read_k &read) {
  return std::make_shared<known_k>(known_k{read.bytes, read.digest, area::cache, read.found});
}

}  // namespace

void model::make_directories() {
  cache_.exists = scratch_.exists = true;
  cache_.has_knowledge = true;
  scratch_.has_config = true;
}

void model::load_current() {
  load_flags_ |= ZOT_LOADED_CONF | ZOT_LOADED_CONF_GPB;
  const read_k read = read_and_verify(cache_, "knowledge/subsys");
  if (read.status != ZOT_OK || read.found->content->contradicts_itself) {
    return;
  }
  for (const gpb &file : read.found->content->gpbs) {
    if (verify(cache_, file) != ZOT_OK) {
      return;
    }
  }
  slots_[ZOT_SLOT_CURRENT] = {record_of(read), list_of(*read.found)};
}

void model::load_last() {
  load_flags_ |= ZOT_LOADED_PREV_K;
  const read_k read = read_and_verify(cache_, "knowledge/prev_subsys");
  if (read.status == ZOT_OK && !read.found->content->contradicts_itself) {
    slots_[ZOT_SLOT_LAST] = {record_of(read), list_of(*read.found)};
  }
}

void model::load_corrupted() {
  load_flags_ |= ZOT_LOADED_FAIL_K;
  const read_k read = read_and_verify(cache_, "knowledge/corrupted");
  if (read.status == ZOT_OK) {
    slots_[ZOT_SLOT_CORRUPTED].k = record_of(read);
  }
}

// Memory goes on with what it has when the cache cannot be loaded.
bool model::reload_conf() {
  const slot before = std::exchange(slots_[ZOT_SLOT_CURRENT], {});
  load_current();
  const slot found = std::exchange(slots_[ZOT_SLOT_CURRENT], before);
  if (!found.k) {
    return false;
  }
  give_up();
  slots_[ZOT_SLOT_CURRENT] = found;
  return true;
}

void model::give_up() {
  slots_[ZOT_SLOT_CURRENT] = {};
  slots_[ZOT_SLOT_LAST] = {};
  has_marked_ = false;
  marked_.clear();
  marked_root_ = area::cache;
  marks_wait_ = false;
  load_flags_ &= ~static_cast<std::uint32_t>(ZOT_LOADED_PREV_K | ZOT_LOADED_RET_LIST);
}

// Another configuration than the one in memory lies in the cache.
bool model::reload_changed_cache() {
  const k_ref &current = slots_[ZOT_SLOT_CURRENT].k;
  const auto sum = cache_.held.find("knowledge/subsys.checksum");
  if (!current || current->digest.empty() || sum == cache_.held.end()) {
    return false;
  }
  const std::string line = sum->second.substr(0, sum->second.find('\n'));
  return line.size() == ZOT_CHECKSUM_LEN && line != current->digest && reload_conf();
}

// What was damaged everywhere is loaded from the cache once more, or counts as none.
void model::renew_outdated() {
  if ((cache_doubts_ & conf_outdated) == 0) {
    return;
  }
  cache_doubts_ &= ~(conf_outdated | cache_unloadable);
  if (!reload_conf()) {
    give_up();
    cache_doubts_ |= conf_outdated | cache_unloadable;
  }
}

// What is refused is what the cache says, also when that has changed.
void model::forget_changed_refusal() {
  const k_ref &refused = slots_[ZOT_SLOT_CORRUPTED].k;
  const auto sum = cache_.held.find("knowledge/corrupted.checksum");
  const bool is_there = sum != cache_.held.end();
  const std::string line = is_there ? sum->second.substr(0, sum->second.find('\n')) : "";
  const bool is_other = line.size() == ZOT_CHECKSUM_LEN && (!refused || line != refused->digest);
  if ((is_other || (!is_there && refused)) && !cache_.undo.has_value()) {
    slots_[ZOT_SLOT_CORRUPTED] = {};
    load_flags_ &= ~static_cast<std::uint32_t>(ZOT_LOADED_FAIL_K);
  }
}

int model::hand_out(std::uint32_t mask, const zot_catset &categories, outcome &seen) {
  const int status = filter(mask, categories, seen);
  if (status != ZOT_ERR_CORRUPTED || waits_for_verdict()) {
    return status;
  }
  if (!reload_conf()) {
    cache_doubts_ |= conf_outdated;
    return status;
  }
  settle_marks();
  return filter(mask, categories, seen);
}

int model::fetch(const answer &from, const std::string &name, std::string &body) {
  scratch_.held[name + ".tmp"] = "";
  if (!service_up_ || from.how == answer::kind::breaks_off) {
    return ZOT_ERR_REMOTE_UNAVAIL;
  }
  if (from.how == answer::kind::not_found) {
    return ZOT_ERR_NOT_FOUND;
  }
  if (from.how == answer::kind::refused) {
    return ZOT_ERR_GENERIC;
  }
  scratch_.held.erase(name + ".tmp");
  scratch_.held[name] = from.bytes;
  checksum_written_ += name == "subsys.checksum" ? 1 : 0;
  body = from.bytes;
  return body.empty() ? ZOT_ERR_GENERIC : ZOT_OK;
}

k_ref model::duplicate(const known_k &of) {
  auto copy = std::make_shared<known_k>(of);
  copy->root = area::scratch;
  scratch_.held["subsys.k"] = of.bytes;
  return copy;
}

int model::fetch_k(k_ref &fetched, outcome &seen) {
  std::string announced;
  seen.requests += service_up_ ? "sum " : "";
  if (const int status = fetch(offered_.checksum, "subsys.checksum", announced); status != ZOT_OK) {
    return status;
  }
  if (announced.size() < ZOT_CHECKSUM_LEN) {
    return ZOT_ERR_CORRUPTED;
  }
  announced.resize(ZOT_CHECKSUM_LEN);
  const k_ref &corrupted = slots_[ZOT_SLOT_CORRUPTED].k;
  const k_ref &current = slots_[ZOT_SLOT_CURRENT].k;
  if (corrupted && corrupted->digest == announced) {
    fetched = duplicate(*corrupted);
    return ZOT_ERR_SAME_AS_CORRUPTED;
  }
  if (current && current->digest == announced) {
    fetched = duplicate(*current);
    return ZOT_NO_UPDATE;
  }
  std::string k;
  seen.requests += "k ";
  if (const int status = fetch(offered_.k, "subsys.k", k); status != ZOT_OK) {
    return status;
  }
  const configuration *const found = find_by_k(k);
  if (test::sha256_hex(k) != announced || found == nullptr || !found->content.has_value()) {
    return ZOT_ERR_CORRUPTED;
  }
  fetched = std::make_shared<known_k>(known_k{k, "", area::scratch, found});
  return ZOT_OK;
}

// What a failed archive brought stays when K or a cached request expects a file there, and none
// that is smaller.
void model::remove_strangers(const list_ref &all) {
  files expected;
  const auto expect = [&expected](const gpb &file) {
    std::string &bytes = expected["config" + file.path];
    bytes = bytes.size() < file.bytes.size() ? file.bytes : bytes;
  };
  std::ranges::for_each(*all, expect);
  if (has_marked_ && marked_root_ == area::scratch) {
    for (const marked &one : marked_) {
      expect(one.file);
    }
  }
  std::erase_if(scratch_.held, [&](const auto &file) {
    const auto found = expected.find(file.first);
    const bool stays = found != expected.end() && file.second.size() <= found->second.size();
    return file.first.starts_with("config/") && !stays;
  });
}

int model::fetch_files(const k_ref &k, list_ref &list, outcome &seen) {
  if (k->found->content->contradicts_itself) {
    return ZOT_ERR_CORRUPTED;
  }
  const list_ref all = list_of(*k->found);
  seen.requests += "archive";
  if (!service_up_ || offered_.archive.how != answer::kind::body) {
    return ZOT_ERR_REMOTE_UNAVAIL;
  }
  const int status = offered_.is_archive ? take_files(all) : ZOT_ERR_CORRUPTED;
  if (status == ZOT_OK) {
    list = all;
  } else if (has_own_operations_) {
    remove_strangers(all);
  }
  return status;
}

int model::take_files(const list_ref &all) {
  files named;
  for (const gpb &file : *all) {
    if (const auto sent = offered_.archived.find(file.path); sent != offered_.archived.end()) {
      scratch_.held["config" + file.path] = sent->second;
    }
    named["config" + file.path] = file.bytes;
  }
  for (const gpb &file : *all) {
    if (const int status = verify(scratch_, file); status != ZOT_OK) {
      return status;
    }
  }
  if (lie_ != lie::stray_files_stay) {
    std::erase_if(scratch_.held, [&](const auto &file) {
      return file.first.starts_with("config/") && !named.contains(file.first);
    });
  }
  return ZOT_OK;
}

// Nothing is new, but last is another configuration: then it becomes the one in force, too.
int model::align() {
  slot &tmp = slots_[ZOT_SLOT_TMP];
  directory &from = at(tmp.k->root);
  const bool copied = cache_.copy(from, "subsys.k", "knowledge/prev_subsys.k") &&
                      cache_.copy(from, "subsys.checksum", "knowledge/prev_subsys.checksum");
  if (!copied) {
    return ZOT_ERR_GENERIC;
  }
  tmp.k->root = area::cache;
  tmp.gpbs = slots_[ZOT_SLOT_CURRENT].gpbs;
  slots_[ZOT_SLOT_LAST] = tmp;
  std::erase_if(marked_, [](const marked &one) { return one.stat == ZOT_STAT_DELETED; });
  for (marked &one : marked_) {
    one.stat = ZOT_STAT_UNCHANGED;
  }
  return ZOT_OK;
}

int model::check_for_update(outcome &seen) {
  state_ = 0;
  has_begun_ = false;
  if (!slots_[ZOT_SLOT_CORRUPTED].k && (load_flags_ & ZOT_LOADED_FAIL_K) == 0) {
    load_corrupted();
  }
  k_ref fetched;
  int status = fetch_k(fetched, seen);
  if (status == ZOT_NO_UPDATE && reload_changed_cache()) {
    fetched.reset();
    status = fetch_k(fetched, seen);
  }
  if (status == ZOT_ERR_SAME_AS_CORRUPTED) {
    reload_changed_cache();
  }
  if (!fetched) {
    return status;
  }
  slot &tmp = slots_[ZOT_SLOT_TMP];
  tmp.k = fetched;
  load_marked();
  if (status == ZOT_ERR_SAME_AS_CORRUPTED) {
    state_ = ZOT_CYCLE_SAME_K;
    return status;
  }
  return status == ZOT_OK ? take_new(seen) : take_same(seen);
}

int model::take_new(outcome &seen) {
  slot &tmp = slots_[ZOT_SLOT_TMP];
  list_ref list;
  if (const int failed = fetch_files(tmp.k, list, seen); failed != ZOT_OK) {
    return failed;
  }
  tmp.gpbs = list;
  checksum_fetched_ = checksum_written_;
  verdicts_fetched_ = verdicts_now();
  mark_against_current(tmp.k, tmp.gpbs, area::scratch);
  marks_wait_ = true;
  state_ = ZOT_CYCLE_NEW_CONF;
  seen.note = "a new configuration";
  return ZOT_OK;
}

int model::take_same(outcome &seen) {
  slot &tmp = slots_[ZOT_SLOT_TMP];
  if (same_bytes(slots_[ZOT_SLOT_LAST].k, tmp.k)) {
    tmp.gpbs = slots_[ZOT_SLOT_CURRENT].gpbs;
    seen.note = "nothing new";
  } else if (const int failed = align(); failed != ZOT_OK) {
    return failed;
  } else {
    seen.note = "nothing new, last aligned";
  }
  settle_marks();
  state_ = ZOT_CYCLE_SAME_K;
  return ZOT_NO_UPDATE;
}

int model::get_cached(std::uint32_t mask, const zot_catset &categories, outcome &seen) {
  if (waits_for_verdict() && is_overtaken()) {
    state_ = 0;
  }
  if (!waits_for_verdict()) {
    renew_outdated();
    reload_changed_cache();
  }
  load_marked();
  settle_marks();
  const int status = hand_out(mask, categories, seen);
  const bool is_nothing = seen.entries.empty() && lie_ != lie::nothing_in_force_is_a_success;
  return status == ZOT_OK && is_nothing ? static_cast<int>(ZOT_ERR_NO_CACHE) : status;
}

int model::get_update(std::uint32_t mask, const zot_catset &categories, outcome &seen) {
  renew_outdated();
  forget_changed_refusal();
  const int update = check_for_update(seen);
  if (update < 0 && update != ZOT_ERR_SAME_AS_CORRUPTED) {
    return update;
  }
  if (update == ZOT_ERR_SAME_AS_CORRUPTED) {
    load_marked();
    settle_marks();
  }
  const int status = hand_out(mask, categories, seen);
  if (status != ZOT_OK && update >= 0) {
    state_ &= ~static_cast<std::uint32_t>(ZOT_CYCLE_NEW_CONF);
  }
  return status == ZOT_OK && update == ZOT_ERR_SAME_AS_CORRUPTED ? update : status;
}

outcome model::get(std::uint32_t mask, const zot_catset &categories) {
  outcome seen;
  const std::string settled = settle_failed_commit();
  make_directories();
  undo_interrupted_commit();
  if (mask == 0) {
    seen.status = ZOT_ERR_WRONG_INPUT;
    return seen;
  }
  const slot &current = slots_[ZOT_SLOT_CURRENT];
  const std::uint32_t both = ZOT_LOADED_CONF | ZOT_LOADED_CONF_GPB;
  if ((!current.k || !current.gpbs) && (load_flags_ & both) != both) {
    load_current();
  }
  const bool cached = (mask & ZOT_STAT_CACHED) != 0 && lie_ != lie::cached_get_asks_the_service;
  seen.status = cached ? get_cached(mask, categories, seen) : get_update(mask, categories, seen);
  seen.note = settled.empty() ? seen.note : settled;
  seen.has_list = seen.status == ZOT_OK || seen.status == ZOT_ERR_SAME_AS_CORRUPTED;
  return seen;
}

}  // namespace zot::faults
