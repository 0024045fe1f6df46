// SPDX-License-Identifier: Apache-2.0
// The setting of a trial: services in a process of their own, an element, and the check that it
// still completes whole cycles.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

#include "allocator.hpp"
#include "tests/support/element.hpp"
#include "tests/support/publication.hpp"
#include "zot_conf.h"

namespace zot::faults {

// What was promised does not hold.
struct broken_promise : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void expect(bool holds, const std::string &what);

// One configuration after the other.
enum published { first, second, third, fourth, published_count };

[[nodiscard]] test::publication configuration(published which);

using ports = std::array<std::uint16_t, published_count>;

// A service for each configuration. Their allocations are those of another process.
class services {
 public:
  services();
  services(const services &) = delete;
  services &operator=(const services &) = delete;
  ~services();

  [[nodiscard]] const ports &at() const { return ports_; }

 private:
  ports ports_{};
  pid_t pid_ = -1;
  int life_line_ = -1;
};

struct fault {
  failing how = failing::never;
  std::uint64_t which = 0;
};

// How a call ended: its status, and in words all that it gave and left behind.
struct outcome {
  int status = ZOT_OK;
  std::string text;
};

// The loads of a handle's life, each with one bit: the current configuration, the last one, the
// corrupted K, the returned list.
inline constexpr std::uint32_t every_load =
    ZOT_LOADED_CONF | ZOT_LOADED_PREV_K | ZOT_LOADED_FAIL_K | ZOT_LOADED_RET_LIST;

using bytes_by_name = std::map<std::string, std::string>;

// The names of files with their bytes as digests.
[[nodiscard]] std::string described(const bytes_by_name &files);

// A K and the files of a list, those with bytes, in words.
[[nodiscard]] std::string in_memory(const zot_slot &slot);
[[nodiscard]] std::string in_memory(const zot_list *gpbs);

class stage {
 public:
  explicit stage(const ports &at);

  [[nodiscard]] test::element &element() { return element_; }
  [[nodiscard]] zot_ctx *handle() const { return element_.handle(); }
  // Of the call under a fault.
  [[nodiscard]] armed_count allocations() const { return allocations_; }
  [[nodiscard]] std::string log_path() const { return element_.dir() / "messages.log"; }

  // Runs a call of the library while its allocations fail.
  template <class Call>
  auto under(const fault &fault, Call call) {
    arm(fault.how, fault.which);
    const auto result = call();
    allocations_ = disarm();
    return result;
  }

  // The loads that were tried, and those of them that left nothing behind.
  [[nodiscard]] std::uint32_t tried_loads() const;
  [[nodiscard]] std::uint32_t lost_loads() const;
  // Makes these loads ones that were tried and left nothing behind.
  void lose(std::uint32_t loads) const;

  // A remark on how it went, for the counts.
  void note(const std::string &remark);
  [[nodiscard]] const std::string &notes() const { return notes_; }

  [[nodiscard]] std::uint16_t port_of(published which) const { return ports_.at(which); }
  void publish(published which) { element_.set_port(ports_.at(which)); }
  [[nodiscard]] outcome get(const fault &fault, std::uint32_t mask = test::every_change);
  // Brings the element to a configuration.
  void bring_to(published which);

  // The configuration in force as the handle has it, empty while it is not loaded.
  [[nodiscard]] std::string in_force_in_memory() const {
    return in_memory(handle()->slot[ZOT_SLOT_CURRENT]);
  }
  [[nodiscard]] bytes_by_name cache() const;
  // The files of the cache without those below its GPB directory that its K does not name.
  [[nodiscard]] bytes_by_name listed_in_cache();
  void expect_in_force_on_disk(published which);

  // Another configuration comes, is committed, is found unchanged, and survives a restart.
  void expect_whole_cycle(published next);

  // What a process that starts anew, without a service, has in force, in words; the folders of this
  // element stay as they are. Empty for nothing; throws when it finds something that nobody may.
  [[nodiscard]] std::string found_anew();

  // Everything on disk as it was when it was saved.
  void save_files();
  void restore_files() const;

 private:
  ports ports_;
  test::temp_dir saved_;
  test::temp_dir beside_;  // for a new process
  test::element element_;
  armed_count allocations_;
  std::string notes_;
};

}  // namespace zot::faults
