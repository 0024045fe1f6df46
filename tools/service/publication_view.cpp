// SPDX-License-Identifier: Apache-2.0
#include "tools/service/publication_view.hpp"

#include <sys/resource.h>

#include <algorithm>
#include <exception>

namespace zotconf {
namespace {

constexpr int low_priority = 10;
constexpr std::chrono::milliseconds between_reports{100};
// A scan takes at most a tenth of the time of one processor, however large the folder is.
constexpr int pauses_per_look = 9;

}  // namespace

publication_view::publication_view(fs::path folder, const publication_store &store,
                                   look_rhythm rhythm)
    : folder_(std::move(folder)),
      store_(store),
      rhythm_(rhythm),
      thread_([this](const std::stop_token &stop) { run(stop); }) {}

publication_view::~publication_view() {
  thread_.request_stop();
  thread_.join();
}

std::shared_ptr<const publication_view::snapshot> publication_view::latest() {
  const std::scoped_lock guard(mutex_);
  last_asked_ = clock::now();
  asked_.notify_one();
  return latest_;
}

void publication_view::run(const std::stop_token &stop) {
  while (!stop.stop_requested()) {
    clock::duration pause = rhythm_.between_looks;
    try {
      pause = look(stop);
    } catch (const std::exception &error) {
      problem_ = error.what();
      publish();
    }
    rest(stop, pause);
  }
}

// Returns the pause before the next scan; zero if K files are left to read.
publication_view::clock::duration publication_view::look(const std::stop_token &stop) {
  const auto begin = clock::now();
  list();
  const auto listed = clock::now() - begin;
  publish();
  // The names are listed first. All other work has a lower priority than responses to elements. On
  // Linux this sets the priority of the calling thread only.
  static_cast<void>(::setpriority(PRIO_PROCESS, 0, low_priority));
  const bool all_read = read_changed(stop);
  if (all_read) {
    check_oldest(stop);
  }
  problem_.reset();
  publish();
  if (!all_read) {
    return clock::duration::zero();
  }
  return std::max(rhythm_.between_looks - (clock::now() - begin), pauses_per_look * listed);
}

std::vector<k_listing> publication_view::names_here() {
  try {
    return list_k_files(folder_);
  } catch (const fs::filesystem_error &) {
    known_.clear();
    throw;
  }
}

void publication_view::list() {
  std::map<name, known_publication> found;
  for (k_listing &listed : names_here()) {
    auto known = known_.extract(name(listed.who.subsys, listed.who.index));
    if (known.empty()) {
      const auto summary = std::make_shared<publication_summary>(unread_publication(listed.who));
      name called(listed.who.subsys, listed.who.index);
      found.emplace_hint(
          found.end(), std::move(called),
          known_publication{
              .listed = std::move(listed), .checked = std::nullopt, .summary = summary});
      continue;
    }
    if (!known.mapped().listed.is_same(listed)) {
      known.mapped().listed = std::move(listed);
      known.mapped().checked.reset();
    }
    found.insert(found.end(), std::move(known));
  }
  known_ = std::move(found);
}

// The stamp was taken before this read: if K changes meanwhile, the next scan reads it again.
void publication_view::read(known_publication &known) const {
  known.summary =
      std::make_shared<publication_summary>(read_publication(folder_, store_, known.summary->who));
  known.checked = clock::now();
}

bool publication_view::read_changed(const std::stop_token &stop) {
  const auto begin = clock::now();
  auto reported = begin;
  for (auto &[called, known] : known_) {
    if (known.checked) {
      continue;
    }
    const auto now = clock::now();
    if (stop.stop_requested() || now - begin >= rhythm_.read_time) {
      return false;
    }
    if (now - reported >= between_reports) {
      publish();
      reported = now;
    }
    read(known);
  }
  return true;
}

bool publication_view::is_due(const known_publication &known, clock::time_point now) const {
  const auto between =
      known.summary->problem ? rhythm_.between_checks_of_problems : rhythm_.between_checks;
  return known.checked && now - *known.checked >= between;
}

void publication_view::check_oldest(const std::stop_token &stop) {
  const auto begin = clock::now();
  std::vector<known_publication *> due;
  for (auto &[called, known] : known_) {
    if (is_due(known, begin)) {
      due.push_back(&known);
    }
  }
  std::ranges::sort(due, {}, [](const known_publication *known) { return *known->checked; });
  for (known_publication *const known : due) {
    if (stop.stop_requested() || clock::now() - begin >= rhythm_.check_time) {
      return;
    }
    read(*known);
  }
}

void publication_view::publish() {
  auto next = std::make_shared<snapshot>();
  next->rows.reserve(known_.size());
  for (const auto &[called, known] : known_) {
    next->read += known.summary->is_read ? 1 : 0;
    next->rows.push_back(known.summary);
  }
  next->problem = problem_;
  next->looked = std::time(nullptr);
  const std::scoped_lock guard(mutex_);
  latest_ = std::move(next);
}

void publication_view::rest(const std::stop_token &stop, clock::duration pause) {
  std::unique_lock lock(mutex_);
  if (pause > clock::duration::zero()) {
    asked_.wait_for(lock, stop, pause, [] { return false; });
  }
  if (problem_ || latest_->read < latest_->rows.size()) {
    return;
  }
  asked_.wait(lock, stop, [this] { return clock::now() - last_asked_ < rhythm_.rest_after; });
}

}  // namespace zotconf
