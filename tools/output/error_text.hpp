// SPDX-License-Identifier: Apache-2.0
// How a command says what went wrong: a line "zotconf: WHAT", and where one command helps, a line
// "try: COMMAND".
#pragma once

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace zotconf {

// An error that one command helps with.
class advised_error : public std::runtime_error {
 public:
  advised_error(const std::string &what, std::string command)
      : std::runtime_error(what), command_(std::move(command)) {}

  // Empty when none helps.
  [[nodiscard]] const std::string &command() const { return command_; }

 private:
  std::string command_;
};

void tell_error(std::ostream &err, std::string_view what, std::string_view command = "");

// The same for what a command goes on after.
void tell_warning(std::ostream &err, std::string_view what, std::string_view command = "");

// The last line alone, below a result that says what is wrong.
void tell_remedy(std::ostream &err, std::string_view command);

// The command that helps after a call of the library has failed.
std::string command_after(int status);

}  // namespace zotconf
