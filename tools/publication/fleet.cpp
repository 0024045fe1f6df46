// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/fleet.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/publication/announcement.hpp"
#include "tools/publication/element_update.hpp"
#include "tools/publication/fleet_report.hpp"
#include "tools/publication/fleet_source.hpp"
#include "tools/publication/source_folder.hpp"
#include "tools/publication/version_catalog.hpp"

namespace zotconf {
namespace {

struct new_file {
  const fs::path *folder;
  published_file file;
};

// The new K of one element. Its text is rendered when it is written, since all of them together do
// not fit in memory.
struct planned_k {
  size_t element = 0;  // its position in the source
  k_action action = k_action::keep;
  uint64_t sequence = 0;
  // The files, by their position, whose version is not the one in the source.
  std::vector<std::pair<size_t, uint64_t>> other_versions;
};

// What the elements have in common that a user should know.
struct fleet_warnings {
  std::vector<std::string> damaged;
  std::vector<std::string> other_cluster;
  std::vector<std::string> no_longer_signed;
};

class fleet_publication {
 public:
  fleet_publication(const publish_options &options, const console &where, publication_store &store,
                    fleet_source &source, const signer *signs)
      : options_(options), where_(where), store_(store), source_(source), signs_(signs) {}

  // Changes nothing in the publication folder.
  void prepare();
  void tell_warnings() const;
  void write();
  [[nodiscard]] fleet_report report();

 private:
  [[nodiscard]] element who(const fleet_element &each) const {
    return {.subsys = options_.who.subsys, .index = each.index};
  }
  void plan_element(version_catalog &catalog, size_t position, progress &compared);
  [[nodiscard]] manifest next_of(const std::vector<merged_file> &files) const;
  void note_warnings(const previous_k &previous, const element &who, const element_update &update);
  void note_files(const plan &planned, fleet_element &of);
  void note_k(size_t position, const std::vector<merged_file> &files, const plan &planned,
              const element_update &update);
  [[nodiscard]] std::string text_of(const planned_k &each);
  void write_files() const;
  void add_ks(announcement &next);

  const publish_options &options_;
  const console &where_;
  publication_store &store_;
  fleet_source &source_;
  const signer *signs_;

