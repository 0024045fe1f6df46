// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout_reader.hpp"

#include <sys/stat.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "tests/tools/fleet/reporting.hpp"

namespace zot::test {
namespace {

using zotconf::note_kind;
using zotconf::rollout;
using zotconf::standing;

class RolloutReader : public Reporting {
 protected:
  [[nodiscard]] rollout read(const std::string &config_id = "") {
    zotconf::rollout_options options;
    options.publication = publication_;
    options.reports = reports_;
    options.config_id = config_id;
    return zotconf::read_rollout(options, zotconf::console(out_, err_), now_);
  }
  [[nodiscard]] std::string error_of(const std::string &config_id = "") {
    try {
      static_cast<void>(read(config_id));
    } catch (const std::runtime_error &error) {
      return error.what();
    }
    return "no error";
  }
  [[nodiscard]] static std::string notes_of(const rollout &found, note_kind kind) {
    std::string text;
    for (const auto &note : found.notes(kind).first) {
      text += note.who.subsys + " " + note.who.index + ": " + note.text + "\n";
    }
    return text;
  }

  const std::time_t now_ = std::time(nullptr);
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(RolloutReader, FindsEachState) {
  put_good("0A");
  put_refusing("0B");
  put_k("0C");
  put_report("0C", {.problem = "get: timeout"});
  put_k("0D");
  put_report("0D", {.in_force = older_digest});
  put_k("0E");
  const rollout found = read();
  ASSERT_EQ(found.rows().size(), 1U);
  for (const standing state : zotconf::all_standings) {
    EXPECT_EQ(found.rows()[0].count_of(state), 1U) << zotconf::name_of(state);
  }
  const auto &refused = found.in_state(standing::refused).first;
  ASSERT_EQ(refused.size(), 1U);
  EXPECT_EQ(refused[0].who.subsys + refused[0].who.index, "AP0B");
  EXPECT_EQ(refused[0].config_id, some_id);
  EXPECT_EQ(refused[0].reason, "apply: exit status 1");
  for (const note_kind kind : zotconf::all_note_kinds) {
    EXPECT_EQ(found.notes(kind).total, 0U) << zotconf::name_of(kind);
  }
}

TEST_F(RolloutReader, ComparesEachElementWithItsOwnK) {
  const std::string digest = put_k("0A");
  put_k("0B", some_id, 2);
  put_report("0A", {.in_force = digest});
  put_report("0B", {.in_force = digest});
  const rollout found = read();
  EXPECT_EQ(found.rows()[0].count_of(standing::in_force), 1U);
  EXPECT_EQ(found.rows()[0].count_of(standing::waiting), 1U);
}

TEST_F(RolloutReader, ReadsOnlyOnePublication) {
  put_good("0A");
  put_good("0B", other_id);
  put_good("0C", "");
  EXPECT_EQ(read().rows().size(), 3U);
  write_bytes(report_file("0B"), "damaged");
  const rollout found = read(some_id);
  ASSERT_EQ(found.rows().size(), 1U);
  EXPECT_EQ(found.rows()[0].config_id, some_id);
  EXPECT_EQ(found.elements(), 1U);
  EXPECT_EQ(found.notes(note_kind::damaged_report).total, 0U);
  EXPECT_EQ(found.notes(note_kind::unknown_element).total, 0U);
}

TEST_F(RolloutReader, FailsWithoutAK) {
  EXPECT_TRUE(has(error_of(), "is not a folder; no K found")) << error_of();
  std::filesystem::create_directories(publication_ + "/file/knowledge/AP/0A/latest");
  EXPECT_EQ(error_of(), publication_ + ": contains no K");
  write_bytes(k_file("0A", ".k"), "damaged");
  EXPECT_EQ(error_of(),
            publication_ + ": contains no K that can be read: K is not a valid manifest");
}

TEST_F(RolloutReader, FailsWithAnUnknownConfigId) {
  put_good("0A");
  EXPECT_EQ(error_of(other_id), publication_ + ": no K has the config ID " + other_id);
}

TEST_F(RolloutReader, FailsWithoutAFolderOfReports) {
  put_good("0A");
  std::filesystem::remove_all(reports_);
  EXPECT_TRUE(has(error_of(), "cannot open " + reports_)) << error_of();
}

TEST_F(RolloutReader, TakesEveryElementForSilentBeforeTheFirstReport) {
  put_k("0A");
  const rollout found = read();
  EXPECT_EQ(found.rows()[0].count_of(standing::silent), 1U);
  EXPECT_EQ(found.in_state(standing::silent).first[0].reason, "no report");
  EXPECT_EQ(notes_of(found, note_kind::damaged_report), "");
}

TEST_F(RolloutReader, NotesDamagedReports) {
  put_k("0A");
  put_k("0B");
  write_bytes(report_file("0A"), "{");
  ASSERT_EQ(::mkfifo(report_file("0B").c_str(), 0644), 0);
  const rollout found = read();
  EXPECT_EQ(notes_of(found, note_kind::damaged_report),
            "AP 0A: the report cannot be used: it is not a JSON object\n"
            "AP 0B: the report cannot be used: it is not a regular file\n");
  EXPECT_EQ(found.rows()[0].count_of(standing::silent), 2U);
}

TEST_F(RolloutReader, FollowsNoLinkToAFolderOfReports) {
  put_good("0A");
  std::filesystem::rename(reports_ + "/AP", dir_ / "elsewhere");
  std::filesystem::create_directory_symlink(dir_ / "elsewhere", reports_ + "/AP");
  const rollout found = read();
  EXPECT_EQ(found.rows()[0].count_of(standing::silent), 1U);
  EXPECT_EQ(notes_of(found, note_kind::damaged_report),
            "AP : the reports cannot be opened as a folder\n");
}

TEST_F(RolloutReader, DecidesByThePathWhoseReportItIs) {
  const std::string digest = put_k("0A");
  write_bytes(report_file("0A"), report_text({.in_force = digest, .subsys = "CP", .index = "0F"}));
  const rollout found = read();
  EXPECT_EQ(found.rows()[0].count_of(standing::in_force), 1U);
  EXPECT_EQ(notes_of(found, note_kind::other_element), "AP 0A: the report says it is of CP 0F\n");
}

TEST_F(RolloutReader, NotesAClockThatIsAhead) {
  const std::string digest = put_k("0A");
  put_report("0A", {.in_force = digest, .time = "2999-01-01T00:00:00Z"});
  const rollout found = read();
  EXPECT_EQ(found.rows()[0].count_of(standing::in_force), 1U);
  EXPECT_EQ(notes_of(found, note_kind::clock_ahead),
            "AP 0A: the clock of the element is ahead: the report is of 2999-01-01T00:00:00Z\n");
}

TEST_F(RolloutReader, NotesAReportWhoseFileIsOfTheFuture) {
  constexpr std::time_t ahead = 2000000000;
  put_report("0A", {.in_force = put_k("0A")}, ahead);
  const rollout found = read();
  EXPECT_EQ(found.rows()[0].count_of(standing::in_force), 1U);
  EXPECT_EQ(notes_of(found, note_kind::clock_ahead),
            "AP 0A: the time of the report's file is ahead: 2033-05-18T03:33:20Z\n");
}

TEST_F(RolloutReader, CountsReportsOfUnknownElements) {
  put_good("0A");
  put_report("0B", {});
  write_bytes(reports_ + "/CP/0C.json", "{}");
  write_bytes(reports_ + "/AP/.0D.json", "temporary");
  write_bytes(reports_ + "/AP/0E.json.tmp", "temporary");
  write_bytes(reports_ + "/other/0F.json", "{}");
  // An element whose K was removed.
  std::filesystem::create_directories(publication_ + "/file/knowledge/AP/0G/latest");
  put_report("0G", {});
  const rollout found = read();
  EXPECT_EQ(found.elements(), 1U);
  EXPECT_EQ(found.notes(note_kind::unknown_element).total, 3U);
  const std::string notes = notes_of(found, note_kind::unknown_element);
  for (const std::string who : {"AP 0B", "AP 0G", "CP 0C"}) {
    EXPECT_TRUE(has(notes, who + ": has a report but no K in the publication\n")) << notes;
  }
}

TEST_F(RolloutReader, NotesADamagedKAndReadsTheOthers) {
  put_good("0A");
  put_k("0B");
  write_bytes(k_file("0B", ".k"), "damaged");
  put_good("0C");
  write_bytes(k_file("0C", ".checksum"), "other\n");
  put_report("0B", {});
  const rollout found = read();
  EXPECT_EQ(notes_of(found, note_kind::damaged_k),
            "AP 0B: K is not a valid manifest\n"
            "AP 0C: K does not match its checksum file\n");
  EXPECT_EQ(found.elements(), 2U);
  EXPECT_EQ(found.notes(note_kind::unknown_element).total, 0U);
}

TEST_F(RolloutReader, ReadsEverySubSystem) {
  put_good("0A");
  std::filesystem::copy(publication_ + "/file/knowledge/AP", publication_ + "/file/knowledge/DP",
                        std::filesystem::copy_options::recursive);
  std::filesystem::copy(reports_ + "/AP", reports_ + "/DP");
  const rollout found = read();
  EXPECT_EQ(found.rows()[0].count_of(standing::in_force), 2U);
  EXPECT_EQ(notes_of(found, note_kind::other_element), "DP 0A: the report says it is of AP 0A\n");
}

TEST_F(RolloutReader, ChangesNothing) {
  put_good("0A");
  const auto before = tree(dir_.path());
  static_cast<void>(read());
  EXPECT_EQ(tree(dir_.path()), before);
}

// Reports are replaced by renaming, and come and go.
TEST_F(RolloutReader, ReadsAFolderThatChanges) {
  for (int i = 100; i < 200; ++i) {
    put_good(std::to_string(i));
  }
  std::atomic<bool> done = false;
  std::thread receiver([&] {
    for (int i = 0; !done; i = (i + 1) % 100) {
      const std::string index = std::to_string(100 + i);
      const std::string text = read_bytes(report_file(index));
      write_bytes(reports_ + "/AP/.new", text);
      std::filesystem::rename(reports_ + "/AP/.new", report_file(index));
      write_bytes(reports_ + "/AP/new" + index + ".json", text);
      std::filesystem::remove(reports_ + "/AP/new" + std::to_string(100 + (i + 50) % 100) +
                              ".json");
    }
  });
  for (int i = 0; i < 50; ++i) {
    const rollout found = read();
    EXPECT_EQ(found.rows()[0].count_of(standing::in_force), 100U);
    EXPECT_EQ(notes_of(found, note_kind::damaged_report), "");
  }
  done = true;
  receiver.join();
}

// Elements are published, and then report, while the others are read.
TEST_F(RolloutReader, ReadsFoldersThatGrow) {
  for (int i = 100; i < 200; ++i) {
    put_good(std::to_string(i));
  }
  std::atomic<bool> done = false;
  std::thread growth([&] {
    for (int i = 1000; !done && i < 3000; ++i) {
      put_good(std::to_string(i));
    }
  });
  for (int i = 0; i < 20; ++i) {
    const rollout found = read();
    EXPECT_GE(found.rows()[0].count_of(standing::in_force), 100U);
    EXPECT_EQ(found.notes(note_kind::unknown_element).total, 0U);
  }
  done = true;
  growth.join();
}

TEST_F(RolloutReader, ReadsAPublicationThatIsBeingReplaced) {
  std::atomic<bool> done = false;
  put_good("0A");
  put_good("0B");
  std::thread publisher([&] {
    const std::string folder = publication_ + "/file/knowledge/AP/0B";
    while (!done) {
      std::filesystem::rename(folder, dir_ / "gone");
      std::filesystem::rename(dir_ / "gone", folder);
    }
  });
  for (int i = 0; i < 500; ++i) {
    const rollout found = read();
    EXPECT_GE(found.rows()[0].count_of(standing::in_force), 1U);
    EXPECT_EQ(notes_of(found, note_kind::damaged_k), "");
  }
  done = true;
  publisher.join();
}

}  // namespace
}  // namespace zot::test
