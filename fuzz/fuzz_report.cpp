// SPDX-License-Identifier: Apache-2.0
// Reads arbitrary bytes as the report of an element, and finds the element's state. Everything that
// is printed of a report must be safe for a terminal and of limited length.
#include <array>
#include <string>

#include "fuzz/check.hpp"
#include "tools/fleet/element_standing.hpp"
#include "tools/output/plain_text.hpp"

namespace {
using zot::fuzz::check;

constexpr std::time_t now = 1795500000;
constexpr std::chrono::hours silent_after{72};
constexpr std::size_t longest_text = 303;

void check_text(const std::string &text) {
  check(zotconf::printable(text) == text, "a text can be printed");
  check(text.size() <= longest_text, "a text is short");
}

void check_texts(const zotconf::element_report &report) {
  for (const std::string &text :
       {report.time, report.subsys, report.index, report.in_force, report.refused, report.offered,
        report.relay_refused, report.refusal, report.problem.value_or(""),
        report.relay_problem.value_or("")}) {
    check_text(text);
  }
}

void judge(const zotconf::report_reading &reading, const std::string &digest) {
  const zotconf::element_standing found = zotconf::standing_of(reading, digest, now, silent_after);
  const bool has_reason =
      found.state != zotconf::standing::in_force && found.state != zotconf::standing::waiting;
  check(found.reason.empty() != has_reason, "each other state has a reason");
  check(zotconf::printable(found.reason) == found.reason, "the reason can be printed");
  const bool is_in_force = reading.report && reading.report->in_force == digest;
  check((found.state == zotconf::standing::in_force) == is_in_force,
        "in force is what the report says is in force");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  const zot::fuzz::exact_copy<char> copy(
      std::string_view(reinterpret_cast<const char *>(bytes), size));
  zotconf::report_reading reading = zotconf::parse_report(std::string(copy.get(), copy.size()));
  check(reading.report.has_value() == reading.wrong.empty(), "a report is good or wrong");
  if (reading.report) {
    reading.report->received = now;
    check_texts(*reading.report);
    static_cast<void>(zotconf::is_ahead(*reading.report, now));
    judge(reading, reading.report->refused);
    judge(reading, reading.report->relay_refused);
    judge(reading, reading.report->in_force);
  }
  judge(reading, std::string(64, 'd'));
  return 0;
}
