// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publish.hpp"

#include <algorithm>
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

void print_summary(const console &where, const char *result, const plan &planned) {
  where.out() << result << ": " << planned.next.files.size() << " files, " << planned.count("new")
              << " new, " << planned.count("changed") << " changed, " << planned.same << " same, "
              << planned.count("removed") << " removed, " << size_of(planned.next.files)
              << " bytes\n";
}

void write_summary(const console &where, const char *result, const plan &planned,
                   const std::vector<fs::path> &left_out, bool dry_run) {
  json_document document;
  json_node root = document.root();
  std::string word = result;
  std::ranges::replace(word, ' ', '_');
  root.set("result", word)
      .set("files", planned.next.files.size())
      .set("new", planned.count("new"))
      .set("changed", planned.count("changed"))
      .set("same", planned.same)
      .set("removed", planned.count("removed"))
      .set("bytes", size_of(planned.next.files))
      .set("written", planned.written);
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

void announce(const publication_store &store, const element &who, const plan &planned,
              const std::string &k, std::ostream &err) {
  if (const size_t unmarked = store.announce(who, k, planned.dropped()); unmarked > 0) {
    tell_warning(err, std::to_string(unmarked) +
                          " files that K no longer names belong to another user: prune may remove "
                          "them before their grace is over");
  }
}

source_files read_source(const publish_options &options, const console &where) {
  check_apart(options.source, options.publication);
  source_files source = scan_source(options.source, where);
  for (const fs::path &path : source.left_out) {
    if (!where.is_json()) {
      where.err() << "zotconf: left out: " << printable(path.string()) << '\n';
    }
  }
  if (source.files.empty() && !options.allow_empty) {
    throw refusal(options.source,
                  "holds no file to publish; see --allow-empty to remove all entries",
                  "zotconf publish --help");
  }
  return source;
}

void publish(const publish_options &options, const console &where) {
  const element who{.subsys = options.who.subsys, .index = upper_case(options.who.index)};
  source_files source = read_source(options, where);
  publication_store store(options.publication);
  options.dry_run ? store.lock_to_read() : store.lock();
  plan planned = make_plan(store, read_previous(store, who, where.err()),
                           {.cluster = options.cluster,
                            .config_id = options.config_id,
                            .firmware = options.firmware,
                            .files = std::move(source.files)});
  check_removals(planned, options.max_removed.value_or(planned.next.files.empty() ? 100 : 50),
                 options.source);
  write_files(store, options, planned, where);
  const std::string k = render_manifest(planned.next);
  const char *result = options.dry_run ? "would publish" : "published";
  if (planned.written == 0 && store.read_k(who) == k &&
      store.read_checksum(who) == sha256_text(k) + "\n") {
    result = "unchanged";
  } else if (!options.dry_run) {
    announce(store, who, planned, k, where.err());
  }
  if (where.is_json()) {
    return write_summary(where, result, planned, source.left_out, options.dry_run);
  }
  if (options.dry_run) {
    print_changes(where, planned.changes);
  }
  print_summary(where, result, planned);
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
