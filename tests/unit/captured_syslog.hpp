// SPDX-License-Identifier: Apache-2.0
// Captures what the library sends to syslog. The whole test program keeps it from the machine's
// syslog.
#pragma once

#include <string>
#include <vector>

namespace zot::test {

struct syslog_opening {
  bool has_identity;
  int option;
  int facility;
};

struct syslog_message {
  int priority;
  std::string format;
  std::string text;
};

extern std::vector<syslog_opening> syslog_openings;
extern std::vector<syslog_message> syslog_messages;

}  // namespace zot::test
