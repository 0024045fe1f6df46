// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_store.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <span>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tools/files/digest.hpp"
#include "tools/output/error_text.hpp"
#include "tools/publication/publication_store.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

constexpr const char *publications = "publications";
constexpr const char *current_name = "current";
constexpr const char *current_beside = "current.new";
constexpr const char *accepted_name = "accepted";
constexpr const char *accepted_beside = "accepted.new";
constexpr const char *lock_name = ".lock";

// The files of an element that are served, and their names in the folder of a publication.
constexpr std::array<std::pair<const char *, const char *>, 3> latest_names = {{
    {".k", kept_k},
    {".checksum", kept_checksum},
    {".k.p7s", kept_signature},
}};

folder opened_root(const fs::path &path) {
  const fs::path absolute = fs::absolute(path);
  if (::mkdir(absolute.c_str(), 0755) != 0 && errno == ENOENT) {
    std::error_code error;
    if (fs::create_directories(absolute.parent_path(), error); error) {
      throw std::system_error(error, "cannot create " + absolute.string());
    }
    ::mkdir(absolute.c_str(), 0755);
  }
  return folder(absolute);
}

void check_only_own_user_writes(const folder &root) {
  struct stat info {};
  if (::fstat(root.get(), &info) == 0 && (info.st_mode & S_IWOTH) != 0) {
    const std::string path = root.path().string();
    throw advised_error(path + ": every user may write to this folder", "chmod o-w " + path);
  }
}

// A relay removes from these folders what it does not know, so they have to be its own.
void check_not_foreign(const folder &root) {
  for (const std::string &name : root.names()) {
    if (name == "objects" || name == "partial" || name == publications) {
      throw std::runtime_error(root.path().string() + ": has a folder " + name +
                               " and is not the store of a relay");
    }
  }
}

zot::descriptor locked(const folder &root) {
  check_only_own_user_writes(root);
  if (!root.size_of(lock_name)) {
    check_not_foreign(root);
  }
  constexpr int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
  zot::descriptor file(::openat(root.get(), lock_name, flags, 0644));
  if (!file.is_open()) {
    throw_errno("cannot open " + (root.path() / lock_name).string());
  }
  if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
    return file;
  }
  if (errno == EWOULDBLOCK) {
    throw std::runtime_error(root.path().string() + ": another relay uses this folder");
  }
  throw_errno("cannot lock " + (root.path() / lock_name).string());
}

std::string link_target(const std::string &digest) {
  return std::string(publications) + "/" + digest;
}

const std::string &digest_of_kept(const kept_ptr &publication) {
  return publication->digest;
}

// The file holds one line, "SEQUENCE DIGEST SUBSYS INDEX".
std::string accepted_text(const element &who, uint64_t sequence, const std::string &digest) {
  return std::to_string(sequence) + " " + digest + " " + who.subsys + " " + who.index + "\n";
}

// The clock of an element may be wrong, so the sequence counts first.
bool is_newer(const kept_publication &one, const kept_publication &other) {
  return std::pair(one.content.sequence, one.kept_since) >
         std::pair(other.content.sequence, other.kept_since);
}

std::vector<std::string_view> sorted_checksums(std::span<const kept_ptr> of,
                                               const manifest &others) {
  std::vector<std::string_view> found;
  for (const published_file &file : others.files) {
    found.push_back(file.checksum);
  }
  for (const kept_ptr &publication : of) {
    for (const published_file &file : publication->content.files) {
      found.push_back(file.checksum);
    }
  }
  std::ranges::sort(found);
  return found;
}

}  // namespace

relay_store::relay_store(const fs::path &root, element who)
    : root_(opened_root(root)), who_(std::move(who)), lock_(locked(root_)), objects_(root_) {
  load_accepted();
  load();
}

// A file that is damaged, or is that of another element, counts as absent: the sequence of the
// current publication still counts.
void relay_store::load_accepted() {
  const zot::descriptor file = root_.open(accepted_name);
  const std::string text = file.is_open() ? read_file_at(file.get(), accepted_name) : "";
  const size_t blank = std::min(text.find(' '), text.size());
  const auto sequence = parse_version(text.substr(0, blank));
  const std::string digest = text.substr(blank, ZOT_CHECKSUM_LEN + 1).erase(0, 1);
  if (sequence && is_digest(digest) && text == accepted_text(who_, *sequence, digest)) {
    accepted_ = {.sequence = *sequence, .digest = digest};
  }
}

