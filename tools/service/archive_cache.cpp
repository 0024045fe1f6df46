// SPDX-License-Identifier: Apache-2.0
#include "tools/service/archive_cache.hpp"

#include <fcntl.h>

#include <utility>

#include "tools/files/file_io.hpp"

namespace zotconf {

// The thread that makes an archive, while it makes it.
class archive_cache::turn {
 public:
  turn(archive_cache &cache, const archive_id &id) : cache_(cache), id_(id) {}
  turn(const turn &) = delete;
  turn &operator=(const turn &) = delete;
  ~turn() {
    {
      const std::scoped_lock guard(cache_.mutex_);
      cache_.being_made_.erase(id_);
    }
    cache_.finished_.notify_all();
  }

 private:
  archive_cache &cache_;
  const archive_id &id_;
};

// The copies share one file offset, and nothing depends on it: the HTTP library states the offset
// of each read.
http_file archive_cache::shared() const {
  zot::descriptor copy(::fcntl(kept_->archive.file.get(), F_DUPFD_CLOEXEC, 0));
  if (!copy.is_open()) {
    throw_errno("cannot open the archive");
  }
  return {.file = std::move(copy), .size = kept_->archive.size};
}

http_file archive_cache::get(const std::string &key, const maker &make) {
  const archive_id id{.state = files_.state(), .key = key};
  {
    std::unique_lock lock(mutex_);
    finished_.wait(lock, [&] { return !being_made_.contains(id); });
    if (kept_ && kept_->id == id) {
      kept_->last_request = clock::now();
      return shared();
    }
    being_made_.insert(id);
  }
  const turn own(*this, id);
  http_file made = make();
  // It may have files of the publication that was put into service meanwhile.
  if (files_.state() != id.state) {
    return made;
  }
  const std::scoped_lock guard(mutex_);
  kept_ = {.id = id, .archive = std::move(made), .last_request = clock::now()};
  return shared();
}

void archive_cache::expire(clock::time_point now) {
  const std::string state = files_.state();
  const std::scoped_lock guard(mutex_);
  if (kept_ && (now - kept_->last_request >= kept_for || kept_->id.state != state)) {
    kept_.reset();
  }
}

}  // namespace zotconf
