// SPDX-License-Identifier: Apache-2.0
// The streams of a command: results go to `out`, errors and progress to `err`. Colours and progress
// appear only on a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace zotconf {

enum class colour { none, bold, dim, red, green, yellow };

// What the streams support.
struct console_style {
  bool json = false;      // results as one JSON document on `out`
  bool colours = false;   // on `out`
  bool progress = false;  // on `err`
};

// A terminal has colours unless NO_COLOR is set (to any value) or TERM is "dumb".
console_style style_of_terminal();

class console {
 public:
  console(std::ostream &out, std::ostream &err, console_style style = {})
      : out_(out), err_(err), style_(style) {}

  [[nodiscard]] std::ostream &out() const { return out_; }
  [[nodiscard]] std::ostream &err() const { return err_; }
  [[nodiscard]] const console_style &style() const { return style_; }
  [[nodiscard]] bool is_json() const { return style_.json; }

  // Returns the text in a colour, or unchanged when there are no colours.
  [[nodiscard]] std::string paint(std::string_view text, colour with) const;

 private:
  std::ostream &out_;
  std::ostream &err_;
  console_style style_;
};

// A progress line. Updated at most ten times a second and erased when the work is done.
class progress {
 public:
  // A total of 0 means unknown. `items` is what is counted.
  progress(const console &where, std::string what, uint64_t total, std::string items = "files");
  progress(const progress &) = delete;
  progress &operator=(const progress &) = delete;
  ~progress();

  // Counts one more item, of `bytes` bytes, as done.
  void advance(uint64_t bytes = 0);
  // Erases the line so that something else can be printed.
  void clear();

 private:
  using clock = std::chrono::steady_clock;

  void draw(clock::time_point now);

  const console &where_;
  std::string what_;
  std::string names_;
  uint64_t total_;
  uint64_t items_ = 0;
  uint64_t bytes_ = 0;
  clock::time_point begin_ = clock::now();
  clock::time_point drawn_ = begin_;
  bool visible_ = false;
};

// Returns "1.5 KiB" for 1536.
std::string human_bytes(uint64_t bytes);

}  // namespace zotconf
