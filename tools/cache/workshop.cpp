// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/workshop.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "tools/output/error_text.hpp"

namespace zotconf {
namespace {

using namespace std::chrono_literals;

// Another process may have committed or rolled back before the lock was free.
void refuse_changes(const cache_paths &paths, const findings &found) {
  const auto is_changed = [&](k_slot slot) {
    const stored_k now = read_slot(paths, slot);
    const stored_k &known = found.slot(slot);
    return now.checksum != known.checksum || now.announced != known.announced;
  };
  if (is_there(undo_folder(paths)) || is_changed(k_slot::current) || is_changed(k_slot::refused)) {
    throw advised_error(paths.conf_root.string() + ": changed by another process during the repair",
                        "zotconf verify");
  }
}

}  // namespace

zot::descriptor lock_cache(const fs::path &root, std::chrono::milliseconds wait) {
  zot::descriptor folder(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const auto end = std::chrono::steady_clock::now() + wait;
  while (::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) {
      throw_errno("cannot lock " + root.string());
    }
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("cannot lock " + root.string() + ": another process holds the lock");
    }
    std::this_thread::sleep_for(50ms);
  }
  return folder;
}

workshop::workshop(const cache_paths &paths, const findings &found, std::chrono::milliseconds wait)
    : root_(paths.conf_root),
      lock_(lock_cache(root_, wait)),
      folder_(root_ / ".repair"),
      owner_(root_) {
  refuse_changes(paths, found);
  // A previous repair that was interrupted has left its folder.
  fs::remove_all(folder_);
  fs::create_directory(folder_);
}

workshop::~workshop() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

void workshop::flush() const {
  if (::syncfs(lock_.get()) != 0) {
    throw_errno("cannot flush " + root_.string());
  }
}

void workshop::place(const fs::path &from, const fs::path &to) {
  if (fs::is_directory(fs::symlink_status(to))) {
    take_away(to);
  }
  owner_.take(from);
  fs::rename(from, to);
}

void workshop::place_copy(const fs::path &from, const fs::path &to) {
  const fs::path copy = folder_ / "copy";
  fs::copy_file(from, copy, fs::copy_options::overwrite_existing);
  flush();
  place(copy, to);
}

bool workshop::make_directory(const fs::path &path) {
  const fs::file_status status = fs::symlink_status(path);
  if (fs::is_symlink(status)) {
    return false;
  }
  if (fs::exists(status) && !fs::is_directory(status)) {
    take_away(path);
  }
  if (fs::create_directory(path)) {
    owner_.take(path);
  }
  return true;
}

void workshop::take_away(const fs::path &path) {
  fs::rename(path, folder_ / ("away-" + std::to_string(taken_++)));
}

}  // namespace zotconf
