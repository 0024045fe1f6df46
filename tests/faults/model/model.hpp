// SPDX-License-Identifier: Apache-2.0
// A second implementation of what an element has to do and to hold, without files, memory
// management or transfers: the slots, the marked list, the state of the cycle, and the two
// directories.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "catalogue.hpp"
#include "disk.hpp"
#include "steps.hpp"
#include "tests/support/element.hpp"
#include "zot_conf.h"

namespace zot::faults {

// Everything that can be seen of an element between two calls, by name.
using view = std::map<std::string, std::string>;

// What one step gives back.
struct outcome {
  int status = ZOT_OK;
  bool has_list = false;
  std::vector<test::returned_entry> entries;
  std::string requests;  // to the service: "sum", "k", "archive"
  std::string note;      // how the model came there; not compared
};

// Wrong on purpose, to show that a disagreement is found.
enum class lie {
  none,
  roll_back_keeps_last,
  commit_keeps_corrupted,
  stray_files_stay,
  cached_get_asks_the_service,
  cut_off_commit_stays,
  withdrawn_list_stays,
  nothing_in_force_is_a_success,
};
inline constexpr unsigned lie_count = static_cast<unsigned>(lie::nothing_in_force_is_a_success) + 1;

struct known_k {
  std::string bytes;
  std::string digest;  // empty for one that was fetched and not read back
  area root = area::scratch;
  const configuration *found = nullptr;
};
using k_ref = std::shared_ptr<known_k>;
using list_ref = std::shared_ptr<const std::vector<gpb>>;

struct slot {
  k_ref k;
  list_ref gpbs;
};

struct marked {
  gpb file;
  std::uint32_t stat = 0;
  bool read = false;  // its bytes have been verified for an earlier request
};

class model {
 public:
  // A client's own operations clean up after their failures, or don't, and the GPB files that they
  // commit are not kept for an undoing: the library leaves both to them.
  explicit model(lie told = lie::none, bool has_own_operations = true)
      : lie_(told), has_own_operations_(has_own_operations) {
    restart();
  }

  void publish(offer published) { offered_ = std::move(published); }
  void set_service(bool up) { service_up_ = up; }
  [[nodiscard]] std::vector<change> damage(const step &one);

  outcome get(std::uint32_t mask, const zot_catset &categories);
  outcome commit();
  outcome roll_back();
  void restart();

  [[nodiscard]] view look() const;

 private:
  // Directories
  void make_directories();
  void undo_interrupted_commit();
  // Whether nobody has written the announced checksum anew since the get.
  [[nodiscard]] bool is_untouched() const;
  [[nodiscard]] bool is_k_as_fetched() const;
  [[nodiscard]] bool has_all_fetched() const;
  [[nodiscard]] bool is_set_as_fetched() const;
  [[nodiscard]] bool is_stored(const known_k &wanted, const std::string &name) const;
  // What the cache has in force, and what rolled back.
  using verdicts = std::pair<std::uint64_t, std::uint64_t>;
  [[nodiscard]] verdicts verdicts_now() const;
  [[nodiscard]] bool is_overtaken() const;
  [[nodiscard]] bool is_in_force() const;
  directory &at(area where) { return where == area::cache ? cache_ : scratch_; }

  // Start
  void load_current();
  void load_last();
  void load_corrupted();
  void load_marked();
  bool reload_conf();
  bool reload_changed_cache();
  void give_up();
  void renew_outdated();
  void forget_changed_refusal();

  // Get
  int check_for_update(outcome &seen);
  int take_new(outcome &seen);
  int take_same(outcome &seen);
  int fetch(const answer &from, const std::string &name, std::string &body);
  int fetch_k(k_ref &fetched, outcome &seen);
  int fetch_files(const k_ref &k, list_ref &list, outcome &seen);
  int take_files(const list_ref &all);
  void remove_strangers(const list_ref &all);
  int align();
  void mark_against_current(const k_ref &k, const list_ref &list, area root);
  void renew_marks();
  void settle_marks();
  int read_file(const gpb &file, bool &is_lost);
  int get_cached(std::uint32_t mask, const zot_catset &categories, outcome &seen);
  int get_update(std::uint32_t mask, const zot_catset &categories, outcome &seen);
  int hand_out(std::uint32_t mask, const zot_catset &categories, outcome &seen);
  int filter(std::uint32_t mask, const zot_catset &categories, outcome &seen);
  k_ref duplicate(const known_k &of);

  // Verdict
  [[nodiscard]] bool is_open(int &status) const;
  [[nodiscard]] bool waits_for_verdict() const;
  int run_commit(outcome &seen);
  void end_commit();
  void adopt();
  int store();
  int store_k();
  int commit_k();
  int commit_files();
  bool undo_failed_commit();
  // Says what became of one, if there was one.
  std::string settle_failed_commit();
  int refuse();
  int keep_as_corrupted();

  // How memory may differ from the cache.
  static constexpr std::uint32_t conf_outdated = 1;
  static constexpr std::uint32_t cache_unloadable = 4;

  lie lie_;
  bool has_own_operations_;
  directory cache_;
  directory scratch_;
  offer offered_;
  bool service_up_ = true;

  std::array<slot, ZOT_SLOT_COUNT> slots_;
  bool has_marked_ = false;
  std::vector<marked> marked_;
  area marked_root_ = area::cache;
  std::uint32_t load_flags_ = 0;
  std::uint32_t cache_doubts_ = 0;
  std::uint32_t state_ = 0;

  bool marks_wait_ = false;  // the marked list is that of a configuration without a verdict

  // Whether a commit has begun.
  bool has_begun_ = false;

  // Which announced checksum lies in the scratch directory, and which one the get has left there.
  unsigned checksum_written_ = 0;
  unsigned checksum_fetched_ = 0;
  verdicts verdicts_fetched_;
};

}  // namespace zot::faults
