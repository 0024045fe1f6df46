// SPDX-License-Identifier: Apache-2.0
#include "tools/element/apply.hpp"

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "tools/output/json.hpp"

namespace zotconf {
namespace {

fs::path relative_path(const entry &one) {
  const std::string_view category = one.category_name();
  if (category.empty()) {
    throw std::runtime_error("category " + std::to_string(one.category()) + " has no name");
  }
  const std::string_view key = one.key();
  if (key.empty() || key == "." || key == ".." || key.find('/') != std::string_view::npos) {
    throw std::runtime_error("key \"" + std::string(key) + "\" cannot be a file name");
  }
  return fs::path(category) / key;
}

void set_variable(const char *name, const fs::path &path) {
  if (::setenv(name, fs::absolute(path).c_str(), 1) != 0) {
    throw_errno(std::string("cannot set ") + name);
  }
}

}  // namespace

void write_entries(const fs::path &folder, const entries &list) {
  fs::create_directories(folder);
  for (const entry one : list) {
    if (one.change() == change::deleted) {
      continue;
    }
    const fs::path path = folder / relative_path(one);
    fs::create_directories(path.parent_path());
    replace_file(path, one.text(), durability::buffered);
  }
}

change_line line_of(const entry &one) {
  change_line line{.category = std::string(one.category_name()),
                   .key = std::string(one.key()),
                   .what = one.change(),
                   .size = one.bytes().size()};
  if (one.change() != change::deleted) {
    line.path = relative_path(one);
  }
  return line;
}

std::vector<change_line> lines_of(const entries &list) {
  std::vector<change_line> lines;
  std::ranges::transform(list, std::back_inserter(lines), line_of);
  return lines;
}

void write_change_list(const fs::path &file, const std::vector<change_line> &changes,
                       const std::optional<metadata> &from) {
  const metadata known = from.value_or(metadata{});
  json_document document;
  document.root()
      .set("config_id", stated(known.config_id))
      .set("cluster", stated(known.cluster_id))
      .set("firmware", stated(known.firmware_version));
  json_node array = document.root().array("entries");
  for (const change_line &line : changes) {
    array.append()
        .set("category", line.category)
        .set("key", line.key)
        .set("status", name_of(line.what))
        .set("size", line.size)
        .set("path", line.path);
  }
  replace_file(file, document.text(), durability::buffered);
}

bool has_entry_in_force(const entries &list) {
  return std::ranges::any_of(list,
                             [](const entry &one) { return one.change() != change::deleted; });
}

command_end end_of_command(int status) {
  constexpr int cannot_run = 126;
  constexpr int not_found = 127;
  if (WIFSIGNALED(status)) {
    return {answer::none, "ended by signal " + std::to_string(WTERMSIG(status))};
  }
  const int code = WEXITSTATUS(status);
  const std::string text = "exit status " + std::to_string(code);
  if (code == 0) {
    return {answer::accepted, text};
  }
  if (code < cannot_run) {
    return {answer::refused, text};
  }
  const char *const why = code == cannot_run  ? ", a command cannot be run"
                          : code == not_found ? ", a command was not found"
                                              : ", a signal has ended a command";
  return {answer::none, text + why};
}

void export_paths(const fs::path &folder, const fs::path &change_list) {
  set_variable("ZOTCONF_DIR", folder);
  set_variable("ZOTCONF_CHANGES", change_list);
}

command_end run_command(const std::string &command, const fs::path &folder,
                        const fs::path &change_list) {
  export_paths(folder, change_list);
  const int status = std::system(command.c_str());
  if (status == -1) {
    throw_errno("cannot run " + command);
  }
  return end_of_command(status);
}

}  // namespace zotconf
