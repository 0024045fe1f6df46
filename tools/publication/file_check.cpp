// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/file_check.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include "tools/output/figures.hpp"
#include "tools/publication/publication_store.hpp"
#include "utilities/owner.hpp"

namespace zotconf {
namespace {

constexpr int folder_flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool is_shortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM;
}

file_fault fault_of_errno(const std::string &path) {
  const int error = errno;
  if (is_shortage(error)) {
    throw_errno("cannot open " + path);
  }
  if (error == ENOENT) {
    return {file_fault_kind::missing, path, "is missing"};
  }
  if (error == ELOOP || error == ENOTDIR) {
    return {file_fault_kind::not_regular, path, "is not a regular file"};
  }
  return {file_fault_kind::unreadable, path,
          "cannot be read: " + std::generic_category().message(error)};
}

// K lists its files by category, so the folder of a category is opened once.
class file_opener {
 public:
  explicit file_opener(const fs::path &publication)
      : config_(::open((publication / "config").c_str(), folder_flags)),
        config_error_(config_.is_open() ? 0 : errno) {}

  // Closed, with errno set, if a path component is missing or is a symbolic link.
  zot::descriptor open(const std::string &category, const std::string &key,
                       const std::string &version) {
    if (!enter(category)) {
      return zot::descriptor(-1);
    }
    const zot::descriptor folder(::openat(category_.get(), key.c_str(), folder_flags));
    if (!folder.is_open()) {
      return zot::descriptor(-1);
    }
    // A FIFO instead of the file must not block open().
    return zot::descriptor(
        ::openat(folder.get(), version.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  }

 private:
  bool enter(const std::string &category) {
    if (category_.is_open() && category == category_name_) {
      return true;
    }
    if (!config_.is_open()) {
      errno = config_error_;
      return false;
    }
    category_ = zot::descriptor(::openat(config_.get(), category.c_str(), folder_flags));
    category_name_ = category;
    return category_.is_open();
  }

  zot::descriptor config_;
  int config_error_;
  zot::descriptor category_{-1};
  std::string category_name_;
};

std::optional<file_fault> fault_of(file_opener &opener, const listed_file &file) {
  const auto parts = split_member_name("/config/" + file.path);
  if (!parts) {
    return file_fault{file_fault_kind::wrong_name, "config" + file.path,
                      "is not a name of the form config/category/key/version"};
  }
  const std::string path = "config/" + (*parts)[1] + "/" + (*parts)[2] + "/" + (*parts)[3];
  const zot::descriptor found = opener.open((*parts)[1], (*parts)[2], (*parts)[3]);
  struct stat info {};
  if (!found.is_open() || ::fstat(found.get(), &info) != 0) {
    return fault_of_errno(path);
  }
  if (!S_ISREG(info.st_mode)) {
    return file_fault{file_fault_kind::not_regular, path, "is not a regular file"};
  }
  if (!std::cmp_equal(info.st_size, file.size)) {
    return file_fault{file_fault_kind::wrong_size, path,
                      "has " + counted(static_cast<uint64_t>(info.st_size), "byte", "bytes") +
                          " instead of " + std::to_string(file.size)};
  }
  return std::nullopt;
}

}  // namespace

file_faults find_file_faults(const fs::path &publication, const std::vector<listed_file> &files) {
  file_opener opener(publication);
  file_faults found;
  for (const listed_file &file : files) {
    auto fault = fault_of(opener, file);
    if (!fault) {
      continue;
    }
    ++found.count;
    if (found.first.size() < file_faults::kept) {
      found.first.push_back(std::move(*fault));
    }
  }
  return found;
}

}  // namespace zotconf
