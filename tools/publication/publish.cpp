// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publish.hpp"

#include <algorithm>
#include <ctime>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/output/text_table.hpp"
#include "tools/publication/plan.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/publication/signature.hpp"
#include "tools/publication/source_folder.hpp"

namespace zotconf {
namespace {

void copy_file(const publication_store &store, const fs::path &source, const published_file &file) {
  const fs::path path = source / file.category_name / file.key;
  const std::string bytes = read_file_text(path);
  if (bytes.size() != file.size || sha256_text(bytes) != file.checksum) {
    throw std::runtime_error(path.string() + ": changed while it was published");
  }
  store.write(file, bytes);
}

void write_files(const publication_store &store, const publish_options &options, plan &planned,
                 const console &where) {
  progress written(where, "writing", planned.next.files.size());
  for (const published_file &file : planned.next.files) {
    if (!store.holds(file)) {
      ++planned.written;
      if (!options.dry_run) {
        copy_file(store, options.source, file);
      }
    }
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

// The latest K; empty when it is missing or damaged.
manifest read_previous(const publication_store &store, const element &who, std::ostream &err) {
  const auto text = store.read_k(who);
  if (!text) {
    return {};
  }
  auto content = parse_manifest(*text);
  if (!content) {
    tell_warning(err, "the previous K of " + who.index + " is damaged and is replaced");
    return {};
  }
  return std::move(*content);
}

std::optional<signer> signer_of(const publish_options &options) {
  return options.sign_certificate.empty()
             ? std::nullopt
             : std::optional<signer>(std::in_place, options.sign_certificate, options.sign_key);
}

std::string render_for(const element &who, uint64_t sequence, manifest next) {
  next.who = who;
  next.sequence = sequence;
  return render_manifest(next);
}

// Above the one before, and above all of an element's past where its K was lost.
uint64_t sequence_after(uint64_t before) {
  return std::max(before + 1, static_cast<uint64_t>(std::max<std::time_t>(std::time(nullptr), 1)));
}

bool is_announced(const publication_store &store, const element &who, const std::string &k) {
  return store.read_k(who) == k && store.read_checksum(who) == sha256_text(k) + "\n";
}

void announce(const publication_store &store, const element &who, const plan &planned,
              const std::string &k, const std::optional<signer> &signs, std::ostream &err) {
  if (!signs && store.read_signature(who)) {
    tell_warning(err, "the previous K of " + who.index + " was signed, the new one is not",
                 "zotconf sign --help");
  }
  const auto signature = signs ? std::optional(signs->sign(k)) : std::nullopt;
  if (const size_t unmarked = store.announce(who, k, signature, planned.dropped()); unmarked > 0) {
    tell_warning(err, std::to_string(unmarked) +
                          " files that K no longer lists belong to another user: prune may remove "
                          "them before their grace period ends");
  }
}

// The same content keeps its K, for another text is another configuration to an element. Only a K
// without a sequence cannot be signed as it is.
outcome settle(const publication_store &store, const element &who, const manifest &previous,
               const plan &planned, const publish_options &options,
               const std::optional<signer> &signs, std::ostream &err) {
  const std::string same = render_for(who, previous.sequence, planned.next);
  const bool may_stay = !signs || previous.sequence != 0;
  if (planned.written > 0 || !may_stay || !is_announced(store, who, same)) {
    if (!options.dry_run) {
      announce(store, who, planned,
               render_for(who, sequence_after(previous.sequence), planned.next), signs, err);
    }
    return {.result = options.dry_run ? "would publish" : "published",
            .is_signed = signs.has_value()};
  }
  const auto signature = store.read_signature(who);
  if (signs && !options.dry_run && !(signature && signs->has_signed(same, *signature))) {
    store.write_signature(who, signs->sign(same));
  }
  return {.result = "unchanged", .is_signed = signs || signature};
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
  source_files source = scan_source(options.source, where);
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

void publish(const publish_options &options, const console &where) {
  const element who{.subsys = options.who.subsys, .index = upper_case(options.who.index)};
  const std::optional<signer> signs = signer_of(options);
  source_files source = read_source(options, where);
  publication_store store(options.publication);
  options.dry_run ? store.lock_to_read() : store.lock();
  const manifest previous = read_previous(store, who, where.err());
  warn_of_other_cluster(previous, options, where.err());
  plan planned = make_plan(store, previous,
                           {.cluster = options.cluster,
                            .config_id = options.config_id,
                            .firmware = options.firmware,
                            .files = std::move(source.files)});
  check_removals(planned, options.max_removed.value_or(planned.next.files.empty() ? 100 : 50),
                 options.source);
  write_files(store, options, planned, where);
  const outcome done = settle(store, who, previous, planned, options, signs, where.err());
  if (where.is_json()) {
    return write_summary(where, done, planned, source.left_out, options.dry_run);
  }
  if (options.dry_run) {
    print_changes(where, planned.changes);
  }
  print_summary(where, done, planned);
}

}  // namespace

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
