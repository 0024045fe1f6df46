// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/verify.hpp"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <stdexcept>

#include "tools/cache/examine.hpp"
#include "tools/cache/k_text.hpp"
#include "tools/cache/repair.hpp"
#include "tools/output/environment.hpp"
#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/hint.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/output/text_table.hpp"

namespace zotconf {
namespace {

// The final report of the command.
struct verdict_of_verify {
  cache_paths paths;
  findings found;                       // after the repair, if there was one
  std::optional<repair_report> repair;  // nullopt: no repair was requested
};

std::string spaced(std::string word) {
  std::ranges::replace(word, '_', ' ');
  return word;
}

int64_t count_of_bad(const findings &found) {
  return std::ranges::count(found.damaged, false, &damage::is_harmless);
}

// Whether there is nothing to check, except perhaps what a get has left in the scratch area.
bool is_empty(const findings &found) {
  const auto is_absent = [&found](k_slot slot) {
    return slot == k_slot::scratch || !found.slot(slot).is_present;
  };
  return found.is_clean() && std::ranges::all_of(k_slots, is_absent);
}

const char *result_of(const findings &found) {
  if (is_empty(found)) {
    return "empty";
  }
  if (found.is_clean()) {
    return "clean";
  }
  return count_of_bad(found) > 0 ? "damaged" : "interrupted";
}

void set_damage(json_node list, const damage &bad) {
  list.append()
      .set("path", bad.path.string())
      .set("slot", name_of(bad.slot))
      .set("kind", bad.kind)
      .set("state", bad.state)
      .set("code", bad.wrong.code)
      .set("name", name_of_status(bad.wrong.code))
      .set("text", bad.wrong.text)
      .set("harmless", bad.is_harmless);
}

void set_repair(json_node root, const std::optional<repair_report> &repair) {
  if (!repair) {
    return;
  }
  json_node list = root.array("repairs");
  for (const repair_outcome &each : repair->outcomes) {
    list.append()
        .set("path", each.path.string())
        .set("result", each.result)
        .set("text", stated(each.text));
  }
  set_status(root, "service_error", repair->service_error);
}

void write_json(const console &where, const verdict_of_verify &told) {
  json_document document;
  json_node root = document.root();
  root.set("conf_root", told.paths.conf_root.string())
      .set("tmp_root", told.paths.tmp_root.string());
  json_node slots = root.array("slots");
  for (const k_slot slot : k_slots) {
    const stored_k &k = told.found.slot(slot);
    json_node item = slots.append();
    item.set("slot", name_of(slot)).set("state", state_of(k.is_present, k.wrong).word);
    set_k(item, k);
  }
  json_node damaged = root.array("damaged");
  for (const damage &bad : told.found.damaged) {
    set_damage(damaged, bad);
  }
  json_node notes = root.array("notes");
  for (const verify_note &note : told.found.notes) {
    notes.append().set("kind", note.kind).set("path", note.path.string()).set("text", note.text);
  }
  set_outlook(root, told.found.outlook);
  set_repair(root, told.repair);
  root.set("files", told.found.files)
      .set("bytes", told.found.bytes)
      .set("result", result_of(told.found));
  where.out() << document.text();
}

void print_slots(const console &where, const findings &found) {
  text_table table({{"SLOT"},
                    {"STATE"},
                    {"CONFIG ID"},
                    {"ENTRIES", align::right},
                    {"BYTES", align::right},
                    {"K"}});
  for (const k_slot slot : k_slots) {
    const stored_k &k = found.slot(slot);
    const state_text state = state_of(k.is_present, k.wrong);
    table.add_row({std::string(name_of(slot)),
                   {state.word, state.with},
                   k.config_id.empty() ? "-" : printable(k.config_id),
                   k.is_good() ? std::to_string(k.files.size()) : "-",
                   k.is_good() ? std::to_string(k.size_of_files()) : "-",
                   k.k.string()});
  }
  table.print(where);
}

void print_repair(const console &where, const repair_report &repair) {
  for (const repair_outcome &each : repair.outcomes) {
    const bool done = each.text.empty();
    where.out() << where.paint(spaced(each.result), done ? colour::green : colour::yellow) << ": "
                << printable(each.path.string()) << (done ? "" : ": ") << printable(each.text)
                << '\n';
  }
}

void print_findings(const console &where, const findings &found) {
  if (found.commit.is_interrupted()) {
    for (const std::string &sentence : found.outlook.sentences) {
      where.out() << where.paint("commit", colour::red) << ": " << printable(sentence) << '\n';
    }
  }
  for (const damage &bad : found.damaged) {
    where.out() << (bad.is_harmless ? where.paint("harmless", colour::yellow)
                                    : where.paint("damaged", colour::red))
                << ": " << printable(bad.path.string()) << ": " << spaced(bad.state) << ": "
                << printable(described(bad.wrong))
                << (bad.is_harmless ? "; a new configuration overwrites it" : "") << '\n';
  }
  for (const verify_note &note : found.notes) {
    where.out() << "note: " << printable(note.path.string()) << ": " << note.text << '\n';
  }
}

void write_text(const console &where, const verdict_of_verify &told) {
  const findings &found = told.found;
  print_slots(where, found);
  where.out() << '\n';
  if (told.repair) {
    print_repair(where, *told.repair);
  }
  print_findings(where, found);
  const auto bad = count_of_bad(found);
  where.out() << where.paint(result_of(found), found.is_clean() ? colour::green : colour::red)
              << ": ";
  if (bad > 0) {
    where.out() << bad << " bad; ";
  }
  where.out() << counted(found.files, "file", "files") << ", " << found.bytes << " bytes checked\n";
}

void append(repair_report &into, repair_report more) {
  std::ranges::move(more.outcomes, std::back_inserter(into.outcomes));
  into.service_error = std::move(more.service_error);
}

// Repairs K first: only a good K shows which files are bad.
void repair_found(const verify_options &options, verdict_of_verify &told, const console &where) {
  told.repair.emplace();
  if (told.found.is_clean()) {
    return;
  }
  if (told.paths.dev_mode) {
    throw std::runtime_error("dev mode: " + told.paths.conf_root.string() + " is read-only");
  }
  if (told.found.commit.state == commit_state::in_progress) {
    throw advised_error("nothing was repaired: a commit is in progress", "zotconf status");
  }
  if (told.found.commit.is_interrupted()) {
    told.repair->outcomes.push_back(undo_commit(told.paths, options.who));
    told.found = examine(told.paths, options.strict, where);
    // No file repair during an open commit: its undo would replace the files.
    if (told.found.is_clean() || !told.found.commit.undo.empty()) {
      return;
    }
  }
  append(*told.repair, repair_k(told.paths, options.who, told.found));
  const bool has_bad_k = !told.found.slot(k_slot::current).is_good() ||
                         told.found.slot(k_slot::refused).wrong.has_value();
  if (has_bad_k) {
    told.found = examine(told.paths, options.strict, where);
  }
  if (!told.repair->service_error) {
    append(*told.repair, repair_files(told.paths, told.found, where));
  }
  told.found = examine(told.paths, options.strict, where);
}

// The command that helps with what was found and is still there; empty when none does.
std::string remedy_of(const verdict_of_verify &told) {
  if (told.paths.dev_mode || told.found.commit.state == commit_state::in_progress) {
    return "";
  }
  if (!told.repair) {
    return "zotconf verify --repair --index ID";
  }
  const auto is_of_refused = [](const damage &bad) {
    return bad.is_harmless || bad.slot == k_slot::refused;
  };
  if (told.found.commit.is_interrupted()) {
    return "zotconf status";
  }
  return std::ranges::all_of(told.found.damaged, is_of_refused)
             ? "zotconf forget"
             : "zotconf cycle --index ID --commit";
}

// What goes to standard error below the result. Returns the exit status.
int conclude(const verdict_of_verify &told, const console &where) {
  if (told.repair && told.repair->service_error) {
    const library_status &error = *told.repair->service_error;
    const std::string hint = hint_of(error.text, told.paths.conf_root);
    tell_error(where.err(), "repair: " + described(error) + (hint.empty() ? "" : ": ") + hint,
               command_after(error.code));
    return exit_failure;
  }
  if (is_empty(told.found)) {
    tell_error(where.err(),
               std::string(no_configuration_yet) + ": no K in " + told.paths.conf_root.string() +
                   "; ZOT_PREFIX_CONF_ROOT must have the value of the service process",
               "zotconf status");
    return exit_failure;
  }
  if (told.found.is_clean()) {
    return exit_success;
  }
  tell_remedy(where.err(), remedy_of(told));
  return exit_damaged;
}

}  // namespace

int run_verify(const verify_options &options, const console &where) {
  warn_of_environment(where, options.repair ? use_of_service::asked : use_of_service::none);
  verdict_of_verify told{.paths = find_cache(), .found = {}, .repair = {}};
  require_readable(told.paths);
  told.found = examine(told.paths, options.strict, where);
  if (options.repair) {
    repair_found(options, told, where);
  }
  if (where.is_json()) {
    write_json(where, told);
  } else {
    write_text(where, told);
  }
  return conclude(told, where);
}

}  // namespace zotconf
