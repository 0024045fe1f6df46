// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/announcement.hpp"

#include <algorithm>
#include <system_error>

#include "tools/files/file_io.hpp"

namespace zotconf {
namespace {

constexpr const char *k_suffix = ".k";
constexpr const char *checksum_suffix = ".checksum";
constexpr const char *signature_suffix = ".k.p7s";

void rename_into_place(const fs::path &path) {
  fs::rename(temporary_beside(path), path);
}

}  // namespace

announcement::~announcement() {
  for (size_t i = announced_; i < added_.size(); ++i) {
    for (const char *const suffix : {signature_suffix, k_suffix, checksum_suffix}) {
      std::error_code ignored;
      fs::remove(temporary_beside(latest_file(store_.root(), added_[i].who, suffix)), ignored);
    }
  }
}

void announcement::write(const element &who, const char *suffix, std::string_view bytes) const {
  write_beside(latest_file(store_.root(), who, suffix), bytes, durability::buffered);
}

void announcement::add(const element &who, std::string_view k,
                       const std::optional<std::string> &signature) {
  fs::create_directories(latest_file(store_.root(), who, k_suffix).parent_path());
  added_.push_back({.who = who, .has_k = true, .has_signature = signature.has_value()});
  if (signature) {
    write(who, signature_suffix, *signature);
  }
  write(who, k_suffix, k);
  write(who, checksum_suffix, sha256_text(k) + "\n");
}

void announcement::add_signature(const element &who, std::string_view signature) {
  added_.push_back({.who = who, .has_k = false, .has_signature = true});
  write(who, signature_suffix, signature);
}

void announcement::replace(const addition &each) const {
  const fs::path signature = latest_file(store_.root(), each.who, signature_suffix);
  if (each.has_signature) {
    rename_into_place(signature);
  } else {
    fs::remove(signature);
  }
  if (each.has_k) {
    rename_into_place(latest_file(store_.root(), each.who, k_suffix));
    rename_into_place(latest_file(store_.root(), each.who, checksum_suffix));
  }
}

size_t announcement::finish(const std::vector<published_file> &dropped, progress &announced) {
  store_.flush();
  const auto not_stamped =
      std::ranges::count_if(dropped, [this](const auto &file) { return !store_.stamp(file); });
  for (; announced_ < added_.size(); ++announced_) {
    replace(added_[announced_]);
    announced.advance();
  }
  store_.flush();
  return static_cast<size_t>(not_stamped);
}

}  // namespace zotconf
