// SPDX-License-Identifier: Apache-2.0
// Rounds that are disturbed: what the store has before, and what has to be there afterwards.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/faults/relay/misdeed.hpp"
#include "tests/faults/relay/polled_relay.hpp"
#include "tests/faults/relay/server_process.hpp"

namespace zot::test {

// Throws an exception with this text when the condition is false.
void require(bool holds, const std::string &text);

struct round_kind {
  const char *name;
  std::vector<std::uint64_t> kept;  // the generations that the store has, the last one in service
  bool has_partial = false;         // half of the large file has arrived
};
[[nodiscard]] const std::vector<round_kind> &round_kinds();

// The servers and the folders of disturbed rounds. The rounds fetch the offered generation.
class round_stage {
 public:
  explicit round_stage(std::string work);

  // Makes the store as it is before the rounds of a kind.
  void prepare(const round_kind &kind);
  // Puts a copy of the prepared store into this folder, in the place of what is there.
  void copy_to(const std::string &store) const;
  // What a relay on this store is started with. It is offered the generation of the trial.
  [[nodiscard]] relay_folders folders(const std::string &store) const;

  // Opens the store as a new process does. Throws if it serves anything but a whole publication:
  // the one that was in service before, or the offered one; or none, if there was none and nothing
  // has been put into service. Returns the generation, or 0.
  std::uint64_t check_store(const std::string &store) const;
  // Undisturbed rounds must reach the offered generation and then the next one, and leave no file
  // that undisturbed rounds alone don't leave.
  void check_way_on(const std::string &store) const;
  // Which generation this store serves, complete; 0 for none. Throws if it is neither.
  [[nodiscard]] std::uint64_t served(const zotconf::relay_store &store) const;

 private:
  void add_partial(const std::string &store) const;
  void reach(const std::string &store, const server_process &server, std::uint64_t number) const;

  const std::string work_;
  cast all_;
  std::unique_ptr<server_process> server_;
  std::unique_ptr<server_process> next_server_;
  const round_kind *kind_ = nullptr;
  std::vector<std::string> settled_;  // the names in the store in the end
};

}  // namespace zot::test
