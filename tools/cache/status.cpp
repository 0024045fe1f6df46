// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/status.hpp"

#include <ostream>

#include "tools/cache/foresight.hpp"
#include "tools/cache/k_text.hpp"
#include "tools/cache/room.hpp"
#include "tools/output/environment.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/output/text_table.hpp"

namespace zotconf {
namespace {

// Finds the first bad file of the configuration in force. One is enough: a starting process then
// has nothing in force.
void check_files(slot_state &state, const console &where) {
  progress work(where, "checked", state.k.files.size());
  for (const listed_file &file : state.k.files) {
    if (auto wrong = check_file(file, state.k.root)) {
      state.wrong = std::move(wrong);
      state.bad_file = path_of(file, state.k.root).string();
      return;
    }
    work.advance(file.size);
  }
}

slot_states read_slots(const cache_paths &paths, const console &where) {
  slot_states states;
  for (size_t i = 0; i < k_slots.size(); ++i) {
    slot_state &state = states.at(i);
    state.slot = k_slots.at(i);
    state.k = read_slot(paths, state.slot);
    state.wrong = state.k.wrong;
    if (state.slot == k_slot::current && state.k.is_good()) {
      check_files(state, where);
    }
  }
  return states;
}

// Everything that the command prints.
struct cache_status {
  cache_paths paths;
  slot_states slots;
  commit_outlook commit;
  std::optional<room> needed;  // nullopt: not known
  next_get next;
};

// Takes the configuration in force as the size of an update. Returns nullopt during an open commit,
// because the free space changes before the next one.
std::optional<room> find_room(const cache_paths &paths, const open_commit &commit,
                              const slot_state &current) {
  const auto on = volume_of(paths);
  if (paths.dev_mode || !commit.undo.empty() || !current.is_good() || !on) {
    return std::nullopt;
  }
  return room_of(current.k, *on);
}

cache_status look(const console &where) {
  cache_status found;
  found.paths = find_cache();
  require_readable(found.paths);
  const open_commit commit = find_open_commit(found.paths);
  found.slots = read_slots(found.paths, where);
  const slot_state &current = found.slots.at(static_cast<size_t>(k_slot::current));
  found.commit = outlook_of(commit, current.k, current.wrong ? current.culprit() : "");
  found.needed = find_room(found.paths, commit, current);
  found.next = foresee(found.paths, commit, found.slots);
  return found;
}

void write_json(const console &where, const cache_status &found) {
  const cache_paths &paths = found.paths;
  const next_get &next = found.next;
  json_document document;
  json_node root = document.root();
  root.set("conf_root", paths.conf_root.string())
      .set("tmp_root", paths.tmp_root.string())
      .set("dev_mode", paths.dev_mode)
      .set("port", paths.port)
      .set("service", "http://127.0.0.1:" + std::to_string(paths.port));
  json_node list = root.array("slots");
  for (const slot_state &state : found.slots) {
    json_node item = list.append();
    item.set("slot", name_of(state.slot))
        .set("state", state_of(state.k.is_present, state.wrong).word);
    set_k(item, state.k);
    set_status(item, "wrong", state.wrong);
    item.set("bad_file", stated(state.bad_file));
  }
  set_outlook(root, found.commit);
  set_room(root, found.needed);
  json_node foreseen = root.object("next_get");
  foreseen.set("outcome", next.outcome);
  set_status(foreseen, "error", next.error);
  json_node sentences = foreseen.array("sentences");
  for (const std::string &sentence : next.sentences) {
    sentences.append(sentence);
  }
  where.out() << document.text();
}

void print_paths(const console &where, const cache_paths &paths, const slot_states &states) {
  const auto line = [&where](const std::string &label, const std::string &text) {
    where.out() << where.paint(label, colour::bold) << std::string(13 - label.size(), ' ') << text
                << '\n';
  };
  line("conf root:", paths.conf_root.string());
  line("tmp root:", paths.tmp_root.string());
  for (const slot_state &state : states) {
    line(std::string(name_of(state.slot)) + ":", state.k.k.string());
  }
  line("dev mode:", paths.dev_mode ? "on" : "off");
  line("service:", "http://127.0.0.1:" + std::to_string(paths.port) +
                       (paths.dev_mode ? ", not used in dev mode" : ""));
}

void print_slots(const console &where, const slot_states &states) {
  text_table table({{"SLOT"},
                    {"STATE"},
                    {"CONFIG ID"},
                    {"CLUSTER"},
                    {"FIRMWARE"},
                    {"ENTRIES", align::right},
                    {"BYTES", align::right},
                    {"WRITTEN"}});
  const auto shown = [](const std::string &text) { return text.empty() ? "-" : printable(text); };
  for (const slot_state &state : states) {
    const state_text text = state_of(state.k.is_present, state.wrong);
    const bool is_known = state.k.is_good();
    table.add_row({std::string(name_of(state.slot)),
                   {text.word, text.with},
                   shown(state.k.config_id),
                   shown(state.k.cluster),
                   shown(state.k.firmware),
                   is_known ? std::to_string(state.k.files.size()) : "-",
                   is_known ? std::to_string(state.k.size_of_files()) : "-",
                   state.k.written ? iso_time(*state.k.written) : "-"});
  }
  table.print(where);
  for (const slot_state &state : states) {
    if (state.wrong) {
      where.out() << name_of(state.slot) << ": " << printable(state.culprit()) << ": "
                  << printable(described(*state.wrong)) << '\n';
    }
  }
}

void print_list(const console &where, const char *heading,
                const std::vector<std::string> &sentences) {
  where.out() << '\n' << where.paint(heading, colour::bold) << '\n';
  for (const std::string &sentence : sentences) {
    where.out() << "  - " << printable(sentence) << '\n';
  }
}

void write_text(const console &where, const cache_status &found) {
  print_paths(where, found.paths, found.slots);
  where.out() << '\n';
  print_slots(where, found.slots);
  if (!found.commit.sentences.empty()) {
    print_list(where, "the last commit:", found.commit.sentences);
  }
  if (found.needed && !found.needed->fits_beside()) {
    where.out() << '\n' << where.paint("warning:", colour::yellow) << ' ' << room_warning << '\n';
  }
  print_list(where, "the next get:", found.next.sentences);
}

}  // namespace

int run_status(const status_options & /*options*/, const console &where) {
  warn_of_environment(where, use_of_service::asked);
  const cache_status found = look(where);
  if (where.is_json()) {
    write_json(where, found);
  } else {
    write_text(where, found);
  }
  return exit_success;
}

}  // namespace zotconf
