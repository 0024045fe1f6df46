// SPDX-License-Identifier: Apache-2.0
// Error output of the commands: a line "zotconf: WHAT: WHY", and a line "try: COMMAND" if one
// command helps.
#pragma once

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace zotconf {

// An error with a command that helps.
class advised_error : public std::runtime_error {
 public:
  advised_error(const std::string &what, std::string command)
      : std::runtime_error(what), command_(std::move(command)) {}

  // Empty if no command helps.
  [[nodiscard]] const std::string &command() const { return command_; }

 private:
  std::string command_;
};

void tell_error(std::ostream &err, std::string_view what, std::string_view command = "");

// Prints the same as a warning: the command continues.
void tell_warning(std::ostream &err, std::string_view what, std::string_view command = "");

// Prints only the "try:" line, after a result that shows the error.
void tell_remedy(std::ostream &err, std::string_view command);

// Returns the command that helps after a failed call of the library.
std::string command_after(int status);

}  // namespace zotconf
