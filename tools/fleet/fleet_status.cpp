// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/fleet_status.hpp"

#include <ctime>

#include "tools/fleet/rollout_json.hpp"
#include "tools/fleet/rollout_page.hpp"
#include "tools/fleet/rollout_reader.hpp"
#include "tools/fleet/rollout_text.hpp"

namespace zotconf {

int run_fleet_status(const rollout_options &options, const console &where) {
  check_replaceable(options.html);
  const rollout found = read_rollout(options, where, std::time(nullptr));
  const rollout_verdict verdict =
      verdict_of(found.rows(), options.max_refused, options.min_in_force);
  if (!options.html.empty()) {
    replace_file(options.html, rollout_page(found, verdict), durability::buffered);
  }
  if (where.is_json()) {
    write_rollout_json(where, found, verdict);
  } else {
    print_rollout(where, found, verdict);
  }
  return verdict.status;
}

}  // namespace zotconf
