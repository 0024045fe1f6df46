// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/forget.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <stdexcept>

#include "tools/cache/cache.hpp"
#include "tools/cache/k_text.hpp"
#include "tools/cache/workshop.hpp"
#include "tools/output/environment.hpp"
#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

void remove_file(const fs::path &path) {
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    throw_errno("cannot remove " + path.string());
  }
}

// Removes the checksum file first: a K without it refuses nothing, so an interruption between the
// two does no harm.
void remove_refused(const cache_paths &paths) {
  const fs::path knowledge = paths.conf_root / "knowledge";
  remove_file(knowledge / "corrupted.checksum");
  remove_file(knowledge / "corrupted.k");
  const zot::descriptor folder(::open(knowledge.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (::fsync(folder.get()) != 0) {
    throw_errno("cannot sync " + knowledge.string());
  }
}

// Returns the K that was refused; it is not present when there was none.
stored_k forget_refused(const cache_paths &paths) {
  if (paths.dev_mode) {
    throw std::runtime_error("dev mode: " + paths.conf_root.string() + " is read-only");
  }
  if (!is_there(paths.conf_root)) {
    return {};
  }
  const zot::descriptor lock = lock_cache(paths.conf_root, std::chrono::milliseconds(0));
  if (is_there(undo_folder(paths))) {
    throw advised_error(
        "cannot forget: a commit was interrupted, and the next start may restore the refused K; "
        "repair the cache first",
        "zotconf verify --repair --index ID");
  }
  stored_k refused = read_slot(paths, k_slot::refused);
  if (refused.is_present) {
    remove_refused(paths);
  }
  return refused;
}

}  // namespace

int run_forget(const forget_options & /*options*/, const console &where) {
  warn_of_environment(where, use_of_service::none);
  const cache_paths paths = find_cache();
  require_readable(paths);
  const stored_k refused = forget_refused(paths);
  if (where.is_json()) {
    json_document document;
    document.root().set("conf_root", paths.conf_root.string());
    if (refused.is_present) {
      set_k(document.root().object("forgotten"), refused);
    } else {
      document.root().set_missing({"forgotten"});
    }
    where.out() << document.text();
    return exit_success;
  }
  if (refused.is_present) {
    where.out() << "forgotten: " << printable(named(refused))
                << "; while the service offers it, the next get returns it as new\n";
  } else {
    where.out() << "no refused configuration in " << printable(paths.conf_root.string()) << '\n';
  }
  return exit_success;
}

}  // namespace zotconf
