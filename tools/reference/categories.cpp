// SPDX-License-Identifier: Apache-2.0
#include "tools/reference/categories.hpp"

#include <ostream>

#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/output/text_table.hpp"
#include "zot_conf.h"

namespace zotconf {

int run_categories(const categories_options & /*options*/, const console &where) {
  text_table table({{"NUMBER", align::right}, {"NAME"}});
  json_document document;
  json_node list = document.root().array("categories");
  for (int32_t category = 0; category < ZOT_CAT_COUNT; ++category) {
    const char *const name = zot_util_cat2str(category);
    table.add_row({std::to_string(category), name});
    list.append().set("number", category).set("name", name);
  }
  if (where.is_json()) {
    where.out() << document.text();
  } else {
    table.print(where);
  }
  return exit_success;
}

}  // namespace zotconf
