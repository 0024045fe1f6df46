// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/fleet_source.hpp"

#include <algorithm>
#include <map>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/model/names.hpp"
#include "tools/publication/source_folder.hpp"

namespace zotconf {
namespace {

constexpr const char *common_name = "common";
constexpr const char *elements_name = "elements";
constexpr const char *removed_name = "removed";

// A link could lead to a file that is published already, or to another element.
bool is_real_folder(const fs::path &path) {
  return fs::is_directory(fs::symlink_status(path));
}

// Runs a step that may be refused, and notes why if it is. Returns whether it was done.
template <class Step>
bool attempt(fleet_source &source, const std::string &index, Step step) {
  try {
    step();
    return true;
  } catch (const refusal &refused) {
    source.refused.push_back({.index = index, .reason = refused.what()});
  } catch (const std::system_error &unreadable) {
    source.refused.push_back({.index = index, .reason = unreadable.what()});
  }
  return false;
}

void add_left_out(fleet_source &source, const std::vector<fs::path> &paths) {
  source.left_out.insert(source.left_out.end(), paths.begin(), paths.end());
}

// A misspelt folder would publish a fleet without its common files.
void check_parts(const fs::path &folder, fleet_source &source) {
  for (const auto &entry : fs::directory_iterator(folder)) {
    const fs::path name = entry.path().filename();
    if (name == common_name || name == elements_name) {
      if (!is_real_folder(entry.path())) {
        throw refusal(entry.path(), "is not a folder");
      }
    } else if (is_left_out(name) || !entry.is_directory()) {
      source.left_out.push_back(entry.path());
    } else {
      throw refusal(entry.path(), "is neither common nor elements", "zotconf publish --help");
    }
  }
  if (!is_there(folder / elements_name)) {
    throw refusal(folder, "contains no folder elements", "zotconf publish --help");
  }
}

void scan_common(fleet_source &source, progress &read) {
  if (!is_there(source.common_folder)) {
    return;
  }
  source.is_common_known = attempt(source, "", [&] {
    source_files found = scan_source(source.common_folder, read);
    source.common = std::move(found.files);
    add_left_out(source, found.left_out);
  });
}

size_t find_common(const fleet_source &source, std::string_view line) {
  const size_t slash = line.find('/');
  if (slash == std::string_view::npos) {
    return source.common.size();
  }
  const auto is_it = [category = line.substr(0, slash),
                      key = line.substr(slash + 1)](const published_file &file) {
    return file.key == key && file.category_name == category;
  };
  return static_cast<size_t>(std::ranges::find_if(source.common, is_it) - source.common.begin());
}

void read_removed(const fleet_source &source, fleet_element &to) {
  const fs::path path = to.folder / removed_name;
  if (!is_there(path)) {
    return;
  }
  if (!fs::is_regular_file(fs::symlink_status(path))) {
    throw refusal(path, "is not a regular file");
  }
  const std::string text = read_file_text(path);
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (line.empty()) {
      continue;
    }
    const size_t at = find_common(source, line);
    if (at == source.common.size()) {
      throw refusal(path, "\"" + std::string(line) + "\" is not a file of common");
    }
    to.removed.push_back(at);
  }
  std::ranges::sort(to.removed);
}

fleet_element scan_element(fleet_source &source, const std::string &index, const fs::path &folder,
                           progress &read) {
  if (!is_real_folder(folder)) {
    throw refusal(folder, "is not a folder");
  }
  if (const std::string wrong = check_index(folder.filename().string()); !wrong.empty()) {
    throw refusal(folder, "the name is no index: it " + wrong);
  }
  source_files found = scan_source(folder, read, removed_name);
  add_left_out(source, found.left_out);
  fleet_element result{
      .index = index, .folder = folder, .own = std::move(found.files), .removed = {}};
  if (!source.is_common_known) {
    return result;
  }
  read_removed(source, result);
  if (merge(source, result).empty()) {
    throw refusal(folder, "the element has no file to publish");
  }
  return result;
}

// The folders of elements by index. Of two that differ in the case of letters only, none is right.
std::multimap<std::string, fs::path> element_folders(const fs::path &folder, fleet_source &source) {
  std::multimap<std::string, fs::path> found;
  for (const auto &entry : fs::directory_iterator(folder)) {
    if (is_left_out(entry.path())) {
      source.left_out.push_back(entry.path());
    } else {
      found.emplace(upper_case(entry.path().filename().string()), entry.path());
    }
  }
  return found;
}

// Counts the elements, and removes those outside the wave.
void choose_elements(std::multimap<std::string, fs::path> &folders, const fs::path &folder,
                     const std::optional<wave> &part, fleet_source &source) {
  std::vector<std::string> indexes;
  for (const auto &[index, path] : folders) {
    indexes.push_back(index);
  }
  source.fleet_size = indexes.size();
  if (part) {
    part->check(indexes, folder);
    std::erase_if(folders, [&](const auto &each) { return !part->contains(each.first); });
  }
}

void scan_elements(const fs::path &folder, fleet_source &source, const std::optional<wave> &part,
                   progress &read) {
  auto folders = element_folders(folder, source);
  if (folders.empty()) {
    throw refusal(folder, "contains no element");
  }
  choose_elements(folders, folder, part, source);
  for (const auto &[index, path] : folders) {
    attempt(source, index, [&, &index = index, &path = path] {
      if (folders.count(index) > 1) {
        throw refusal(path, "another folder is the same element, " + index);
      }
      source.elements.push_back(scan_element(source, index, path, read));
    });
  }
}

}  // namespace

fleet_source scan_fleet(const fs::path &folder, const console &where,
                        const std::optional<wave> &part) {
  fleet_source source;
  source.common_folder = folder / common_name;
  check_parts(folder, source);
  progress read(where, "reading", 0);
  scan_common(source, read);
  scan_elements(folder / elements_name, source, part, read);
  std::ranges::sort(source.left_out);
  return source;
}

std::vector<merged_file> merge(fleet_source &source, fleet_element &of) {
  std::vector<merged_file> result;
  result.reserve(source.common.size() + of.own.size());
  auto own = of.own.begin();
  for (size_t i = 0; i < source.common.size(); ++i) {
    published_file &shared = source.common[i];
    for (; own != of.own.end() && source_order(*own) < source_order(shared); ++own) {
      result.push_back({.file = &*own, .folder = &of.folder});
    }
    const bool is_own = own != of.own.end() && source_order(*own) == source_order(shared);
    if (!is_own && !std::ranges::binary_search(of.removed, i)) {
      result.push_back({.file = &shared, .folder = &source.common_folder});
    }
  }
  for (; own != of.own.end(); ++own) {
    result.push_back({.file = &*own, .folder = &of.folder});
  }
  return result;
}

}  // namespace zotconf
