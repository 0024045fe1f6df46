// SPDX-License-Identifier: Apache-2.0
#include "tools/element/cycle_report.hpp"

#include <algorithm>
#include <ostream>

#include "tools/output/error_text.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/output/text_table.hpp"

namespace zotconf {
namespace {

colour colour_of(change which) {
  switch (which) {
    case change::added:
      return colour::green;
    case change::modified:
      return colour::yellow;
    case change::deleted:
      return colour::red;
    default:
      return colour::none;
  }
}

uint64_t bytes_of(const entries &list) {
  uint64_t bytes = 0;
  for (const entry one : list) {
    bytes += one.bytes().size();
  }
  return bytes;
}

void print_entries(const console &where, std::string_view words, const entries &list) {
  text_table table({{"CATEGORY"}, {"KEY"}, {"STATUS"}, {"SIZE", align::right}});
  for (const entry one : list) {
    table.add_row({std::string(one.category_name()), printable(one.key()),
                   cell(std::string(name_of(one.change())), colour_of(one.change())),
                   std::to_string(one.bytes().size())});
  }
  table.print(where);
  where.out() << words << ": " << std::ranges::distance(list) << " entries";
  for (const change which : changes) {
    const auto count = std::ranges::count(list, which, &entry::change);
    if (count > 0) {
      where.out() << ", " << count << ' ' << name_of(which);
    }
  }
  where.out() << ", " << bytes_of(list) << " bytes\n";
}

void add_entries(json_node root, const entries &list) {
  json_node counts = root.object("counts");
  for (const change which : changes) {
    counts.set(std::string(name_of(which)).c_str(),
               std::ranges::count(list, which, &entry::change));
  }
  root.set("bytes", bytes_of(list));
  json_node items = root.array("entries");
  for (const entry one : list) {
    items.append()
        .set("category", one.category_name())
        .set("key", one.key())
        .set("status", name_of(one.change()))
        .set("size", one.bytes().size());
  }
}

}  // namespace

void tell_no_handle_to(std::ostream &err, const std::string &reason) {
  tell_error(err, "cannot create a handle: " + reason, "zotconf status");
}

void cycle_report::tell_entries(std::string_view key, std::string_view words, const entries &list) {
  if (!where_.is_json()) {
    print_entries(where_, words, list);
    return;
  }
  document_.root().set("result", key);
  add_entries(document_.root(), list);
}

void cycle_report::tell_metadata(const std::optional<metadata> &from) {
  if (!where_.is_json() || !from) {
    return;
  }
  const auto set = [this](const char *name, const std::string &text) {
    if (!text.empty()) {
      document_.root().set(name, text);
    }
  };
  set("config_id", from->config_id);
  set("cluster", from->cluster_id);
  set("firmware", from->firmware_version);
}

void cycle_report::tell_apply(const std::string &end) {
  if (where_.is_json()) {
    document_.root().set("apply", end);
  } else {
    where_.out() << "apply: " << end << '\n';
  }
}

void cycle_report::tell_verdict(std::string_view key, std::string_view words) {
  if (where_.is_json()) {
    document_.root().set("verdict", key);
  } else {
    where_.out() << words << '\n';
  }
}

void cycle_report::tell_undecided() {
  if (!where_.is_json()) {
    where_.out() << "neither committed nor rolled back (see --commit, --roll-back and --apply)\n";
  }
}

void cycle_report::tell_failure(std::string_view what, const status &found,
                                const std::string &hint) {
  tell_error(where_.err(),
             std::string(what) + ": " + found.text() + " (" + std::to_string(found.code()) + ")" +
                 (hint.empty() ? "" : ": ") + hint,
             command_after(found.code()));
  document_.root()
      .object("error")
      .set("call", what)
      .set("code", found.code())
      .set("name", found.name())
      .set("text", found.text());
}

void cycle_report::tell_no_handle(const std::string &reason) {
  tell_no_handle_to(where_.err(), reason);
  document_.root()
      .object("error")
      .set("call", "init")
      .set("text", reason)
      .set_missing({"code", "name"});
}

void cycle_report::finish() {
  if (where_.is_json()) {
    document_.root().set_missing({"result", "config_id", "cluster", "firmware", "counts", "bytes",
                                  "entries", "apply", "verdict", "error"});
    where_.out() << document_.text();
  }
}

}  // namespace zotconf
