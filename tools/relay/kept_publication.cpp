// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/kept_publication.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <system_error>
#include <tuple>
#include <utility>

#include "tools/files/file_io.hpp"
#include "tools/relay/acceptance.hpp"

namespace zotconf {
namespace {

constexpr std::array kept_names = {kept_k, kept_checksum, kept_signature};

std::string temporary(const char *name) {
  return std::string(name) + ".new";
}

auto name_of(const published_file &file) {
  return std::tuple<std::string_view, std::string_view, uint64_t>(file.category_name, file.key,
                                                                  file.version);
}

std::vector<uint32_t> sorted_by_name(const std::vector<published_file> &files) {
  std::vector<uint32_t> sorted(files.size());
  std::iota(sorted.begin(), sorted.end(), 0U);
  std::ranges::stable_sort(sorted, {}, [&files](uint32_t at) { return name_of(files[at]); });
  return sorted;
}

// A file that cannot be read counts as one that is not there.
std::optional<std::string> text_of(const folder &own, const char *name) {
  const auto size = own.size_of(name);
  const zot::descriptor file = own.open(name);
  if (!size || *size > longest_k || !file.is_open()) {
    return std::nullopt;
  }
  try {
    return read_file_at(file.get(), name);
  } catch (const std::system_error &) {
    return std::nullopt;
  }
}

std::time_t time_of_k(const folder &own) {
  struct stat info {};
  const zot::descriptor file = own.open(kept_k);
  return file.is_open() && ::fstat(file.get(), &info) == 0 ? info.st_mtime : 0;
}

bool is_of(const manifest &content, const element &who) {
  return (content.who.subsys.empty() || content.who.subsys == who.subsys) &&
         (content.who.index.empty() || content.who.index == who.index);
}

}  // namespace

kept_publication make_publication(std::string_view k, std::optional<std::string> signature,
                                  manifest content) {
  kept_publication made{.digest = sha256_text(k),
                        .content = std::move(content),
                        .signature = std::move(signature),
                        .kept_since = std::time(nullptr),
                        .by_name = {}};
  made.by_name = sorted_by_name(made.content.files);
  return made;
}

const published_file *find_file(const kept_publication &where,
                                const std::vector<std::string> &parts) {
  const auto version = parts.size() == 4 ? parse_version(parts[3]) : std::nullopt;
  if (!version || parts[0] != "config") {
    return nullptr;
  }
  const auto &files = where.content.files;
  const std::tuple<std::string_view, std::string_view, uint64_t> wanted(parts[1], parts[2],
                                                                        *version);
  const auto at = std::ranges::lower_bound(
      where.by_name, wanted, {}, [&files](uint32_t index) { return name_of(files[index]); });
  return at != where.by_name.end() && name_of(files[*at]) == wanted ? &files[*at] : nullptr;
}

bool names_checksum(const kept_publication &where, const std::string &checksum) {
  const auto &files = where.content.files;
  return std::ranges::find(files, checksum, &published_file::checksum) != files.end();
}

std::optional<std::string> digest_of(const kept_publication &publication, std::string_view name) {
  if (name == kept_k) {
    return publication.digest;
  }
  if (name == kept_checksum) {
    return sha256_text(publication.digest + "\n");
  }
  return publication.signature ? std::optional(sha256_text(*publication.signature)) : std::nullopt;
}

std::optional<kept_publication> read_publication(const folder &own, const std::string &digest,
                                                 const element &who) {
  const auto k = text_of(own, kept_k);
  if (!k || text_of(own, kept_checksum) != digest + "\n" || sha256_text(*k) != digest) {
    return std::nullopt;
  }
  auto content = parse_manifest(*k, other_category::kept);
  if (!content || !is_of(*content, who)) {
    return std::nullopt;
  }
  kept_publication read = make_publication(*k, text_of(own, kept_signature), std::move(*content));
  read.kept_since = time_of_k(own);
  return read;
}

void write_beside(const folder &own, const kept_publication &publication, std::string_view k) {
  own.write(temporary(kept_k), k);
  own.stamp(temporary(kept_k), publication.kept_since);
  own.write(temporary(kept_checksum), publication.digest + "\n");
  if (publication.signature) {
    own.write(temporary(kept_signature), *publication.signature);
  }
}

void move_into_place(const folder &own, const kept_publication &publication) {
  if (publication.signature) {
    own.rename(temporary(kept_signature), own, kept_signature);
  } else {
    own.remove(kept_signature);
  }
  own.rename(temporary(kept_checksum), own, kept_checksum);
  own.rename(temporary(kept_k), own, kept_k);
  own.flush();
}

void remove_beside(const folder &own) {
  for (const char *const name : kept_names) {
    own.remove(temporary(name));
  }
}

void remove_publication(const folder &all, const std::string &digest) {
  if (const auto own = all.find(digest)) {
    own->remove(kept_k);
    for (const std::string &name : own->names()) {
      own->remove(name);
    }
  }
  all.remove(digest);
}

}  // namespace zotconf
