// SPDX-License-Identifier: Apache-2.0
#include "tools/files/archive_reader.hpp"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <stdexcept>

namespace zotconf {
namespace {

struct reader_closer {
  void operator()(struct archive *reader) const { archive_read_free(reader); }
};
using reader_owner = std::unique_ptr<struct archive, reader_closer>;

constexpr size_t block_size = 65536;

[[noreturn]] void refuse(struct archive *reader) {
  const char *const text = archive_error_string(reader);
  throw std::runtime_error(std::string("cannot read the archive: ") +
                           (text != nullptr ? text : "unknown"));
}

reader_owner open_archive(const fs::path &path) {
  reader_owner reader(archive_read_new());
  if (reader == nullptr) {
    throw std::bad_alloc();
  }
  // The only formats that the service sends; no other parser is enabled.
  archive_read_support_filter_gzip(reader.get());
  archive_read_support_format_tar(reader.get());
  if (archive_read_open_filename(reader.get(), path.c_str(), block_size) != ARCHIVE_OK) {
    refuse(reader.get());
  }
  return reader;
}

std::string name_of(archive_entry *entry) {
  const char *const text = archive_entry_pathname(entry);
  std::string name = text != nullptr ? text : "";
  if (name.starts_with("./")) {
    name.erase(0, 2);
  }
  return name.substr(std::min(name.find_first_not_of('/'), name.size()));
}

bool is_plain_file(archive_entry *entry) {
  return archive_entry_filetype(entry) == AE_IFREG && archive_entry_hardlink(entry) == nullptr;
}

member_kind kind_of(archive_entry *entry) {
  if (is_plain_file(entry)) {
    return member_kind::file;
  }
  return archive_entry_filetype(entry) == AE_IFDIR ? member_kind::folder : member_kind::other;
}

archive_member described(archive_entry *entry) {
  const char *const name = archive_entry_pathname(entry);
  return {.name = name != nullptr ? name : "",
          .kind = kind_of(entry),
          .has_set_id = (archive_entry_perm(entry) & (S_ISUID | S_ISGID)) != 0};
}

// The next member, or null at the end.
archive_entry *next_member(struct archive *reader) {
  archive_entry *entry = nullptr;
  const int status = archive_read_next_header(reader, &entry);
  if (status != ARCHIVE_EOF && status < ARCHIVE_WARN) {
    refuse(reader);
  }
  return status != ARCHIVE_EOF ? entry : nullptr;
}

void take(struct archive *reader, const wanted_member &member) {
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
  zot::descriptor file(::open(member.to.c_str(), flags, 0644));
  if (!file.is_open()) {
    throw_errno("cannot create " + member.to.string());
  }
  std::array<char, block_size> chunk{};
  uint64_t room = member.longest + 1;
  while (room > 0) {
    const la_ssize_t got = archive_read_data(reader, chunk.data(), chunk.size());
    if (got < 0) {
      refuse(reader);
    }
    if (got == 0) {
      break;
    }
    const auto used = static_cast<size_t>(std::min<uint64_t>(static_cast<uint64_t>(got), room));
    write_all(file.get(), {chunk.data(), used}, member.to.string());
    room -= used;
  }
  if (file.close() != 0) {
    throw_errno("cannot write " + member.to.string());
  }
}

}  // namespace

std::vector<archive_member> members_of(const fs::path &archive, uint64_t longest) {
  const reader_owner reader = open_archive(archive);
  // A tar archive without compression is accepted too when it is opened.
  if (archive_filter_code(reader.get(), 0) != ARCHIVE_FILTER_GZIP) {
    throw std::runtime_error("cannot read the archive: it is not compressed with gzip");
  }
  std::vector<archive_member> members;
  while (archive_entry *const entry = next_member(reader.get())) {
    members.push_back(described(entry));
    if (archive_entry_size(entry) > static_cast<la_int64_t>(longest)) {
      throw std::runtime_error(members.back().name + " is larger than the whole archive may be");
    }
  }
  return members;
}

void unpack(const fs::path &archive, const std::map<std::string, wanted_member> &wanted) {
  const reader_owner reader = open_archive(archive);
  while (archive_entry *const entry = next_member(reader.get())) {
    const auto member = wanted.find(name_of(entry));
    if (member != wanted.end() && is_plain_file(entry)) {
      take(reader.get(), member->second);
    }
  }
}

}  // namespace zotconf
