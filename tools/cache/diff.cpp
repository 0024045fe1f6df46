// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/diff.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <new>
#include <ostream>
#include <stdexcept>

#include "tools/cache/k_text.hpp"
#include "tools/cache/open_commit.hpp"
#include "tools/cache/source.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/output/text_table.hpp"

namespace zotconf {
namespace {

struct mark_text {
  uint32_t mark;
  const char *name;
  colour with;
};

constexpr std::array<mark_text, 4> marks = {{{ZOT_STAT_ADDED, "added", colour::green},
                                             {ZOT_STAT_MODIFIED, "modified", colour::yellow},
                                             {ZOT_STAT_DELETED, "deleted", colour::red},
                                             {ZOT_STAT_UNCHANGED, "unchanged", colour::dim}}};

const mark_text &text_of(uint32_t mark) {
  const auto *const found = std::ranges::find(marks, mark, &mark_text::mark);
  if (found == marks.end()) {
    throw std::logic_error("invalid mark");
  }
  return *found;
}

// Owns a list of the library's records.
class record_list {
 public:
  explicit record_list(judge &by) : by_(by) { zot_list_init(&head_); }
  record_list(const record_list &) = delete;
  record_list &operator=(const record_list &) = delete;
  ~record_list() { zot_priv_free_gpb_list(by_.handle(), &head_); }

  void add(const listed_file &file) {
    zot_gpb *const gpb =
        zot_priv_gpb_new(file.path.c_str(), static_cast<uint32_t>(file.size), file.category,
                         file.checksum.c_str(), file.key.c_str(), file.version);
    if (gpb == nullptr) {
      throw std::bad_alloc();
    }
    list_add_tail(&head_, &gpb->node);
  }

  zot_list *head() { return &head_; }

  [[nodiscard]] std::vector<uint32_t> stats() const {
    std::vector<uint32_t> result;
    for (const zot_list *node = head_.next; node != &head_; node = node->next) {
      result.push_back(gpb_of(node).stat);
    }
    return result;
  }

 private:
  judge &by_;
  zot_list head_{};
};

zot_k record_of(const stored_k &k) {
  zot_k record{};
  k.cluster.copy(record.meta.cluster_id, ZOT_UUID_LEN);
  return record;
}

// The marks of the merged entries, in the order of the entries.
std::vector<uint32_t> marks_of(const stored_k &from, const stored_k &to) {
  judge by;
  record_list before(by);
  record_list after(by);
  record_list merged(by);
  std::ranges::for_each(from.files, [&](const listed_file &file) { before.add(file); });
  std::ranges::for_each(to.files, [&](const listed_file &file) { after.add(file); });
  zot_k from_k = record_of(from);
  zot_k to_k = record_of(to);
  const int status = zot_priv_build_full_diff_gpb_list(by.handle(), &from_k, &to_k, before.head(),
                                                       after.head(), merged.head());
  if (status != ZOT_OK) {
    throw std::runtime_error(described(by.recorded(status)));
  }
  return merged.stats();
}

struct totals {
  std::array<uint64_t, marks.size()> entries{};  // in the order of `marks`
  uint64_t bytes_before = 0;
  uint64_t bytes_after = 0;

  void count(const difference &each) {
    ++entries.at(static_cast<size_t>(&text_of(each.mark) - marks.data()));
    bytes_before += each.before ? each.before->size : 0;
    bytes_after += each.after ? each.after->size : 0;
  }
  [[nodiscard]] uint64_t changes() const { return entries[0] + entries[1] + entries[2]; }
};

struct report {
  stored_k from;
  stored_k to;
  std::vector<difference> entries;
  std::map<int32_t, totals> categories;
  totals sum;

