// SPDX-License-Identifier: Apache-2.0
// Where a command writes: results to `out`, errors and progress to `err`. Colours and progress are
// for people, so they appear on a terminal only.
#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace zotconf {

enum class colour { none, bold, dim, red, green, yellow };

// What the streams are good for.
struct console_style {
  bool json = false;      // results as one JSON document on `out`
  bool colours = false;   // on `out`
  bool progress = false;  // on `err`
};

// A terminal has colours unless NO_COLOR is set, whatever its value, or TERM is "dumb".
console_style style_of_terminal();

class console {
 public:
  console(std::ostream &out, std::ostream &err, console_style style = {})
      : out_(out), err_(err), style_(style) {}

  [[nodiscard]] std::ostream &out() const { return out_; }
  [[nodiscard]] std::ostream &err() const { return err_; }
  [[nodiscard]] const console_style &style() const { return style_; }
  [[nodiscard]] bool is_json() const { return style_.json; }

  // The text in a colour, or as it is where there are none.
  [[nodiscard]] std::string paint(std::string_view text, colour with) const;

 private:
  std::ostream &out_;
  std::ostream &err_;
  console_style style_;
};

// One line that tells how far a long work is, drawn anew at most ten times a second and gone when
// the work is done.
class progress {
 public:
  // A total of 0 is one that is not known.
  progress(const console &where, std::string what, uint64_t total);
  progress(const progress &) = delete;
  progress &operator=(const progress &) = delete;
  ~progress();

  // One more item, of so many bytes, is done.
  void advance(uint64_t bytes = 0);
  // Takes the line away, so that something else can be written.
  void clear();

 private:
  using clock = std::chrono::steady_clock;

  void draw(clock::time_point now);

  const console &where_;
  std::string what_;
  uint64_t total_;
  uint64_t items_ = 0;
  uint64_t bytes_ = 0;
  clock::time_point begin_ = clock::now();
  clock::time_point drawn_ = begin_;
  bool visible_ = false;
};

// 1536 is "1.5 KiB".
std::string human_bytes(uint64_t bytes);

}  // namespace zotconf
