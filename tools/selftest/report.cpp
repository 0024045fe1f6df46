// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/report.hpp"

#include <algorithm>
#include <ostream>

#include "tools/output/duration.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

std::string words_of(std::string name) {
  std::ranges::replace(name, '_', ' ');
  return name;
}

const char *word_of(step_result result) {
  switch (result) {
    case step_result::ok:
      return "ok";
    case step_result::failed:
      return "failed";
    default:
      return "not_run";
  }
}

std::string found_or_missing(const std::optional<std::string> &path) {
  return path ? printable(*path) : "missing";
}

std::string room_text(const target &found) {
  const std::string bytes = found.free_bytes ? human_bytes(*found.free_bytes) : "no limit";
  return found.free_files ? bytes + ", " + std::to_string(*found.free_files) + " files" : bytes;
}

std::string links_text(const std::optional<bool> &hard_links) {
  if (!hard_links) {
    return "unknown";
  }
  return *hard_links ? "yes" : "no: a commit copies the K files instead";
}

void set_target(json_node item, const target &found, const std::string &version,
                const std::optional<fs::path> &folder) {
  item.set("zotconf", version)
      .set("system", found.system)
      .set("libcurl", found.libcurl)
      .set("libcrypto", found.libcrypto)
      .set("sh", found.sh)
      .set("cp", found.cp)
      .set("rm", found.rm)
      .set("tar", found.tar)
      .set("time", found.time)
      .set("clock_set", found.is_clock_set)
      .set("folder", folder ? std::optional(folder->string()) : std::nullopt)
      .set("free_bytes", found.free_bytes)
      .set("free_files", found.free_files)
      .set("hard_links", found.hard_links);
}

}  // namespace

void selftest_report::print_target(const target &found, const std::string &version,
                                   const std::optional<fs::path> &folder) {
  if (where_.is_json()) {
    json_document line;
    set_target(line.root().object("target"), found, version, folder);
    return print_line(line);
  }
  std::ostream &out = where_.out();
  out << "zotconf: " << version << '\n'
      << "system: " << printable(found.system) << '\n'
      << "libcurl: " << printable(found.libcurl) << '\n'
      << "libcrypto: " << printable(found.libcrypto) << '\n'
      << "sh: " << found_or_missing(found.sh) << '\n'
      << "cp: " << found_or_missing(found.cp) << '\n'
      << "rm: " << found_or_missing(found.rm) << '\n'
      << "tar: " << found_or_missing(found.tar) << '\n'
      << "clock: " << found.time
      << (found.is_clock_set ? "" : ", earlier than the release date of this version") << '\n';
  if (folder) {
    out << "folder: " << printable(folder->string()) << '\n'
        << "free: " << room_text(found) << '\n'
        << "hard links: " << links_text(found.hard_links) << '\n';
  }
  out << '\n' << std::flush;
}

void selftest_report::print_step(const std::string &name, step_result result,
                                 std::chrono::microseconds duration, const std::string &text) {
  ++steps_;
  passed_ += result == step_result::ok ? 1 : 0;
  if (result == step_result::failed && !has_failed()) {
    first_failed_ = name;
  }
  if (where_.is_json()) {
    json_document line;
    line.root()
        .set("step", name)
        .set("result", word_of(result))
        .set("duration_us", duration.count())
        .set("text", stated(text));
    return print_line(line);
  }
  std::ostream &out = where_.out();
  out << words_of(name) << ": ";
  if (result == step_result::not_run) {
    out << "not run\n" << std::flush;
    return;
  }
  const bool is_ok = result == step_result::ok;
  out << where_.paint(is_ok ? "ok" : "FAILED", is_ok ? colour::green : colour::red) << ": "
      << printable(text) << " ("
      << duration_text(std::chrono::duration_cast<std::chrono::milliseconds>(duration)) << ")\n"
      << std::flush;
}

void selftest_report::print_end(const std::optional<fs::path> &kept_folder) {
  if (has_failed()) {
    where_.err() << "zotconf: selftest: failed step: " << words_of(first_failed_) << '\n';
  }
  if (where_.is_json()) {
    json_document line;
    line.root()
        .set("steps", steps_)
        .set("passed", passed_)
        .set("first_failed", stated(first_failed_))
        .set("kept", kept_folder ? std::optional(kept_folder->string()) : std::nullopt);
    return print_line(line);
  }
  std::ostream &out = where_.out();
  out << '\n'
      << "selftest: " << passed_ << " of " << steps_ << " steps passed"
      << (has_failed() ? "; first failed step: " + words_of(first_failed_) : "") << '\n';
  if (kept_folder) {
    out << "kept: " << printable(kept_folder->string()) << '\n';
  }
  out << std::flush;
}

void selftest_report::print_line(const json_document &line) const {
  where_.out() << line.line() << std::flush;
}

}  // namespace zotconf
