// SPDX-License-Identifier: Apache-2.0
// What an element has to do and to hold, told once more, without files, memory or transfers: the
// slots, the marked list, the state of the cycle, and the two directories.
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
};
inline constexpr unsigned lie_count = static_cast<unsigned>(lie::cached_get_asks_the_service) + 1;

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
  // A client's own operations clean up after their failures, or don't: the library leaves it to
  // them.
  explicit model(lie told = lie::none, bool clears_failed_files = true)
      : lie_(told), clears_failed_files_(clears_failed_files) {
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
  directory &at(area where) { return where == area::cache ? cache_ : scratch_; }

  // Start
  void load_current();
  void load_last();
  void load_corrupted();
  void load_marked();

  // Get
  int check_for_update(outcome &seen);
  int fetch(const answer &from, const std::string &name, std::string &body);
  int fetch_k(k_ref &fetched, outcome &seen);
  int fetch_files(const k_ref &k, list_ref &list, outcome &seen);
  int take_files(const list_ref &all);
  void leave_damaged_files();
  void remove_strangers(const list_ref &all);
  int align();
  void mark_against_current(const k_ref &k, const list_ref &list, area root);
  int filter(std::uint32_t mask, const zot_catset &categories, outcome &seen);
  k_ref duplicate(const known_k &of);

  // Verdict
  [[nodiscard]] bool is_open(int &status) const;
  int commit_k();
  int commit_files();
  int refuse();
  int keep_as_corrupted();

  lie lie_;
  bool clears_failed_files_;
  directory cache_;
  directory scratch_;
  offer offered_;
  bool service_up_ = true;

  std::array<slot, ZOT_SLOT_COUNT> slots_;
  bool has_marked_ = false;
  std::vector<marked> marked_;
  area marked_root_ = area::cache;
  std::uint32_t load_flags_ = 0;
  std::uint32_t state_ = 0;

  // How far a commit that failed has come.
  bool in_memory_ = false;
  bool k_rotated_ = false;
  bool checksum_rotated_ = false;
  bool k_done_ = false;
};

}  // namespace zot::faults
