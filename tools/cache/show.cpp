// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/show.hpp"

#include <algorithm>
#include <iterator>
#include <ostream>

#include "tools/cache/k_text.hpp"
#include "tools/cache/open_commit.hpp"
#include "tools/cache/source.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/output/text_table.hpp"

namespace zotconf {
namespace {

// The entries that the filter selects.
struct selection {
  std::vector<listed_file> files;
  uint64_t bytes = 0;
};

selection select(const stored_k &k, const entry_filter &filter) {
  selection chosen;
  for (const listed_file &file : k.files) {
    if (filter.takes(file)) {
      chosen.files.push_back(file);
      chosen.bytes += file.size;
    }
  }
  return chosen;
}

void write_json(const console &where, const stored_k &k, const selection &chosen) {
  json_document document;
  json_node root = document.root();
  set_k(root, k);
  root.set("shown_entries", chosen.files.size()).set("shown_bytes", chosen.bytes);
  json_node list = root.array("files");
  for (const listed_file &file : chosen.files) {
    list.append()
        .set("category", file.category_name)
        .set("category_number", file.category)
        .set("key", file.key)
        .set("version", file.version)
        .set("size", file.size)
        .set("checksum", file.checksum)
        .set("path", file.path);
  }
  where.out() << document.text();
}

void write_text(const console &where, const stored_k &k, const selection &chosen) {
  print_k(where, k);
  text_table table({{"CATEGORY"}, {"KEY"}, {"VERSION", align::right}, {"SIZE", align::right}});
  for (const listed_file &file : chosen.files) {
    table.add_row({file.category_name, printable(file.key), std::to_string(file.version),
                   std::to_string(file.size)});
  }
  where.out() << '\n';
  table.print(where);
  if (chosen.files.size() != k.files.size()) {
    where.out() << chosen.files.size() << " of ";
  }
  where.out() << counted(k.files.size(), "entry", "entries") << ", " << chosen.bytes << " bytes\n";
}

}  // namespace

int run_show(const show_options &options, const console &where) {
  const stored_k k = read_good_source(options.source, options.who);
  warn_of_open_commit({options.source}, where);
  const selection chosen = select(k, options.filter);
  if (where.is_json()) {
    write_json(where, k, chosen);
  } else {
    write_text(where, k, chosen);
  }
  return exit_success;
}

}  // namespace zotconf
