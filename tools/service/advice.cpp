// SPDX-License-Identifier: Apache-2.0
#include "tools/service/advice.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

struct advice_sentence {
  problem_kind kind;
  std::string_view text;
};

constexpr std::array advice_sentences = {
    advice_sentence{problem_kind::folder_name,
                    "No element asks for this folder. Publish the element under its own sub-system "
                    "and index, then remove the folder."},
    advice_sentence{problem_kind::k_file,
                    "Give the service's user permission to read K, or remove what stands in its "
                    "place; then publish again."},
    advice_sentence{problem_kind::checksum_file,
                    "Publish again, which writes the checksum file; if one is there, give the "
                    "service's user permission to read it."},
    advice_sentence{problem_kind::k_content,
                    "Publish again, which replaces K and its checksum file."},
    advice_sentence{problem_kind::files,
                    "Publish again from the same source, which writes these files anew."},
    advice_sentence{problem_kind::not_published,
                    "Publish for this element, or correct the sub-system and index that it asks "
                    "with."}};

constexpr std::string_view remove_first =
    "Remove what stands in the place of these files, then publish again from the same source.";
constexpr std::string_view permit_first = "Give the service's user permission to read these files.";

// publish replaces a file that is missing or has another size. It keeps any other file as it is.
std::string_view sentence_for_files(const publication_summary &summary) {
  const auto has = [&summary](file_fault_kind kind) {
    return std::ranges::count(summary.faults, kind, &file_fault::kind) > 0;
  };
  if (has(file_fault_kind::not_regular)) {
    return remove_first;
  }
  return has(file_fault_kind::unreadable) ? permit_first : std::string_view();
}

std::string shell_word(const std::string &text) {
  constexpr std::string_view plain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-:+,@%=";
  if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) {
    return text;
  }
  std::string quoted = "'";
  for (const char c : printable(text)) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

std::string publish_command(const publication_summary &summary, const fs::path &folder) {
  const bool has_name = summary.problem->kind != problem_kind::folder_name;
  std::string command = "zotconf publish SRC --out " + shell_word(folder.string());
  command += " --subsys " + (has_name ? shell_word(summary.who.subsys) : "SUBSYS");
  command += " --index " + (has_name ? shell_word(summary.who.index) : "INDEX");
  command += " --cluster " + (summary.cluster.empty() ? "CLUSTER" : shell_word(summary.cluster));
  if (!summary.config_id.empty()) {
    command += " --config-id " + shell_word(summary.config_id);
  }
  if (!summary.firmware.empty()) {
    command += " --firmware " + shell_word(summary.firmware);
  }
  return command;
}

// A folder above the file may be what lacks the permission.
std::string permission_command(const fs::path &folder) {
  return "chmod -R a+rX -- " + shell_word((folder / "config").string());
}

}  // namespace

problem_advice advice_for(const publication_summary &summary, const fs::path &folder) {
  const auto *const general =
      std::ranges::find(advice_sentences, summary.problem->kind, &advice_sentence::kind);
  const std::string_view special = sentence_for_files(summary);
  return {.sentence = std::string(special.empty() ? general->text : special),
          .command = special == permit_first ? permission_command(folder)
                                             : publish_command(summary, folder)};
}

}  // namespace zotconf
