// SPDX-License-Identifier: Apache-2.0
// The verdict and the start, as the model has them, and what can be seen of it.
#include "model.hpp"

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

}  // namespace

std::vector<change> model::damage(const step &one) {
  directory &hit = one.kind == step_kind::damage_cache ? cache_ : scratch_;
  const std::vector<change> changes = damage_of(one, hit);
  for (const change &what : changes) {
    apply(what, hit);
  }
  return changes;
}

void model::restart() {
  make_directories();
  slots_ = {};
  has_marked_ = false;
  marked_.clear();
  marked_root_ = area::cache;
  load_flags_ = 0;
  state_ = 0;
  in_memory_ = k_rotated_ = checksum_rotated_ = k_done_ = false;
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

int model::commit_k() {
  if (!k_rotated_) {
    cache_.held.erase("knowledge/prev_subsys.k");
    cache_.rename("knowledge/subsys.k", "knowledge/prev_subsys.k");
    k_rotated_ = true;
  }
  if (!cache_.copy(scratch_, "subsys.k", "knowledge/subsys.k")) {
    return ZOT_ERR_GENERIC;
  }
  if (!checksum_rotated_) {
    cache_.held.erase("knowledge/prev_subsys.checksum");
    cache_.rename("knowledge/subsys.checksum", "knowledge/prev_subsys.checksum");
    checksum_rotated_ = true;
  }
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

int model::commit_files() {
  cache_.remove_below("config/");
  cache_.has_config = false;
  if (!scratch_.has_config || !cache_.exists) {
    return ZOT_ERR_GENERIC;
  }
  cache_.has_config = true;
  cache_.held.merge(scratch_.below("config/"));
  return ZOT_OK;
}

outcome model::commit() {
  int status = ZOT_OK;
  if (!is_open(status)) {
    return of(status);
  }
  slot &current = slots_[ZOT_SLOT_CURRENT];
  const slot tmp = slots_[ZOT_SLOT_TMP];
  outcome seen;
  if (in_memory_) {
    seen.note = k_done_ ? "again, at the files" : "again, at K";
  } else {
    if (current.k && current.k->bytes == tmp.k->bytes) {
      return of(ZOT_NO_UPDATE);
    }
    slots_[ZOT_SLOT_LAST] = std::exchange(current, tmp);
    in_memory_ = true;
  }
  if (!k_done_) {
    status = commit_k();
    k_done_ = status == ZOT_OK;
  }
  if (status == ZOT_OK) {
    status = commit_files();
  }
  if (status == ZOT_OK) {
    state_ |= ZOT_CYCLE_DONE_COMMIT;
  }
  seen.status = status;
  return seen;
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
  slot &last = slots_[ZOT_SLOT_LAST];
  if (!last.k && (load_flags_ & ZOT_LOADED_PREV_K) == 0) {
    load_last();
  }
  if (last.k && lie_ != lie::roll_back_keeps_last) {
    last.k.reset();
    cache_.held.erase("knowledge/prev_subsys.k");
    cache_.held.erase("knowledge/prev_subsys.checksum");
    const slot &current = slots_[ZOT_SLOT_CURRENT];
    if (!current.k || !current.gpbs) {
      return ZOT_ERR_NULL_INPUT;
    }
    mark_against_current(current.k, current.gpbs, area::cache);
  }
  const k_ref &corrupted = slots_[ZOT_SLOT_CORRUPTED].k;
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
  for (const auto &[name, bytes] : cache_.held) {
    seen["cache " + name] = bytes;
  }
  for (const auto &[name, bytes] : scratch_.held) {
    seen["scratch " + name] = bytes;
  }
  return seen;
}

}  // namespace zot::faults