  [[nodiscard]] bool other_cluster() const { return from.cluster != to.cluster; }
};

report compare(const diff_options &options) {
  report found{.from = read_good_source(options.from, options.who),
               .to = read_good_source(options.to, options.who),
               .entries = {},
               .categories = {},
               .sum = {}};
  for (difference &each : differences(found.from, found.to)) {
    if (!options.filter.takes(each.entry())) {
      continue;
    }
    found.categories[each.entry().category].count(each);
    found.sum.count(each);
    if (options.all || each.mark != ZOT_STAT_UNCHANGED) {
      found.entries.push_back(std::move(each));
    }
  }
  return found;
}

template <class T>
std::optional<T> member_of(const std::optional<listed_file> &file, T published_file::*member) {
  return file ? std::optional<T>((*file).*member) : std::nullopt;
}

void set_totals(json_node into, const totals &of) {
  for (size_t i = 0; i < marks.size(); ++i) {
    into.set(marks.at(i).name, of.entries.at(i));
  }
  into.set("bytes_before", of.bytes_before).set("bytes_after", of.bytes_after);
}

void write_json(const console &where, const report &found) {
  json_document document;
  json_node root = document.root();
  set_k(root.object("from"), found.from);
  set_k(root.object("to"), found.to);
  root.set("other_cluster", found.other_cluster()).set("different", found.sum.changes() > 0);
  json_node list = root.array("entries");
  for (const difference &each : found.entries) {
    list.append()
        .set("status", text_of(each.mark).name)
        .set("category", each.entry().category_name)
        .set("key", each.entry().key)
        .set("old_version", member_of(each.before, &published_file::version))
        .set("new_version", member_of(each.after, &published_file::version))
        .set("old_size", member_of(each.before, &published_file::size))
        .set("new_size", member_of(each.after, &published_file::size));
  }
  json_node categories = root.array("categories");
  for (const auto &[category, of] : found.categories) {
    set_totals(categories.append().set("category", zot_util_cat2str(category)), of);
  }
  set_totals(root.object("total"), found.sum);
  where.out() << document.text();
}

std::string step(const std::optional<uint64_t> &before, const std::optional<uint64_t> &after) {
  const auto text = [](const std::optional<uint64_t> &value) {
    return value ? std::to_string(*value) : "-";
  };
  return before == after ? text(before) : text(before) + " -> " + text(after);
}

void print_entries(const console &where, const report &found) {
  text_table table(
      {{"STATUS"}, {"CATEGORY"}, {"KEY"}, {"VERSION", align::right}, {"SIZE", align::right}});
  for (const difference &each : found.entries) {
    const mark_text &mark = text_of(each.mark);
    table.add_row({{mark.name, mark.with},
                   each.entry().category_name,
                   printable(each.entry().key),
                   step(member_of(each.before, &published_file::version),
                        member_of(each.after, &published_file::version)),
                   step(member_of(each.before, &published_file::size),
                        member_of(each.after, &published_file::size))});
  }
  table.print(where);
}

std::vector<cell> totals_row(const std::string &name, const totals &of) {
  std::vector<cell> row = {name};
  for (const uint64_t number : of.entries) {
    row.emplace_back(std::to_string(number));
  }
  row.emplace_back(std::to_string(of.bytes_before));
  row.emplace_back(std::to_string(of.bytes_after));
  return row;
}

void print_totals(const console &where, const report &found) {
  text_table table({{"CATEGORY"},
                    {"ADDED", align::right},
                    {"MODIFIED", align::right},
                    {"DELETED", align::right},
                    {"UNCHANGED", align::right},
                    {"BYTES BEFORE", align::right},
                    {"BYTES AFTER", align::right}});
  for (const auto &[category, of] : found.categories) {
    table.add_row(totals_row(zot_util_cat2str(category), of));
  }
  table.add_row(totals_row("total", found.sum));
  table.print(where);
}

void write_text(const console &where, const report &found, bool stat) {
  if (found.other_cluster()) {
    where.out() << "other cluster: \"" << printable(found.from.cluster) << "\" -> \""
                << printable(found.to.cluster) << "\"; equal entries count as modified\n";
  }
  if (stat) {
    return print_totals(where, found);
  }
  print_entries(where, found);
  const char *between = "";
  for (size_t i = 0; i < marks.size(); ++i) {
    where.out() << between << found.sum.entries.at(i) << ' ' << marks.at(i).name;
    between = ", ";
  }
  where.out() << "; " << found.sum.bytes_before << " -> " << found.sum.bytes_after << " bytes\n";
}

}  // namespace

std::vector<difference> differences(const stored_k &from, const stored_k &to) {
  std::vector<difference> result;
  auto before = from.files.begin();
  auto after = to.files.begin();
  for (const uint32_t mark : marks_of(from, to)) {
    difference each{.mark = mark, .before = {}, .after = {}};
    if (mark != ZOT_STAT_ADDED) {
      each.before = *before++;
    }
    if (mark != ZOT_STAT_DELETED) {
      each.after = *after++;
    }
    result.push_back(std::move(each));
  }
  return result;
}

int run_diff(const diff_options &options, const console &where) {
  const report found = compare(options);
  warn_of_open_commit({options.from, options.to}, where);
  if (where.is_json()) {
    write_json(where, found);
  } else {
    write_text(where, found, options.stat);
  }
  return options.exit_code && found.sum.changes() > 0 ? exit_different : exit_success;
}

}  // namespace zotconf
