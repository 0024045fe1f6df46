// SPDX-License-Identifier: Apache-2.0
// The data of the status page as JSON.
#pragma once

#include "tools/files/file_io.hpp"
#include "tools/output/json.hpp"
#include "tools/service/element_log.hpp"
#include "tools/service/publication_view.hpp"
#include "tools/service/status_rows.hpp"

namespace zotconf {

// Sets "look", "problem", "counts", "page", "fetches" and "elements".
void describe_page(json_node into, const publication_view::snapshot &published,
                   const row_page &page, const element_log &log, const fs::path &folder);

// Describes one element with its categories and the files that are missing or wrong.
void describe_details(json_node into, const status_row &row, const fs::path &folder);

}  // namespace zotconf
