// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publish.hpp"

#include <algorithm>
#include <ostream>
#include <utility>

#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/output/text_table.hpp"
#include "tools/publication/announcement.hpp"
#include "tools/publication/element_update.hpp"
#include "tools/publication/plan.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/publication/signature.hpp"
#include "tools/publication/source_folder.hpp"

namespace zotconf {
namespace {

void write_files(const publication_store &store, const publish_options &options,
                 const plan &planned, const console &where) {
  progress written(where, "writing", planned.to_write.size());
  for (const published_file &file : planned.to_write) {
    copy_source(store, options.source, file);
    written.advance(file.size);
  }
}

void print_changes(const console &where, const std::vector<entry_change> &changes) {
  text_table table({{"CHANGE"}, {"CATEGORY"}, {"KEY"}, {"VERSION", align::right}});
  const auto text = [](const std::optional<uint64_t> &version) {
    return version ? std::to_string(*version) : "-";
  };
  for (const entry_change &each : changes) {
    table.add_row({each.name(), each.entry().category_name, printable(each.entry().key),
                   text(each.old_version()) + " -> " + text(each.new_version())});
  }
  table.print(where);
}

void set_changes(json_node list, const std::vector<entry_change> &changes) {
  for (const entry_change &each : changes) {
    list.append()
        .set("change", each.name())
        .set("category", each.entry().category_name)
        .set("key", each.entry().key)
        .set("old_version", each.old_version())
        .set("new_version", each.new_version());
  }
}

uint64_t size_of(const std::vector<published_file> &files) {
  uint64_t bytes = 0;
  for (const published_file &file : files) {
    bytes += file.size;
  }
  return bytes;
}

// What a publication came to.
struct outcome {
  const char *result = "unchanged";
  bool is_signed = false;
};

void print_summary(const console &where, const outcome &done, const plan &planned) {
  where.out() << done.result << ": " << planned.next.files.size() << " files, "
              << planned.count("new") << " new, " << planned.count("changed") << " changed, "
              << planned.same << " same, " << planned.count("removed") << " removed, "
              << size_of(planned.next.files) << (done.is_signed ? " bytes, signed\n" : " bytes\n");
}

void write_summary(const console &where, const outcome &done, const plan &planned,
                   const std::vector<fs::path> &left_out, bool dry_run) {
  json_document document;
  json_node root = document.root();
  std::string word = done.result;
  std::ranges::replace(word, ' ', '_');
  root.set("result", word)
      .set("files", planned.next.files.size())
      .set("new", planned.count("new"))
      .set("changed", planned.count("changed"))
      .set("same", planned.same)
      .set("removed", planned.count("removed"))
      .set("bytes", size_of(planned.next.files))
      .set("written", planned.written)
      .set("signed", done.is_signed);
  json_node list = root.array("left_out");
  for (const fs::path &path : left_out) {
    list.append(path.string());
  }
  if (dry_run) {
    set_changes(root.array("changes"), planned.changes);
  }
  where.out() << document.text();
}

void announce(const publication_store &store, const element &who, const plan &planned,
              const element_update &update, const signer *signs, const console &where) {
  if (signs == nullptr && store.read_signature(who)) {
    tell_warning(where.err(), "the previous K of " + who.index + " was signed, the new one is not",
                 "zotconf sign --help");
  }
  const std::string k = render_for(who, update.sequence, planned.next);
  announcement next(store);
  next.add(who, k, signs == nullptr ? std::nullopt : std::optional(signs->sign(k)));
  progress announced(where, "announcing", 1, "elements");
  if (const size_t unmarked = next.finish(planned.dropped(), announced); unmarked > 0) {
    tell_warning(where.err(),
                 std::to_string(unmarked) +
                     " files that K no longer lists belong to another user: prune may remove "
                     "them before their grace period ends");
  }
}

void sign_again(const publication_store &store, const element &who, const previous_k &previous,
                const signer &signs) {
  store.write_signature(who, signs.sign(previous.text));
}

outcome settle(const publication_store &store, const element &who, const previous_k &previous,
               const plan &planned, const publish_options &options, const signer *signs,
               const console &where) {
  const element_update update = update_of(store, who, previous, planned, signs);
  outcome done{.result = "unchanged", .is_signed = update.is_signed};
  if (update.action == k_action::announce) {
    done.result = options.dry_run ? "would publish" : "published";
  }
  if (options.dry_run) {
    return done;
  }
  write_files(store, options, planned, where);
  if (update.action == k_action::announce) {
    announce(store, who, planned, update, signs, where);
  } else if (update.action == k_action::sign) {
    sign_again(store, who, previous, *signs);
  }
  return done;
}

// An element compares the version of a file only within one cluster.
void warn_of_other_cluster(const manifest &previous, const publish_options &options,
                           std::ostream &err) {
  if (!previous.cluster.empty() && previous.cluster != options.cluster) {
    tell_warning(err, "the cluster changes from \"" + previous.cluster + "\" to \"" +
                          options.cluster + "\": elements mark every entry as modified");
  }
}

source_files read_source(const publish_options &options, const console &where) {
  check_apart(options.source, options.publication);
  progress read(where, "reading", 0);
  source_files source = scan_source(options.source, read);
  read.clear();
  for (const fs::path &path : source.left_out) {
    if (!where.is_json()) {
      where.err() << "zotconf: skipped: " << printable(path.string()) << '\n';
    }
  }
  if (source.files.empty() && !options.allow_empty) {
    throw refusal(options.source,
                  "contains no file to publish; to remove all entries, use --allow-empty",
                  "zotconf publish --help");
  }
  return source;
}

plan plan_for(const publication_store &store, const previous_k &previous,
              const publish_options &options, std::vector<published_file> files,
              const console &where) {
  version_catalog catalog(store);
  progress compared(where, "comparing", files.size());
  plan planned =
      make_plan(catalog, previous.content, next_manifest(options, std::move(files)), compared);
  check_removals(planned, options.max_removed.value_or(planned.next.files.empty() ? 100 : 50),
                 options.source);
  return planned;
}

void publish(const publish_options &options, const console &where) {
  const element who{.subsys = options.who.subsys, .index = upper_case(options.who.index)};
  const std::optional<signer> signs = signer_of(options);
  source_files source = read_source(options, where);
  publication_store store(options.publication);
  options.dry_run ? store.lock_to_read() : store.lock();
  const previous_k previous = read_previous(store, who);
  if (previous.is_damaged) {
    tell_warning(where.err(), "the previous K of " + who.index + " is damaged and is replaced");
  }
  warn_of_other_cluster(previous.content, options, where.err());
  const plan planned = plan_for(store, previous, options, std::move(source.files), where);
  const outcome done =
      settle(store, who, previous, planned, options, signs ? &*signs : nullptr, where);
  if (where.is_json()) {
    return write_summary(where, done, planned, source.left_out, options.dry_run);
  }
  if (options.dry_run) {
    print_changes(where, planned.changes);
  }
  print_summary(where, done, planned);
}

}  // namespace

std::optional<signer> signer_of(const publish_options &options) {
  return options.sign_certificate.empty()
             ? std::nullopt
             : std::optional<signer>(std::in_place, options.sign_certificate, options.sign_key);
}

manifest next_manifest(const publish_options &options, std::vector<published_file> files) {
  return {.cluster = options.cluster,
          .config_id = options.config_id,
          .firmware = options.firmware,
          .files = std::move(files)};
}

int run_publish(const publish_options &options, const console &where) {
  try {
    publish(options, where);
  } catch (const refusal &refused) {
    tell_error(where.err(), std::string("refused: ") + refused.what(), refused.command());
    return exit_refused;
  }
  return exit_success;
}

}  // namespace zotconf
