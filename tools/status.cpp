// SPDX-License-Identifier: Apache-2.0
#include "status.hpp"

#include <ostream>

#include "exit_status.hpp"
#include "json.hpp"
#include "k_text.hpp"
#include "text_table.hpp"

namespace zotconf {
namespace {

// Looks for the first bad file of the configuration in force, as a starting process does: one is
// enough for it to have nothing in force.
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

void write_json(const console &where, const cache_paths &paths, const slot_states &states,
                const next_get &next) {
  json_document document;
  json_node root = document.root();
  root.set("conf_root", paths.conf_root.string())
      .set("tmp_root", paths.tmp_root.string())
      .set("dev_mode", paths.dev_mode)
      .set("port", paths.port)
      .set("service", "http://127.0.0.1:" + std::to_string(paths.port));
  json_node list = root.array("slots");
  for (const slot_state &state : states) {
    json_node item = list.append();
    item.set("slot", name_of(state.slot))
        .set("state", state_of(state.k.is_present, state.wrong).word);
    set_k(item, state.k);
    set_status(item, "wrong", state.wrong);
    item.set("bad_file", state.bad_file.empty() ? std::nullopt : std::optional(state.bad_file));
  }
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
                       (paths.dev_mode ? ", not asked in dev mode" : ""));
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
  const auto stated = [](const std::string &text) { return text.empty() ? "-" : printable(text); };
  for (const slot_state &state : states) {
    const state_text text = state_of(state.k.is_present, state.wrong);
    const bool is_known = state.k.is_good();
    table.add_row({std::string(name_of(state.slot)),
                   {text.word, text.with},
                   stated(state.k.config_id),
                   stated(state.k.cluster),
                   stated(state.k.firmware),
                   is_known ? std::to_string(state.k.files.size()) : "-",
                   is_known ? std::to_string(state.k.size_of_files()) : "-",
                   state.k.written ? iso_time(*state.k.written) : "-"});
  }
  table.print(where);
  for (const slot_state &state : states) {
    if (state.wrong) {
      where.out() << name_of(state.slot) << ": "
                  << printable(state.bad_file.empty() ? state.k.bad_file().string()
                                                      : state.bad_file)
                  << ": " << printable(described(*state.wrong)) << '\n';
    }
  }
}

void write_text(const console &where, const cache_paths &paths, const slot_states &states,
                const next_get &next) {
  print_paths(where, paths, states);
  where.out() << '\n';
  print_slots(where, states);
  where.out() << '\n' << where.paint("the next get:", colour::bold) << '\n';
  for (const std::string &sentence : next.sentences) {
    where.out() << "  - " << printable(sentence) << '\n';
  }
}

}  // namespace

int run_status(const status_options & /*options*/, const console &where) {
  const cache_paths paths = find_cache();
  const slot_states states = read_slots(paths, where);
  const next_get next = foresee(paths, states);
  if (where.is_json()) {
    write_json(where, paths, states, next);
  } else {
    write_text(where, paths, states, next);
  }
  return exit_success;
}

}  // namespace zotconf
