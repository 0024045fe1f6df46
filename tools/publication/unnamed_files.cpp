// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/unnamed_files.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "tools/model/names.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

using open_folder = std::unique_ptr<DIR, zot::releaser<::closedir>>;

struct folder_entry {
  std::string name;
  struct stat info {};
};

// The result is not open when the path is a link or a file, or does not exist.
zot::descriptor open_folder_at(int parent, const std::string &name) {
  return zot::descriptor(
      ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

zot::descriptor open_known_folder(int parent, const std::string &name, const std::string &path) {
  zot::descriptor folder = open_folder_at(parent, name);
  if (!folder.is_open()) {
    throw_errno("cannot open " + path);
  }
  return folder;
}

std::vector<folder_entry> entries_of(int folder, const std::string &path) {
  zot::descriptor own = open_known_folder(folder, ".", path);
  const open_folder stream(::fdopendir(own.get()));
  if (stream == nullptr) {
    throw_errno("cannot read " + path);
  }
  own.release();
  std::vector<folder_entry> entries;
  errno = 0;
  for (const dirent *found = nullptr; (found = ::readdir(stream.get())) != nullptr; errno = 0) {
    folder_entry entry{.name = found->d_name};
    if (entry.name == "." || entry.name == "..") {
      continue;
    }
    if (::fstatat(folder, found->d_name, &entry.info, AT_SYMLINK_NOFOLLOW) != 0) {
      throw_errno("cannot look at " + path + "/" + entry.name);
    }
    entries.push_back(std::move(entry));
  }
  if (errno != 0) {
    throw_errno("cannot read " + path);
  }
  std::ranges::sort(entries, {}, &folder_entry::name);
  return entries;
}

// The version of a file, unless it is the maximum: if that were marked as spent, no version would
// be left.
std::optional<uint64_t> version_of_file(const folder_entry &entry) {
  const auto version = parse_version(entry.name);
  const bool is_version = S_ISREG(entry.info.st_mode) && version &&
                          std::to_string(*version) == entry.name &&
                          *version < std::numeric_limits<uint64_t>::max();
  return is_version ? version : std::nullopt;
}

bool is_category(const folder_entry &entry) {
  int32_t category = 0;
  return S_ISDIR(entry.info.st_mode) && get_gpb_cat_by_cat_str(entry.name.c_str(), &category) == 0;
}

using moment = std::pair<time_t, long>;  // seconds and nanoseconds since the epoch

// A file can have a time that is out of range for a chrono clock.
moment time_of_file(const struct stat &info) {
  return {info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

moment moment_before_now(std::chrono::milliseconds distance) {
  const auto then = std::chrono::system_clock::now() - distance;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(then);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(then - seconds);
  return {std::chrono::system_clock::to_time_t(seconds), static_cast<long>(rest.count())};
}

class unnamed_finder {
 public:
  unnamed_finder(const named_files &named, std::chrono::milliseconds grace)
      : named_(named), has_grace_(grace.count() > 0), end_of_grace_(moment_before_now(grace)) {}

  unnamed_files find(const fs::path &publication) {
    const zot::descriptor root(::open(publication.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root.is_open()) {
      throw_errno("cannot open " + publication.string());
    }
    const zot::descriptor config = open_folder_at(root.get(), "config");
    if (config.is_open()) {
      look_into_config(config.get());
    } else if (errno != ENOENT) {
      found_.left_alone.emplace_back("config");
    }
    return std::move(found_);
  }

 private:
  void look_into_config(int config) {
    for (const folder_entry &entry : entries_of(config, "config")) {
      if (is_category(entry)) {
        look_into_category(config, entry.name);
      } else {
        found_.left_alone.push_back("config/" + entry.name);
      }
    }
  }

  void look_into_category(int config, const std::string &name) {
    const std::string path = "config/" + name;
    const zot::descriptor folder = open_known_folder(config, name, path);
    stored_category category{.name = name, .objects = {}, .becomes_empty = true};
    for (const folder_entry &entry : entries_of(folder.get(), path)) {
      if (!S_ISDIR(entry.info.st_mode)) {
        found_.left_alone.push_back(path + "/" + entry.name);
        category.becomes_empty = false;
        continue;
      }
      stored_object object = look_into_object(folder.get(), name, entry.name);
      category.becomes_empty = category.becomes_empty && object.becomes_empty;
      if (object.becomes_empty || !object.unnamed.empty()) {
        category.objects.push_back(std::move(object));
      }
    }
    found_.folders += category.becomes_empty ? 1 : 0;
    found_.categories.push_back(std::move(category));
  }

  stored_object look_into_object(int category, const std::string &category_name,
                                 const std::string &key) {
    const std::string path = "config/" + category_name + "/" + key;
    const zot::descriptor folder = open_known_folder(category, key, path);
    stored_object object{.key = key, .unnamed = {}};
    uint64_t highest = 0;
    const auto entries = entries_of(folder.get(), path);
    for (const folder_entry &entry : entries) {
      const auto version = version_of_file(entry);
      if (!version) {
        found_.left_alone.push_back(path + "/" + entry.name);
        continue;
      }
      highest = std::max(highest, *version);
      if (may_go(entry, member_name(category_name, key, entry.name))) {
        object.unnamed.push_back(
            {.version = *version, .size = static_cast<uint64_t>(entry.info.st_size)});
      }
    }
    object.becomes_empty = object.unnamed.size() == entries.size();
    found_.folders += object.becomes_empty ? 1 : 0;
    if (std::ranges::count(object.unnamed, highest, &stored_version::version) > 0) {
      found_.highest = std::max(found_.highest, highest);
    }
    return object;
  }

  bool may_go(const folder_entry &entry, const std::string &name) {
    const auto size = static_cast<uint64_t>(entry.info.st_size);
    if (named_.names.contains(name)) {
      found_.named.add(size);
      return false;
    }
    const bool is_young = has_grace_ && time_of_file(entry.info) > end_of_grace_;
    (is_young ? found_.young : found_.removable).add(size);
    return !is_young;
  }

  const named_files &named_;
  bool has_grace_;
  moment end_of_grace_;
  unnamed_files found_;
};

// A folder that has received a new file in the meantime stays.
void remove_folder(int parent, const std::string &name) {
  if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOTEMPTY &&
      errno != EEXIST && errno != ENOENT) {
    throw_errno("cannot remove the folder " + name);
  }
}

void remove_object(int category, const std::string &category_name, const stored_object &object,
                   const std::function<void(uint64_t)> &removed) {
  const std::string path = "config/" + category_name + "/" + object.key;
  const zot::descriptor folder = open_known_folder(category, object.key, path);
  for (const stored_version &file : object.unnamed) {
    const std::string name = std::to_string(file.version);
    if (::unlinkat(folder.get(), name.c_str(), 0) != 0 && errno != ENOENT) {
      throw_errno("cannot remove " + (fs::path(path) / name).string());
    }
    removed(file.size);
  }
  if (object.becomes_empty) {
    remove_folder(category, object.key);
  }
}

}  // namespace

unnamed_files find_unnamed(const fs::path &publication, const named_files &named,
                           std::chrono::milliseconds grace) {
  return unnamed_finder(named, grace).find(publication);
}

void remove_unnamed(const fs::path &publication, const unnamed_files &found,
                    const std::function<void(uint64_t)> &removed) {
  const fs::path path = publication / "config";
  const zot::descriptor config = open_folder_at(AT_FDCWD, path.string());
  for (const stored_category &category : found.categories) {
    const zot::descriptor folder =
        open_known_folder(config.get(), category.name, "config/" + category.name);
    for (const stored_object &object : category.objects) {
      remove_object(folder.get(), category.name, object, removed);
    }
    if (category.becomes_empty) {
      remove_folder(config.get(), category.name);
    }
  }
}

}  // namespace zotconf
