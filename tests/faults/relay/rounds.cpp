// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/rounds.hpp"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;
using zotconf::round_result;

// The names of all files and links below a folder, except the lock.
std::vector<std::string> names_below(const fs::path &folder) {
  std::vector<std::string> names;
  for (const auto &entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_directory() || entry.is_symlink()) {
      names.push_back(entry.path().lexically_relative(folder));
    }
  }
  std::erase(names, ".lock");
  std::ranges::sort(names);
  return names;
}

std::string joined(const std::vector<std::string> &names) {
  std::string text;
  for (const std::string &name : names) {
    text += " " + name;
  }
  return text;
}

}  // namespace

void require(bool holds, const std::string &text) {
  if (!holds) {
    throw std::runtime_error(text);
  }
}

const std::vector<round_kind> &round_kinds() {
  static const std::vector<round_kind> kinds = {
      {.name = "first fetch", .kept = {}},
      {.name = "update", .kept = {in_service - 1, in_service}},
      {.name = "resumed update", .kept = {in_service - 1, in_service}, .has_partial = true},
      {.name = "round without news", .kept = {in_service, offered}}};
  return kinds;
}

round_stage::round_stage(std::string work) : work_(std::move(work)) {
  all_.generations[in_service - 1] = generation(in_service - 1, all_.publisher);
  const auto how = [this](std::uint64_t number) {
    return behaviour{.content = all_.generations.at(number)};
  };
  server_ = std::make_unique<server_process>(how);
  next_server_ = std::make_unique<server_process>(how);
  next_server_->behave(mended);
  write_bytes(work_ + "/keyring", all_.keyring());
}

relay_folders round_stage::folders(const std::string &store) const {
  return {.store = store, .url = server_->url(), .keyring = work_ + "/keyring"};
}

void round_stage::prepare(const round_kind &kind) {
  kind_ = &kind;
  const std::string store = work_ + "/prepared";
  fs::remove_all(store);
  fs::create_directories(store);
  for (const std::uint64_t number : kind.kept) {
    server_->behave(number);
    reach(store, *server_, number);
  }
  if (kind.has_partial) {
    add_partial(store);
  }
  server_->behave(offered);
  const std::string undisturbed = work_ + "/undisturbed";
  copy_to(undisturbed);
  reach(undisturbed, *server_, offered);
  reach(undisturbed, *next_server_, mended);
  settled_ = names_below(undisturbed);
}

void round_stage::copy_to(const std::string &store) const {
  fs::remove_all(store);
  fs::copy(work_ + "/prepared", store,
           fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

void round_stage::add_partial(const std::string &store) const {
  const zotconf::manifest content = manifest_of(offered);
  const auto large =
      std::ranges::find(content.files, "Ap", &zotconf::published_file::category_name);
  const std::string bytes = large_file(offered);
  write_bytes(zotconf::relay_store(store, this_element).partial(*large),
              bytes.substr(0, bytes.size() / 2));
}

std::uint64_t round_stage::served(const zotconf::relay_store &store) const {
  const auto current = store.current();
  if (current == nullptr) {
    return 0;
  }
  const std::uint64_t number = current->content.sequence;
  const auto known = all_.generations.find(number);
  require(known != all_.generations.end(), "it serves the sequence " + std::to_string(number));
  const std::string wrong = compare_served(store, known->second);
  require(wrong.empty(), "of generation " + std::to_string(number) + ", " + wrong);
  return number;
}

std::uint64_t round_stage::check_store(const std::string &store) const {
  const zotconf::relay_store opened(store, this_element);
  const std::uint64_t number = served(opened);
  const std::uint64_t before = kind_->kept.empty() ? 0 : kind_->kept.back();
  require(number == before || number == offered, "it serves generation " + std::to_string(number));
  require(number != 0 || !fs::is_symlink(store + "/current"),
          "it serves nothing, although a publication was put into service");
  return number;
}

void round_stage::reach(const std::string &store, const server_process &server,
                        std::uint64_t number) const {
  relay_folders from = folders(store);
  from.url = server.url();
  polled_relay relay(from);
  const zotconf::sync_round round = relay.poll();
  require(round.wrong.empty(), "an undisturbed round: " + round.wrong);
  require(served(relay.store()) == number, "an undisturbed round reached another generation");
}

void round_stage::check_way_on(const std::string &store) const {
  reach(store, *server_, offered);
  reach(store, *next_server_, mended);
  const std::vector<std::string> names = names_below(store);
  require(names == settled_,
          "other files stay:" + joined(names) + "; expected:" + joined(settled_));
}

}  // namespace zot::test
