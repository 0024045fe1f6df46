// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/report.hpp"

#include <algorithm>
#include <numeric>
#include <ostream>

#include "tools/output/duration.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

constexpr std::array<const char *, 3> words_of_results = {"passed", "failed", "not_run"};

std::string name_for_people(std::string name) {
  std::ranges::replace(name, '_', ' ');
  return name;
}

std::string outcome_text(const check &each, check_result result, const std::string &found) {
  switch (result) {
    case check_result::passed:
      return each.expected;
    case check_result::failed:
      return std::string("expected ") + each.expected + "; found " + found;
    default:
      return found;
  }
}

std::string result_text(const console &where, check_result result) {
  switch (result) {
    case check_result::passed:
      return where.paint("ok", colour::green);
    case check_result::failed:
      return where.paint("FAILED", colour::red);
    default:
      return "not run";
  }
}

}  // namespace

void probe_report::print_check(const check &each, check_result result, const std::string &found,
                               std::chrono::microseconds duration) {
  ++counts_[static_cast<size_t>(result)];
  if (result == check_result::failed && !has_failed()) {
    first_failed_ = each.name;
  }
  std::ostream &out = where_.out();
  if (where_.is_json()) {
    json_document line;
    line.root()
        .set("check", each.name)
        .set("result", words_of_results[static_cast<size_t>(result)])
        .set("expected", each.expected)
        .set("found", stated(found))
        .set("duration_us", duration.count());
    out << line.line() << std::flush;
    return;
  }
  out << name_for_people(each.name) << ": " << result_text(where_, result) << ": "
      << printable(outcome_text(each, result, found));
  if (result != check_result::not_run) {
    out << " (" << duration_text(std::chrono::duration_cast<std::chrono::milliseconds>(duration))
        << ")";
  }
  out << '\n' << std::flush;
}

void probe_report::print_end() const {
  const size_t all = std::accumulate(counts_.begin(), counts_.end(), size_t{0});
  if (has_failed()) {
    where_.err() << "zotconf: probe: " << counted(count(check_result::failed), "check", "checks")
                 << " failed; the first is " << name_for_people(first_failed_) << '\n';
  }
  if (where_.is_json()) {
    json_document line;
    line.root()
        .set("checks", all)
        .set("passed", count(check_result::passed))
        .set("failed", count(check_result::failed))
        .set("not_run", count(check_result::not_run))
        .set("first_failed", stated(first_failed_));
    where_.out() << line.line() << std::flush;
    return;
  }
  where_.out() << "\nprobe: " << count(check_result::passed) << " of " << all << " checks passed, "
               << count(check_result::failed) << " failed, " << count(check_result::not_run)
               << " not run\n"
               << std::flush;
}

}  // namespace zotconf
