// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/prune.hpp"

#include <ostream>

#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/publication/named_files.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/publication/source_folder.hpp"
#include "tools/publication/unnamed_files.hpp"

namespace zotconf {
namespace {

struct pruning {
  size_t ks = 0;
  unnamed_files found;
};

template <class Visit>
void for_each_removable(const unnamed_files &found, Visit visit) {
  for (const stored_category &category : found.categories) {
    for (const stored_object &object : category.objects) {
      for (const stored_version &file : object.unnamed) {
        visit("config/" + member_name(category.name, object.key, std::to_string(file.version)),
              file.size);
      }
    }
  }
}

void write_pruning_json(const prune_options &options, const console &where, const pruning &done) {
  const unnamed_files &found = done.found;
  json_document document;
  json_node root = document.root();
  root.set("result", options.dry_run ? "would_prune" : "pruned")
      .set("k_files", done.ks)
      .set("grace_ms", options.grace)
      .set("removed_files", found.removable.files)
      .set("removed_bytes", found.removable.bytes)
      .set("removed_folders", found.folders)
      .set("named_files", found.named.files)
      .set("named_bytes", found.named.bytes)
      .set("young_files", found.young.files)
      .set("young_bytes", found.young.bytes);
  json_node removed = root.array("removed");
  for_each_removable(found, [&removed](const std::string &path, uint64_t size) {
    removed.append().set("path", path).set("size", size);
  });
  json_node left_alone = root.array("left_alone");
  for (const std::string &path : found.left_alone) {
    left_alone.append(path);
  }
  where.out() << document.text();
}

void print_pruning(const prune_options &options, const console &where, const pruning &done) {
  const unnamed_files &found = done.found;
  for (const std::string &path : found.left_alone) {
    where.err() << "zotconf: skipped: " << printable(path) << '\n';
  }
  if (options.dry_run) {
    for_each_removable(found, [&where](const std::string &path, uint64_t size) {
      where.out() << "would remove " << printable(path) << ", " << size << " bytes\n";
    });
  }
  where.out() << (options.dry_run ? "would prune: " : "pruned: ") << found.removable.files
              << " files removed, " << found.folders << " folders removed, "
              << found.removable.bytes << " bytes removed; " << found.named.files
              << " files listed by " << done.ks << " K, " << found.young.files
              << " files kept for the grace period\n";
}

pruning prune(const prune_options &options, const console &where) {
  // Checked first, so that no lock file is created in another kind of folder.
  check_publication(options.publication);
  publication_store store(options.publication);
  options.dry_run ? store.lock_to_read() : store.lock();
  const named_files named = read_named_files(options.publication);
  pruning result{.ks = named.ks, .found = find_unnamed(options.publication, named, options.grace)};
  if (options.dry_run) {
    return result;
  }
  store.spend(result.found.highest);
  progress removing(where, "removing", result.found.removable.files);
  remove_unnamed(options.publication, result.found,
                 [&removing](uint64_t size) { removing.advance(size); });
  return result;
}

}  // namespace

int run_prune(const prune_options &options, const console &where) {
  try {
    const pruning done = prune(options, where);
    where.is_json() ? write_pruning_json(options, where, done)
                    : print_pruning(options, where, done);
  } catch (const refusal &refused) {
    tell_error(where.err(), std::string("refused: ") + refused.what() + "; nothing was removed",
               refused.command());
    return exit_refused;
  }
  return exit_success;
}

}  // namespace zotconf
