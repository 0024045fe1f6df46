// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout_reader.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "tools/files/folder.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/publication/named_files.hpp"

namespace zotconf {
namespace {

constexpr std::string_view report_suffix = ".json";

// The element of a report's file name; empty if it is the name of no report.
std::string index_of_report(std::string_view name) {
  if (!name.ends_with(report_suffix) || name.starts_with('.')) {
    return "";
  }
  name.remove_suffix(report_suffix.size());
  return std::string(name);
}

template <class Check>
std::vector<std::string> sorted_names(const folder &in, Check is_wrong) {
  std::vector<std::string> names = in.names();
  std::erase_if(names, [&](const std::string &name) { return !is_wrong(name).empty(); });
  std::ranges::sort(names);
  return names;
}

class rollout_reader {
 public:
  rollout_reader(const rollout_options &options, const console &where, std::time_t now)
      : options_(options),
        reports_(options.reports),
        progress_(where, "reading", 0, "elements"),
        found_(now) {}

  rollout read();

 private:
  void read_subsys(const folder &knowledge, const std::string &subsys);
  [[nodiscard]] std::optional<folder> reports_of(const std::string &subsys);
  bool read_element(const folder &ks, const std::optional<folder> &reports, const element &who);
  void read_report_of(const element &who, const published_k &k,
                      const std::optional<folder> &reports);
  void add_notes(const element &who, const report_reading &reading);
  void find_unknown(const folder &reports, const std::optional<folder> &ks,
                    const std::string &subsys, const std::vector<std::string> &known);
  void find_unknown_subsys(const std::vector<std::string> &known);

  const rollout_options &options_;
  folder reports_;
  k_reader ks_;
  progress progress_;
  rollout found_;
};

rollout rollout_reader::read() {
  check_publication(options_.publication);
  const folder knowledge(options_.publication / "file" / "knowledge");
  const std::vector<std::string> subsystems = sorted_names(knowledge, check_subsys);
  for (const std::string &subsys : subsystems) {
    read_subsys(knowledge, subsys);
  }
  find_unknown_subsys(subsystems);
  progress_.clear();
  if (found_.elements() > 0) {
    return std::move(found_);
  }
  const auto &damaged = found_.notes(note_kind::damaged_k).first;
  const std::string publication = options_.publication.string();
  if (!options_.config_id.empty()) {
    throw std::runtime_error(publication + ": no K has the config ID " + options_.config_id);
  }
  throw std::runtime_error(publication + (damaged.empty() ? ": contains no K"
                                                          : ": contains no K that can be read: " +
                                                                damaged.front().text));
}

void rollout_reader::read_subsys(const folder &knowledge, const std::string &subsys) {
  const auto ks = knowledge.find(subsys);
  const auto reports = reports_of(subsys);
  std::vector<std::string> known = ks ? sorted_names(*ks, check_index) : std::vector<std::string>();
  std::erase_if(known, [&](const std::string &index) {
    return !read_element(*ks, reports, {.subsys = subsys, .index = index});
  });
  if (reports) {
    find_unknown(*reports, ks, subsys, known);
  }
}

std::optional<folder> rollout_reader::reports_of(const std::string &subsys) {
  auto reports = reports_.find(subsys);
  if (!reports && reports_.has(subsys)) {
    found_.add_note(note_kind::damaged_report, {.subsys = subsys, .index = ""},
                    "the reports cannot be opened as a folder");
  }
  return reports;
}

// Returns whether there is a K.
bool rollout_reader::read_element(const folder &ks, const std::optional<folder> &reports,
                                  const element &who) {
  k_reading reading = ks_.read(ks, who.index);
  if (!reading.wrong.empty()) {
    found_.add_note(note_kind::damaged_k, who, reading.wrong);
  }
  const bool is_wanted =
      reading.k && (options_.config_id.empty() || reading.k->config_id == options_.config_id);
  if (is_wanted) {
    read_report_of(who, *reading.k, reports);
  }
  progress_.advance();
  return reading.k || !reading.wrong.empty();
}

void rollout_reader::read_report_of(const element &who, const published_k &k,
                                    const std::optional<folder> &reports) {
  const report_reading reading =
      reports ? read_report(*reports, who.index + std::string(report_suffix)) : report_reading{};
  add_notes(who, reading);
  found_.add(who, k, standing_of(reading, k.digest, found_.when(), options_.silent_after), reading);
}

void rollout_reader::add_notes(const element &who, const report_reading &reading) {
  if (!reading.wrong.empty()) {
    found_.add_note(note_kind::damaged_report, who, "the report cannot be used: " + reading.wrong);
  }
  if (!reading.report) {
    return;
  }
  const element_report &report = *reading.report;
  const bool is_other_subsys = !report.subsys.empty() && report.subsys != who.subsys;
  const bool is_other_index = !report.index.empty() && report.index != who.index;
  if (is_other_subsys || is_other_index) {
    found_.add_note(note_kind::other_element, who,
                    "the report says it is of " +
                        (report.subsys.empty() ? who.subsys : report.subsys) + " " +
                        (report.index.empty() ? who.index : report.index));
  }
  if (is_ahead(report, found_.when())) {
    found_.add_note(note_kind::clock_ahead, who,
                    "the clock of the element is ahead: the report is of " + report.time);
  }
  if (is_received_ahead(report, found_.when())) {
    found_.add_note(note_kind::clock_ahead, who,
                    "the time of the report's file is ahead: " + iso_time(report.received));
  }
}

// An element may have been published since the known ones were listed.
void rollout_reader::find_unknown(const folder &reports, const std::optional<folder> &ks,
                                  const std::string &subsys,
                                  const std::vector<std::string> &known) {
  reports.each_name([&](const std::string &name) {
    const std::string index = index_of_report(name);
    if (index.empty() || std::ranges::binary_search(known, index)) {
      return;
    }
    if (!ks || !has_k(*ks, index)) {
      found_.add_note(note_kind::unknown_element, {.subsys = subsys, .index = printable(index)},
                      "has a report but no K in the publication");
    }
  });
}

void rollout_reader::find_unknown_subsys(const std::vector<std::string> &known) {
  for (const std::string &subsys : sorted_names(reports_, check_subsys)) {
    const auto reports =
        std::ranges::binary_search(known, subsys) ? std::nullopt : reports_.find(subsys);
    if (reports) {
      find_unknown(*reports, std::nullopt, subsys, {});
    }
  }
}

}  // namespace

rollout read_rollout(const rollout_options &options, const console &where, std::time_t now) {
  return rollout_reader(options, where, now).read();
}

}  // namespace zotconf
