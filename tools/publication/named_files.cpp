// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/named_files.hpp"

#include <system_error>

#include "tools/model/manifest.hpp"
#include "tools/publication/publication_store.hpp"
#include "tools/publication/source_folder.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

// Throws when a K differs from its checksum file. A missing checksum file is accepted: an
// interrupted publisher may not have written it yet. No element uses such a K, but the files it
// names are known.
void check_announced(const fs::path &k, const std::string &bytes) {
  fs::path announcement = k;
  announcement.replace_extension(".checksum");
  const fs::file_status status = fs::symlink_status(announcement);
  if (!fs::exists(status)) {
    return;
  }
  if (!fs::is_regular_file(status)) {
    throw refusal(announcement, "is not a regular file");
  }
  if (read_file_text(announcement).substr(0, ZOT_CHECKSUM_LEN) != sha256_text(bytes)) {
    throw refusal(k, "does not match its checksum file", "zotconf show " + k.string());
  }
}

// What it announced is lost, and with it the names of files that elements may still request.
void check_announces_something(fs::path announcement) {
  const fs::path &k = announcement.replace_extension(".k");
  if (!is_there(k)) {
    throw refusal(k, "is missing, but its checksum file is there");
  }
}

void add_names(const fs::path &k, named_files &into) {
  const std::string bytes = read_file_text(k);
  check_announced(k, bytes);
  const auto content = parse_manifest(bytes);
  if (!content) {
    throw refusal(k, "is not a valid K", "zotconf show " + k.string());
  }
  for (const published_file &file : content->files) {
    const std::string version = std::to_string(file.version);
    const auto parts =
        split_member_name("config/" + file.category_name + "/" + file.key + "/" + version);
    if (!parts) {
      throw refusal(k, "lists a file whose path is not of the form /category/key/version");
    }
    into.names.insert(member_name((*parts)[1], (*parts)[2], version));
  }
  ++into.ks;
}

// Refuses a symbolic link: it may point to a K that another service publishes.
void add_entry(const fs::directory_entry &entry, named_files &into) {
  const fs::file_status status = entry.symlink_status();
  if (fs::is_symlink(status)) {
    throw refusal(entry.path(), "is a symbolic link");
  }
  if (fs::is_directory(status)) {
    return;
  }
  if (entry.path().extension() == ".checksum") {
    return check_announces_something(entry.path());
  }
  if (entry.path().extension() != ".k") {
    return;
  }
  if (!fs::is_regular_file(status)) {
    throw refusal(entry.path(), "is not a regular file");
  }
  add_names(entry.path(), into);
}

}  // namespace

std::string member_name(const std::string &category, const std::string &key,
                        const std::string &version) {
  return category + "/" + key + "/" + version;
}

void check_publication(const fs::path &publication) {
  for (const fs::path &folder : {publication / "file", publication / "file" / "knowledge"}) {
    if (!fs::is_directory(fs::symlink_status(folder))) {
      throw refusal(folder, "is not a folder; no K found", "zotconf publish --help");
    }
  }
}

named_files read_named_files(const fs::path &publication) {
  check_publication(publication);
  named_files found;
  try {
    for (const auto &entry : fs::recursive_directory_iterator(publication / "file" / "knowledge")) {
      add_entry(entry, found);
    }
  } catch (const std::system_error &error) {
    throw refusal(std::string("a K cannot be read: ") + error.what());
  }
  if (found.ks == 0) {
    throw refusal(publication, "contains no K", "zotconf publish --help");
  }
  return found;
}

}  // namespace zotconf