void relay_store::load() {
  const folder all = root_.make(publications);
  const std::string target = root_.target_of(current_name).value_or("");
  for (const std::string &name : all.names()) {
    const auto own = is_digest(name) ? all.find(name) : std::nullopt;
    auto read = own ? read_publication(*own, name, who_) : std::nullopt;
    if (read && target == link_target(name)) {
      note_sequence(*read);
    }
    if (read && is_whole(*read)) {
      kept_.push_back(std::make_shared<const kept_publication>(std::move(*read)));
    }
  }
  std::ranges::sort(kept_, [&target](const kept_ptr &one, const kept_ptr &other) {
    const bool is_current = target == link_target(one->digest);
    const bool is_other_current = target == link_target(other->digest);
    return is_current != is_other_current ? is_current : is_newer(*one, *other);
  });
  if (!kept_.empty()) {
    note_sequence(*kept_.front());
  }
}

bool relay_store::is_whole(const kept_publication &publication) const {
  return objects_.absent(publication.content.files).empty();
}

void relay_store::note_sequence(const kept_publication &publication) {
  if (publication.content.sequence > accepted_.sequence) {
    accepted_ = {.sequence = publication.content.sequence, .digest = publication.digest};
  }
}

std::vector<kept_ptr> relay_store::kept() const {
  const std::scoped_lock guard(mutex_);
  return kept_;
}

kept_ptr relay_store::current() const {
  const std::scoped_lock guard(mutex_);
  return kept_.empty() ? nullptr : kept_.front();
}

bool relay_store::is_damaged() const {
  const std::scoped_lock guard(mutex_);
  return is_damaged_;
}

uint64_t relay_store::last_sequence() const {
  const std::scoped_lock guard(mutex_);
  return accepted_.sequence;
}

std::string relay_store::last_digest() const {
  const std::scoped_lock guard(mutex_);
  return accepted_.digest;
}

std::vector<published_file> relay_store::missing(const manifest &content) const {
  const std::vector<kept_ptr> flushed = is_damaged() ? std::vector<kept_ptr>() : kept();
  const std::vector<std::string_view> trusted = sorted_checksums(flushed, {});
  const std::vector<const published_file *> absent = objects_.absent(content.files);
  const std::set<const published_file *> gone(absent.begin(), absent.end());
  std::set<std::string_view> seen;
  std::vector<published_file> found;
  for (const published_file &file : content.files) {
    const bool is_trusted = std::ranges::binary_search(trusted, std::string_view(file.checksum));
    const bool is_there = !gone.contains(&file) && (is_trusted || objects_.open(file).is_open());
    if (!is_there && seen.insert(file.checksum).second) {
      found.push_back(file);
    }
  }
  return found;
}

fs::path relay_store::partial(const published_file &file) const {
  return objects_.partial(file);
}

bool relay_store::take(const published_file &file) {
  const std::scoped_lock still(changing_);
  return objects_.take(file);
}

uint64_t relay_store::room() const {
  struct statvfs info {};
  if (::fstatvfs(root_.get(), &info) != 0) {
    throw_errno("cannot read the file system of " + root_.path().string());
  }
  return uint64_t{info.f_bavail} * info.f_frsize;
}

// Everything that the publication needs, under temporary names.
void relay_store::prepare(const folder &own, const kept_publication &next,
                          std::string_view k) const {
  write_beside(own, next, k);
  root_.link(current_beside, link_target(next.digest));
  const bool is_highest = next.content.sequence > last_sequence();
  root_.write(accepted_beside, is_highest ? accepted_text(who_, next.content.sequence, next.digest)
                                          : accepted_text(who_, last_sequence(), last_digest()));
  root_.flush_file_system();
}

// The sequence is recorded before the link is replaced. If the relay is interrupted in between, it
// can accept the same K again, because its digest is recorded too.
void relay_store::replace_current(const folder &own, kept_ptr next) {
  const std::scoped_lock still(changing_);
  if (!is_whole(*next)) {
    throw std::runtime_error("a file of the publication is missing in " + root_.path().string());
  }
  move_into_place(own, *next);
  root_.rename(accepted_beside, root_, accepted_name);
  if (!root_.target_of(current_name)) {
    root_.remove(current_name);
  }
  root_.rename(current_beside, root_, current_name);
  root_.flush();
  const std::scoped_lock guard(mutex_);
  note_sequence(*next);
  std::erase_if(kept_, [&next](const kept_ptr &one) { return one->digest == next->digest; });
  kept_.insert(kept_.begin(), std::move(next));
  is_damaged_ = false;
}

