// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/probe.hpp"

#include <csignal>
#include <exception>
#include <ostream>

#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/probe/report.hpp"
#include "tools/probe/stop_request.hpp"

namespace zotconf {
namespace {

// The library uses that many bytes of an index.
constexpr size_t used_of_index = 17;

class curl_library {
 public:
  curl_library() { curl_global_init(CURL_GLOBAL_ALL); }
  curl_library(const curl_library &) = delete;
  curl_library &operator=(const curl_library &) = delete;
  ~curl_library() { curl_global_cleanup(); }
};

void run_check(const check &each, subject &on, probe_report &report) {
  using clock = std::chrono::steady_clock;
  if (const std::string missing = missing_for(each.needs, on); !missing.empty()) {
    return report.print_check(each, check_result::not_run, missing, {});
  }
  const auto begin = clock::now();
  const auto duration = [begin] {
    return std::chrono::duration_cast<std::chrono::microseconds>(clock::now() - begin);
  };
  try {
    each.run(on);
    report.print_check(each, check_result::passed, "", duration());
  } catch (const stopped_by_signal &) {
    throw;
  } catch (const std::exception &error) {
    report.print_check(each, check_result::failed, error.what(), duration());
  }
}

subject subject_of(const probe_options &options, const fs::path &folder) {
  return {.service = service_client(options.url, std::chrono::seconds(options.timeout)),
          .who = {.subsys = options.who.subsys,
                  .index = upper_case(options.who.index).substr(0, used_of_index)},
          .polls = options.polls,
          .folder = folder};
}

}  // namespace

int run_probe(const probe_options &options, const console &where) {
  // Whoever reads the report may stop early; the folder is removed all the same.
  std::signal(SIGPIPE, SIG_IGN);
  const stop_request stop;
  const curl_library library;
  try {
    const temporary_folder folder;
    subject on = subject_of(options, folder.path());
    probe_report report(where);
    for (const check &each : checks_of_service()) {
      run_check(each, on, report);
    }
    report.print_end();
    return report.has_failed() ? exit_failure : exit_success;
  } catch (const std::exception &error) {
    tell_error(where.err(), std::string("probe: ") + error.what());
    return exit_failure;
  }
}

}  // namespace zotconf
