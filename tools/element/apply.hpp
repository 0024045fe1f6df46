// SPDX-License-Identifier: Apache-2.0
// Applies the entries of a configuration: writes them below a folder and runs a command, whose exit
// status decides about commit or rollback.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "zot_conf.hpp"

namespace zotconf {

// Writes each entry's bytes to folder/<category>/<key>, except for deleted entries. Throws
// std::exception when an entry cannot be written.
void write_entries(const fs::path &folder, const entries &list);

struct change_line {
  std::string category;
  std::string key;
  change what = change::none;
  std::size_t size = 0;
  std::optional<std::string> path = {};  // relative to the folder of write_entries(); none: deleted
};

// Both throw std::exception when an entry cannot be written as a file.
change_line line_of(const entry &one);
std::vector<change_line> lines_of(const entries &list);

// Writes {"config_id", "cluster", "firmware", "entries": [{"category", "key", "status", "size",
// "path"}, …]}. Unknown values are null.
void write_change_list(const fs::path &file, const std::vector<change_line> &changes,
                       const std::optional<metadata> &from);

// Whether a list has an entry to pass to the command; false when all entries are deletions.
bool has_entry_in_force(const entries &list);

// The command's decision about a configuration: `none` when it could not run or was ended before it
// was done.
enum class answer { none, accepted, refused };

struct command_end {
  answer said = answer::none;
  std::string text;  // "exit status 7", "ended by signal 9"
};

// Interprets a status of waitpid(): exit status 0 accepts, 1 to 125 refuse. A shell exits with 126
// or 127 when it cannot run a command, and with a higher status when a signal ended it.
command_end end_of_command(int status);

// Sets ZOTCONF_DIR to the absolute path of `folder` and ZOTCONF_CHANGES to that of `change_list`.
void export_paths(const fs::path &folder, const fs::path &change_list);

// Runs a shell command and waits for its end. It finds the absolute path of `folder` in ZOTCONF_DIR
// and that of `change_list` in ZOTCONF_CHANGES.
command_end run_command(const std::string &command, const fs::path &folder,
                        const fs::path &change_list);

}  // namespace zotconf
