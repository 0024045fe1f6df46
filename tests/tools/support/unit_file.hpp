// SPDX-License-Identifier: Apache-2.0
// A unit file as a service manager reads it.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/files.hpp"

namespace zot::test {

class unit_file {
 public:
  explicit unit_file(const std::string &path) : text_(read_bytes(path)) {}

  // The value of the first line NAME=VALUE in a section. Throws if there is none.
  [[nodiscard]] std::string value_of(const std::string &section, const std::string &name) const {
    std::istringstream stream(text_);
    std::string current;
    for (std::string line; std::getline(stream, line);) {
      if (line.starts_with('[')) {
        current = line;
      } else if (current == "[" + section + "]" && line.starts_with(name + "=")) {
        return line.substr(name.size() + 1);
      }
    }
    throw std::runtime_error("no " + name + " in " + section);
  }

  // The words of ExecStart, with these words replaced.
  [[nodiscard]] std::vector<std::string> command(
      const std::map<std::string, std::vector<std::string>> &settings) const {
    std::istringstream line(value_of("Service", "ExecStart"));
    std::vector<std::string> words;
    for (std::string word; line >> word;) {
      const auto found = settings.find(word);
      const std::vector<std::string> more =
          found != settings.end() ? found->second : std::vector<std::string>{word};
      words.insert(words.end(), more.begin(), more.end());
    }
    return words;
  }

  // Expects that every line is a comment, a section or a setting.
  void expect_form() const {
    std::istringstream stream(text_);
    std::string section;
    for (std::string line; std::getline(stream, line);) {
      if (line.empty() || line.starts_with('#')) {
        continue;
      }
      if (line.starts_with('[')) {
        section = line;
        EXPECT_TRUE(line == "[Unit]" || line == "[Service]" || line == "[Install]") << line;
        continue;
      }
      EXPECT_FALSE(section.empty()) << line;
      EXPECT_NE(line.find('='), std::string::npos) << line;
      EXPECT_TRUE(std::isupper(static_cast<unsigned char>(line.front()))) << line;
    }
  }

 private:
  std::string text_;
};

}  // namespace zot::test