  std::vector<new_file> to_write_;
  std::vector<planned_k> ks_;
  std::vector<published_file> dropped_;
  std::unordered_set<std::string> dropped_names_;
  fleet_warnings warnings_;
  bool is_signed_ = true;
  fleet_report report_{};
};

void fleet_publication::prepare() {
  version_catalog catalog(store_);
  progress planned(where_, "planning", source_.elements.size(), "elements");
  const console quiet(where_.out(), where_.err());
  progress compared(quiet, "comparing", 0);
  for (size_t i = 0; i < source_.elements.size(); ++i) {
    try {
      plan_element(catalog, i, compared);
    } catch (const refusal &refused) {
      source_.refused.push_back({.index = source_.elements[i].index, .reason = refused.what()});
    }
    planned.advance();
  }
}

manifest fleet_publication::next_of(const std::vector<merged_file> &files) const {
  std::vector<published_file> copies;
  copies.reserve(files.size());
  for (const merged_file &each : files) {
    copies.push_back(*each.file);
  }
  return next_manifest(options_, std::move(copies));
}

void fleet_publication::plan_element(version_catalog &catalog, size_t position,
                                     progress &compared) {
  fleet_element &of = source_.elements[position];
  const std::vector<merged_file> files = merge(source_, of);
  const previous_k previous = read_previous(store_, who(of));
  const plan planned = make_plan(catalog, previous.content, next_of(files), compared);
  check_removals(planned, options_.max_removed.value_or(50), of.folder);
  const element_update update = update_of(store_, who(of), previous, planned, signs_);
  note_warnings(previous, who(of), update);
  note_files(planned, of);
  note_k(position, files, planned, update);
}

void fleet_publication::note_warnings(const previous_k &previous, const element &who,
                                      const element_update &update) {
  is_signed_ = is_signed_ && update.is_signed;
  if (previous.is_damaged) {
    warnings_.damaged.push_back(who.index);
  }
  if (!previous.content.cluster.empty() && previous.content.cluster != options_.cluster) {
    warnings_.other_cluster.push_back(who.index);
  }
  if (update.action == k_action::announce && signs_ == nullptr && store_.read_signature(who)) {
    warnings_.no_longer_signed.push_back(who.index);
  }
}

void fleet_publication::note_files(const plan &planned, fleet_element &of) {
  for (const published_file &file : planned.to_write) {
    const auto own = std::ranges::lower_bound(of.own, source_order(file), {}, source_order);
    const bool is_own = own != of.own.end() && source_order(*own) == source_order(file);
    to_write_.push_back({.folder = is_own ? &of.folder : &source_.common_folder, .file = file});
    report_.bytes += file.size;
  }
  for (const published_file &file : planned.dropped()) {
    const std::string name =
        file.category_name + "/" + file.key + "/" + std::to_string(file.version);
    if (dropped_names_.insert(name).second) {
      dropped_.push_back(file);
    }
  }
}

void fleet_publication::note_k(size_t position, const std::vector<merged_file> &files,
                               const plan &planned, const element_update &update) {
  if (update.action == k_action::keep) {
    return;
  }
  planned_k next{.element = position,
                 .action = update.action,
                 .sequence = update.sequence,
                 .other_versions = {}};
  for (size_t i = 0; i < files.size(); ++i) {
    const uint64_t version = planned.next.files[i].version;
    published_file &file = *files[i].file;
    if (file.version == 0) {
      file.version = version;
    }
    if (version == 0 || file.version != version) {
      next.other_versions.emplace_back(i, version);
    }
  }
  ks_.push_back(std::move(next));
  if (update.action == k_action::announce) {
    report_.changes.push_back({.index = source_.elements[position].index,
                               .added = planned.count("new"),
                               .changed = planned.count("changed"),
                               .same = planned.same,
                               .removed = planned.count("removed")});
  }
}

void tell_of(const console &where, const std::vector<std::string> &elements,
             const std::string &what, const std::string &command = "") {
  if (elements.empty()) {
    return;
  }
  const size_t others = elements.size() - 1;
  tell_warning(where.err(),
               elements.front() +
                   (others > 0 ? " and " + std::to_string(others) + " other elements: " : ": ") +
                   what,
               command);
}

void fleet_publication::tell_warnings() const {
  tell_of(where_, warnings_.damaged, "the previous K is damaged and is replaced");
  tell_of(
      where_, warnings_.other_cluster,
      "the cluster changes to \"" + options_.cluster + "\": elements mark every entry as modified");
  tell_of(where_, warnings_.no_longer_signed, "the previous K was signed, the new one is not",
          "zotconf sign --help");
}

std::string fleet_publication::text_of(const planned_k &each) {
  fleet_element &of = source_.elements[each.element];
  const std::vector<merged_file> files = merge(source_, of);
  manifest head = next_manifest(options_, {});
  head.who = who(of);
  head.sequence = each.sequence;
  manifest_text text(head);
  auto other = each.other_versions.begin();
  for (size_t i = 0; i < files.size(); ++i) {
    const published_file &file = *files[i].file;
    const bool is_other = other != each.other_versions.end() && other->first == i;
    text.add(file, is_other ? (other++)->second : file.version);
  }
  return text.finish();
}

void fleet_publication::write_files() const {
  progress written(where_, "writing", to_write_.size());
  for (const new_file &each : to_write_) {
    copy_source(store_, *each.folder, each.file);
    written.advance(each.file.size);
  }
}

void fleet_publication::add_ks(announcement &next) {
  progress written(where_, "writing K", ks_.size(), "elements");
  for (const planned_k &each : ks_) {
    const element of = who(source_.elements[each.element]);
    const std::string k = text_of(each);
    const auto signature = signs_ == nullptr ? std::nullopt : std::optional(signs_->sign(k));
    if (each.action == k_action::announce) {
      next.add(of, k, signature);
    } else {
      next.add_signature(of, *signature);
    }
    written.advance(k.size());
  }
}

void fleet_publication::write() {
  if (ks_.empty()) {
    return;
  }
  write_files();
  announcement next(store_);
  add_ks(next);
  progress announced(where_, "announcing", ks_.size(), "elements");
  const size_t unmarked = next.finish(dropped_, announced);
  announced.clear();
  if (unmarked > 0) {
    tell_warning(where_.err(),
                 std::to_string(unmarked) +
                     " files that no longer are in a K belong to another user: prune may remove "
                     "them before their grace period ends");
  }
}

fleet_report fleet_publication::report() {
  report_.is_signed = is_signed_;
  report_.published = report_.changes.size();
  report_.files = to_write_.size();
  return std::move(report_);
}

size_t count_elements(const fleet_source &source) {
  const auto is_element = [](const refused_part &each) { return !each.index.empty(); };
  const auto refused = std::ranges::count_if(source.refused, is_element);
  return source.elements.size() + static_cast<size_t>(refused);
}

fleet_report publish_source(const publish_options &options, const console &where,
                            fleet_source &source, const signer *signs) {
  publication_store store(options.publication);
  const bool may_write = source.refused.empty() && !options.dry_run;
  may_write ? store.lock() : store.lock_to_read();
  fleet_publication publication(options, where, store, source, signs);
  publication.prepare();
  if (!source.refused.empty()) {
    return {};
  }
  publication.tell_warnings();
  if (may_write) {
    publication.write();
  }
  return publication.report();
}

fleet_report publish_fleet(const publish_options &options, const console &where) {
  const std::optional<signer> signs = signer_of(options);
  check_apart(options.fleet, options.publication);
  fleet_source source = scan_fleet(options.fleet, where, options.part);
  const size_t elements = count_elements(source);
  fleet_report report = publish_source(options, where, source, signs ? &*signs : nullptr);
  report.dry_run = options.dry_run;
  report.elements = elements;
  report.fleet_size = options.part ? std::optional(source.fleet_size) : std::nullopt;
  report.left_out = std::move(source.left_out);
  report.refused = std::move(source.refused);
  return report;
}

}  // namespace

int run_fleet(const publish_options &options, const console &where) {
  fleet_report report;
  try {
    report = publish_fleet(options, where);
  } catch (const refusal &refused) {
    report.refused.push_back({.index = "", .reason = refused.what(), .command = refused.command()});
  }
  tell_fleet_problems(where, report);
  write_fleet_report(where, report);
  return report.refused.empty() ? exit_success : exit_refused;
}

}  // namespace zotconf