void relay_store::put_into_service(std::string_view k, const std::optional<std::string> &signature,
                                   manifest content) {
  kept_publication next = make_publication(k, signature, std::move(content));
  const kept_ptr before = current();
  if (before && before->digest == next.digest) {
    next.kept_since = before->kept_since;
  }
  const folder all = root_.make(publications);
  const folder own = all.make(next.digest);
  try {
    prepare(own, next, k);
    replace_current(own, std::make_shared<const kept_publication>(std::move(next)));
  } catch (const std::exception &) {
    // On a full file system, the space has to be free for the next attempt.
    remove_beside(own);
    root_.remove(current_beside);
    root_.remove(accepted_beside);
    throw;
  }
}

// The current one is the first.
void relay_store::drop_beyond(size_t keep) {
  const std::scoped_lock guard(mutex_);
  kept_.resize(std::min(kept_.size(), std::max<size_t>(keep, 1)));
}

void relay_store::clean(size_t keep, const manifest &wanted) noexcept {
  try {
    const std::scoped_lock still(changing_);
    drop_beyond(keep);
    root_.remove(current_beside);
    root_.remove(accepted_beside);
    const std::vector<kept_ptr> left = kept();
    const folder all = root_.make(publications);
    for (const std::string &name : all.names()) {
      if (std::ranges::find(left, name, digest_of_kept) == left.end()) {
        remove_publication(all, name);
      } else if (const auto own = all.find(name)) {
        remove_beside(*own);
      }
    }
    const auto newest = std::span(left).first(std::min<size_t>(left.size(), 1));
    objects_.keep_only(sorted_checksums(left, wanted), sorted_checksums(newest, wanted));
  } catch (const std::exception &) {
    return;
  }
}

relay_store::looked_up relay_store::look_up_latest(const std::string &name) const {
  const kept_ptr served = current();
  const auto digest = served ? digest_of(*served, name) : std::nullopt;
  if (!digest) {
    return {};
  }
  const auto all = root_.find(publications);
  const auto own = all ? all->find(served->digest) : std::nullopt;
  zot::descriptor file = own ? own->open(name) : zot::descriptor(-1);
  const bool is_good = file.is_open() && sha256_of_file(file.get(), name) == digest;
  return {
      .is_known = true, .checksum = "", .file = is_good ? std::move(file) : zot::descriptor(-1)};
}

relay_store::looked_up relay_store::look_up(const std::vector<std::string> &parts) const {
  for (const auto &[suffix, name] : latest_names) {
    if (parts == latest_parts(who_, suffix)) {
      return look_up_latest(name);
    }
  }
  for (const kept_ptr &publication : kept()) {
    if (const published_file *const file = find_file(*publication, parts)) {
      return {.is_known = true, .checksum = file->checksum, .file = objects_.open(*file)};
    }
  }
  return {};
}

void relay_store::note_damage(const std::string &checksum) const {
  objects_.remove(checksum);
  const std::scoped_lock guard(mutex_);
  is_damaged_ = is_damaged_ || checksum.empty() ||
                (!kept_.empty() && names_checksum(*kept_.front(), checksum));
}

zot::descriptor relay_store::open_member(const std::vector<std::string> &parts) const {
  looked_up found = look_up(parts);
  if (!found.is_known || found.file.is_open()) {
    return std::move(found.file);
  }
  // The publication may have been replaced or removed at that moment, so it is looked up again.
  const std::scoped_lock still(changing_);
  found = look_up(parts);
  if (found.is_known && !found.file.is_open()) {
    note_damage(found.checksum);
    throw std::runtime_error(member_name(parts) + ": missing or damaged in " +
                             root_.path().string());
  }
  return std::move(found.file);
}

std::optional<std::string> relay_store::read_checksum(const element &who) const {
  const kept_ptr served = current();
  if (!served || who.subsys != who_.subsys || who.index != who_.index) {
    return std::nullopt;
  }
  return served->digest + "\n";
}

std::string relay_store::state() const {
  const kept_ptr served = current();
  return served ? served->digest : "";
}

}  // namespace zotconf
