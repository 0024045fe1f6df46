// SPDX-License-Identifier: Apache-2.0
#include "tests/support/archive.hpp"

#include <archive.h>
#include <archive_entry.h>
#include <cjson/cJSON.h>

#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>

#include "utilities/owner.hpp"

namespace zot::test {
namespace {

using archive_writer = std::unique_ptr<archive, releaser<archive_write_free>>;
using archive_record = std::unique_ptr<archive_entry, releaser<archive_entry_free>>;

constexpr std::int64_t modification_time = 1700000000;

la_ssize_t append(archive *, void *target, const void *bytes, size_t size) {
  static_cast<std::string *>(target)->append(static_cast<const char *>(bytes), size);
  return static_cast<la_ssize_t>(size);
}

void require(archive *writer, int result) {
  if (result != ARCHIVE_OK) {
    const char *reason = archive_error_string(writer);
    throw std::runtime_error(reason != nullptr ? reason : "cannot write the archive");
  }
}

void set_type(archive_entry *entry, const member &item) {
  switch (item.type) {
    case member_type::file:
      archive_entry_set_filetype(entry, AE_IFREG);
      archive_entry_set_size(entry, static_cast<la_int64_t>(item.bytes.size()));
      break;
    case member_type::dir:
      archive_entry_set_filetype(entry, AE_IFDIR);
      break;
    case member_type::symlink:
      archive_entry_set_filetype(entry, AE_IFLNK);
      archive_entry_set_symlink(entry, item.target.c_str());
      break;
    case member_type::hardlink:
      archive_entry_set_filetype(entry, AE_IFREG);
      archive_entry_set_hardlink(entry, item.target.c_str());
      break;
    case member_type::fifo:
      archive_entry_set_filetype(entry, AE_IFIFO);
      break;
    case member_type::chardev:
      // Major 1, minor 3 is the null device.
      archive_entry_set_filetype(entry, AE_IFCHR);
      archive_entry_set_rdevmajor(entry, 1);
      archive_entry_set_rdevminor(entry, 3);
      break;
  }
}

void add(archive *writer, const member &item) {
  const archive_record entry(archive_entry_new());
  archive_entry_set_pathname(entry.get(), item.path.c_str());
  archive_entry_set_perm(entry.get(), static_cast<__LA_MODE_T>(item.mode));
  archive_entry_set_mtime(entry.get(), modification_time, 0);
  set_type(entry.get(), item);
  require(writer, archive_write_header(writer, entry.get()));
  if (item.type == member_type::file &&
      archive_write_data(writer, item.bytes.data(), item.bytes.size()) < 0) {
    require(writer, ARCHIVE_FATAL);
  }
}

}  // namespace

std::string make_tar_gz(const std::vector<member> &members) {
  std::string bytes;
  const archive_writer writer(archive_write_new());
  require(writer.get(), archive_write_add_filter_gzip(writer.get()));
  require(writer.get(), archive_write_set_format_pax_restricted(writer.get()));
  require(writer.get(), archive_write_open(writer.get(), &bytes, nullptr, append, nullptr));
  for (const member &item : members) {
    add(writer.get(), item);
  }
  require(writer.get(), archive_write_close(writer.get()));
  return bytes;
}

std::vector<std::string> requested_names(const std::string &body) {
  std::vector<std::string> names;
  if (body.empty()) {
    return names;
  }
  const json_tree request(cJSON_Parse(body.c_str()));
  const cJSON *files = cJSON_GetObjectItemCaseSensitive(request.get(), "files");
  if (!cJSON_IsArray(files)) {
    throw std::invalid_argument("a request without files");
  }
  for (const cJSON *name = files->child; name != nullptr; name = name->next) {
    if (!cJSON_IsString(name)) {
      throw std::invalid_argument("a file name that is no text");
    }
    names.emplace_back(name->valuestring);
  }
  return names;
}

std::string archive_of(const publication &published, const std::vector<std::string> &names) {
  const std::map<std::string, std::string> files = published.files();
  std::vector<member> members;
  for (const std::string &name : names) {
    const std::string path = std::filesystem::path("/" + name).lexically_normal().string();
    for (const auto &[published_path, bytes] : files) {
      if (path == "/config" + published_path) {
        members.push_back({.path = path.substr(1), .bytes = bytes});
      }
    }
  }
  return make_tar_gz(members);
}

}  // namespace zot::test
