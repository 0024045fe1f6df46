// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/polled_relay.hpp"

#include <exception>
#include <utility>

#include "tools/files/file_io.hpp"
#include "tools/publication/publication_store.hpp"

namespace zot::test {
namespace {

zotconf::relay_state first_state(const relay_folders &folders) {
  zotconf::relay_state state;
  state.upstream = folders.url;
  state.who = this_element;
  state.must_be_signed = !folders.keyring.empty();
  state.started = std::time(nullptr);
  return state;
}

// Splits a path below the URL.
std::vector<std::string> parts_of(const std::string &path) {
  std::vector<std::string> parts;
  std::istringstream all(path);
  for (std::string part; std::getline(all, part, '/');) {
    parts.push_back(part);
  }
  return parts;
}

std::string compare_file(const zotconf::served_files &store, const std::string &path,
                         const std::string &expected) {
  try {
    const descriptor file = store.open_member(parts_of(path));
    if (!file.is_open()) {
      return path + " is not served\n";
    }
    return zotconf::read_file_at(file.get(), path) == expected ? "" : path + " has other bytes\n";
  } catch (const std::exception &error) {
    return path + ": " + error.what() + "\n";
  }
}

}  // namespace

polled_relay::polled_relay(const relay_folders &folders)
    : trusted_(folders.keyring.empty()
                   ? std::nullopt
                   : std::optional<zotconf::keyring>(std::in_place, folders.keyring)),
      store_(folders.store, this_element),
      server_({.url = folders.url,
               .ca = folders.ca,
               .certificate = folders.certificate,
               .key = folders.key,
               .connect_timeout = folders.silence,
               .silence = folders.silence},
              [] { return false; }),
      syncing_({.who = this_element, .trusted = trusted_ ? &*trusted_ : nullptr}, 2, server_,
               store_),
      board_(first_state(folders)),
      loop_({.syncing = syncing_,
             .store = store_,
             .server = server_,
             .board = board_,
             .reporter = reporter_}) {}

std::string polled_relay::told() {
  std::string lines = out_.str();
  out_.str("");
  return lines;
}

std::string compare_served(const zotconf::served_files &store, const offer &expected) {
  std::string trouble;
  for (const auto &[path, bytes] : expected.files) {
    trouble += compare_file(store, path, bytes);
  }
  const std::string announced = store.read_checksum(this_element).value_or("");
  if (announced.empty() || !expected.files.at(checksum_path).starts_with(announced)) {
    trouble += "another K is announced: " + announced + "\n";
  }
  return trouble;
}

}  // namespace zot::test
