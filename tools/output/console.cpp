// SPDX-License-Identifier: Apache-2.0
#include "tools/output/console.hpp"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <utility>

namespace zotconf {
namespace {

constexpr std::string_view plain = "\x1b[0m";
constexpr std::string_view clear_line = "\r\x1b[K";
constexpr std::chrono::milliseconds redraw_after(100);

std::string_view code_of(colour with) {
  static constexpr std::array<std::string_view, 6> codes = {"",         "\x1b[1m",  "\x1b[2m",
                                                            "\x1b[31m", "\x1b[32m", "\x1b[33m"};
  return codes.at(static_cast<size_t>(with));
}

bool is_dumb() {
  const char *const term = std::getenv("TERM");
  return term == nullptr || std::string_view(term) == "dumb";
}

}  // namespace

console_style style_of_terminal() {
  const bool wanted = std::getenv("NO_COLOR") == nullptr && !is_dumb();
  return {.json = false,
          .colours = wanted && ::isatty(STDOUT_FILENO) == 1,
          .progress = wanted && ::isatty(STDERR_FILENO) == 1};
}

std::string console::paint(std::string_view text, colour with) const {
  if (!style_.colours || with == colour::none) {
    return std::string(text);
  }
  return std::string(code_of(with)).append(text).append(plain);
}

progress::progress(const console &where, std::string what, uint64_t total, std::string items)
    : where_(where), what_(std::move(what)), names_(std::move(items)), total_(total) {}

progress::~progress() {
  clear();
}

void progress::clear() {
  if (visible_) {
    where_.err() << clear_line << std::flush;
    visible_ = false;
  }
}

void progress::advance(uint64_t bytes) {
  ++items_;
  bytes_ += bytes;
  if (!where_.style().progress) {
    return;
  }
  const clock::time_point now = clock::now();
  if (now - drawn_ >= redraw_after) {
    draw(now);
  }
}

void progress::draw(clock::time_point now) {
  const double seconds = std::chrono::duration<double>(now - begin_).count();
  where_.err() << clear_line << what_ << ' ' << items_;
  if (total_ > 0) {
    where_.err() << " of " << total_;
  }
  where_.err() << ' ' << names_ << ", ";
  if (bytes_ > 0) {
    where_.err() << human_bytes(bytes_) << ", ";
  }
  where_.err() << static_cast<uint64_t>(static_cast<double>(items_) / seconds) << ' ' << names_
               << "/s" << std::flush;
  drawn_ = now;
  visible_ = true;
}

std::string human_bytes(uint64_t bytes) {
  static constexpr std::array<std::string_view, 5> units = {"KiB", "MiB", "GiB", "TiB", "PiB"};
  if (bytes < 1024) {
    return std::to_string(bytes) + " B";
  }
  double value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  // Values that would be printed as 1024.0 use the next unit.
  while (value >= 1023.95 && unit + 1 < units.size()) {
    value /= 1024;
    ++unit;
  }
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << value << ' ' << units.at(unit);
  return text.str();
}

}  // namespace zotconf
