// SPDX-License-Identifier: Apache-2.0
#include "tools/element/cycle.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <string_view>

#include "tools/element/apply.hpp"
#include "tools/element/cycle_report.hpp"
#include "tools/element/foreign.hpp"
#include "tools/element/running_command.hpp"
#include "tools/output/environment.hpp"
#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/hint.hpp"
#include "tools/output/plain_text.hpp"
#include "zot_conf.hpp"

namespace zotconf {
namespace {

// Runs the command, whose exit status decides about commit or rollback.
command_end ask_command(const cycle_options &chosen, const entries &list,
                        const std::optional<metadata> &from, const console &where,
                        cycle_report &report) {
  const temporary_folder scratch;
  const fs::path change_list = scratch.path() / "changes.json";
  const fs::path folder = chosen.out.value_or(scratch.path() / "files");
  if (!chosen.out) {
    write_entries(folder, list);
  }
  write_change_list(change_list, lines_of(list), from);
  where.out() << std::flush;
  // With --json, standard output must hold one JSON document only, so the command prints to
  // standard error.
  const std::string command = where.is_json() ? "exec >&2\n" + chosen.command : chosen.command;
  command_end end = chosen.apply_timeout
                        ? run_within(*chosen.apply_timeout, command, folder, change_list)
                        : run_command(command, folder, change_list);
  report.tell_apply(end.text);
  return end;
}

int carry_out(handle &element_handle, verdict decided, cycle_report &report) {
  if (decided == verdict::none) {
    report.tell_undecided();
    return exit_success;
  }
  const bool accepted = decided == verdict::commit;
  const status done = accepted ? element_handle.commit() : element_handle.roll_back();
  if (done != ZOT_OK) {
    report.tell_failure(accepted ? "commit" : "roll-back", done);
    return exit_failure;
  }
  if (accepted) {
    report.tell_verdict("committed", "committed");
    return exit_success;
  }
  report.tell_verdict("rolled_back", "rolled back; to accept it again: zotconf forget");
  return exit_rolled_back;
}

struct outcome {
  std::string_view key;
  std::string_view words;
  int exit;
};

constexpr outcome new_configuration = {"new", "new configuration", exit_success};
constexpr outcome no_update = {"no_update", "no update", exit_no_update};
constexpr outcome cached = {"cached", "cached configuration", exit_success};
constexpr outcome same_as_rolled_back = {
    "same_as_rolled_back",
    "same as the configuration that was rolled back (to accept it again: zotconf forget)",
    exit_same_as_corrupted};

const outcome &outcome_of(const entries &list, bool is_new, const cycle_options &chosen) {
  if (list.result() == ZOT_ERR_SAME_AS_CORRUPTED) {
    return same_as_rolled_back;
  }
  if (chosen.want == ZOT_STAT_CACHED) {
    return cached;
  }
  return is_new ? new_configuration : no_update;
}

// The library looks for the K in force, names no file and logs an error when there is none.
bool tells_a_missing_k(const log_line &line) {
  return line.level == ZOT_LOG_ERROR && line.function == "zot_priv_verify_k_file" &&
         line.text.find(std::strerror(ENOENT)) != std::string_view::npos;
}

void print_log(std::ostream &err, const log_line &line) {
  err << printable(line.text.substr(0, line.text.find_last_not_of('\n') + 1)) << '\n';
  if (tells_a_missing_k(line)) {
    err << "zotconf: this K is the one in force: " << no_configuration_yet << '\n';
  }
}

// The library logs a debug message for each file that it has found good.
bool tells_a_good_file(const log_line &line) {
  return line.function == "zot_priv_chk_vail_gpb" && line.text.ends_with(": Done\n");
}

int run_cycle(const cycle_options &chosen, const console &where, cycle_report &report) {
  std::string reason;
  progress verified(where, "verified", 0);
  auto client =
      create_handle(chosen, where.err(), reason, where.style().progress ? &verified : nullptr);
  if (!client) {
    report.tell_no_handle(reason);
    return exit_failure;
  }
  warn_of_foreign_owner(*client->c_handle(), where.err());
  const entries list =
      client->get(category_set(chosen.categories), static_cast<change>(chosen.want));
  verified.clear();
  const bool is_rolled_back = list.result() == ZOT_ERR_SAME_AS_CORRUPTED;
  if (list.result().is_error()) {
    report.tell_failure("get", list.result(), hint_of_get(*client, list.result()));
    if (!is_rolled_back) {
      return exit_failure;
    }
  }
  const bool is_new = client->is_new();
  warn_of_foreign_configuration(*client->c_handle(), ZOT_SLOT_CURRENT, chosen.index, where.err());
  if (is_new) {
    warn_of_foreign_configuration(*client->c_handle(), ZOT_SLOT_TMP, chosen.index, where.err());
  }
  const outcome &found = outcome_of(list, is_new, chosen);
  const auto from = client->metadata_of(is_new ? generation::fetched : generation::current);
  report.tell_metadata(from);
  report.tell_entries(found.key, found.words, list);
  if (chosen.out) {
    write_entries(*chosen.out, list);
  }
  if (!is_new) {
    return found.exit;
  }
  if (chosen.decide != verdict::by_command) {
    return carry_out(*client, chosen.decide, report);
  }
  const command_end end = ask_command(chosen, list, from, where, report);
  if (end.said == answer::none) {
    tell_error(where.err(),
               "apply: " + end.text + "; the configuration is neither committed nor rolled back");
    return exit_apply_failed;
  }
  return carry_out(*client, end.said == answer::accepted ? verdict::commit : verdict::roll_back,
                   report);
}

}  // namespace

std::optional<zot_catset> parse_categories(const std::vector<std::string> &names,
                                           std::string &wrong) {
  if (names.size() == 1 && names.front() == "all") {
    return category_set::all().c_set();
  }
  category_set result;
  for (const std::string &name : names) {
    const auto found = category_named(name);
    if (!found) {
      wrong = name;
      return std::nullopt;
    }
    result.add(*found);
  }
  return result.c_set();
}

std::optional<uint32_t> parse_want(const std::vector<std::string> &names, std::string &wrong) {
  change result = change::none;
  for (const std::string &name : names) {
    const auto *const found =
        std::ranges::find(changes, name, [](change which) { return name_of(which); });
    const bool alone = name == "full" || name == "cached";
    if (found == changes.end() || (alone && names.size() > 1)) {
      wrong = name;
      return std::nullopt;
    }
    result = result | *found;
  }
  return static_cast<uint32_t>(result);
}

std::optional<handle> create_handle(const cycle_options &from, std::ostream &err,
                                    std::string &reason, progress *verified) {
  options settings{.subsystem = from.subsys,
                   .index = from.index,
                   .timeout = from.timeout,
                   .timeout_gpb = from.timeout_gpb};
  settings.log.level = from.log_level.value_or(ZOT_LOG_ERROR);
  settings.log.function = [&err, level = from.log_level, verified](const log_line &line) {
    if (level && line.level <= *level) {
      print_log(err, line);
    }
    if (verified != nullptr && tells_a_good_file(line)) {
      verified->advance();
    }
  };
  auto created = handle::create(std::move(settings), &reason);
  if (created && verified != nullptr) {
    const uint32_t every_file = ZOT_LOG_DEBUG;
    zot_parm_set(created->c_handle(), ZOT_PARM_LOG_LEVEL, &every_file, sizeof every_file);
  }
  return created;
}

bool has_configuration(handle &element) {
  const zot_ctx &handle = *element.c_handle();
  const fs::path knowledge = fs::path(handle.conf_root) / "knowledge";
  return handle.dev_mode != 0 || is_there(knowledge / "subsys.k") ||
         is_there(knowledge / "subsys.checksum");
}

std::string hint_of_get(handle &element, const status &result) {
  std::string hint = hint_of(result.text(), element.c_handle()->tmp_root);
  if (has_configuration(element)) {
    return hint;
  }
  return hint.append(hint.empty() ? "" : "; ").append(no_configuration_yet);
}

int run_cycle(const cycle_options &options, const console &where) {
  warn_of_environment(
      where, options.want == ZOT_STAT_CACHED ? use_of_service::none : use_of_service::asked);
  cycle_report report(where);
  const int exit = run_cycle(options, where, report);
  report.finish();
  return exit;
}

}  // namespace zotconf
