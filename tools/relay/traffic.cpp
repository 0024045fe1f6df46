// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/traffic.hpp"

#include <algorithm>

namespace zotconf {
namespace {

constexpr uint64_t lowest_rate = 1024;
// A pause may be longer than it should be. What was missed in so long a time is caught up.
constexpr std::chrono::milliseconds caught_up{100};

double seconds_of(traffic::clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

traffic::traffic(uint64_t limit_rate, std::chrono::milliseconds patience)
    : limit_rate_(limit_rate),
      patience_(patience),
      free_at_(clock::time_point::min()),
      wait_begin_(clock::time_point::min()) {}

void traffic::count(uint64_t bytes, clock::time_point now) {
  bytes_of_wait_ += bytes;
  if (limit_rate_ == 0) {
    return;
  }
  const std::chrono::duration<double> time(static_cast<double>(bytes) /
                                           static_cast<double>(limit_rate_));
  free_at_ =
      std::max(free_at_, now - caught_up) + std::chrono::duration_cast<clock::duration>(time);
}

void traffic::restart_wait(clock::time_point now) {
  wait_begin_ = now;
  bytes_of_wait_ = 0;
}

void traffic::exclude_from_wait(clock::duration pause) {
  wait_begin_ += pause;
}

traffic::clock::duration traffic::ahead(clock::time_point now) const {
  return free_at_ > now ? free_at_ - now : clock::duration::zero();
}

bool traffic::is_too_slow(clock::time_point now) {
  if (now - wait_begin_ < patience_) {
    return false;
  }
  // A transfer at the limit of the rate is not slow.
  const uint64_t lowest =
      limit_rate_ == 0 ? lowest_rate : std::clamp<uint64_t>(limit_rate_ / 2, 1, lowest_rate);
  const bool is_slow = static_cast<double>(bytes_of_wait_) <
                       static_cast<double>(lowest) * seconds_of(now - wait_begin_);
  if (!is_slow) {
    restart_wait(now);
  }
  return is_slow;
}

}  // namespace zotconf
