// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/selftest.hpp"

#include <csignal>
#include <exception>
#include <ostream>

#include "tools/output/exit_status.hpp"
#include "tools/selftest/report.hpp"
#include "tools/selftest/steps.hpp"
#include "tools/selftest/target.hpp"
#include "tools/selftest/trial.hpp"

namespace zotconf {
namespace {

// If the folder cannot be created, the first step reports the reason.
std::optional<fs::path> try_to_make_folder(trial &on) {
  try {
    on.make_folder();
    return on.folder();
  } catch (const std::exception &) {
    return std::nullopt;
  }
}

void run_step(const step &each, trial &on, selftest_report &report) {
  if (report.has_failed()) {
    return report.print_step(each.name, step_result::not_run, {}, "");
  }
  const auto begin = wake_up::clock::now();
  const auto duration = [begin] {
    return std::chrono::duration_cast<std::chrono::microseconds>(wake_up::clock::now() - begin);
  };
  try {
    const std::string found = each.run(on);
    report.print_step(each.name, step_result::ok, duration(), found);
  } catch (const interrupted &) {
    throw;
  } catch (const std::exception &error) {
    report.print_step(each.name, step_result::failed, duration(), error.what());
  }
}

}  // namespace

int run_selftest(const selftest_options &options, const console &where) {
  // The reader of the report may exit early; the folder must be removed anyway.
  std::signal(SIGPIPE, SIG_IGN);
  trial on(options.dir.empty() ? fs::temp_directory_path() : fs::absolute(options.dir));
  selftest_report report(where);
  const auto folder = try_to_make_folder(on);
  if (options.keep) {
    on.keep_folder();
  }
  report.print_target(look_at_target(folder, options.release_date), options.version, folder);
  try {
    for (const step &each : steps_of_selftest()) {
      run_step(each, on, report);
    }
  } catch (const interrupted &) {
    where.err() << "zotconf: selftest: interrupted\n";
    return exit_failure;
  }
  report.print_end(options.keep ? folder : std::nullopt);
  return report.has_failed() ? exit_failure : exit_success;
}

}  // namespace zotconf
