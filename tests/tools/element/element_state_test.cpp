// SPDX-License-Identifier: Apache-2.0
#include "tools/element/element_state.hpp"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "tests/tools/element/watching.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

using zotconf::element_state;

constexpr const char *now = "2026-11-23T11:00:00Z";
constexpr const char *then = "2026-11-22T10:00:00Z";

element_state full_state() {
  element_state state;
  state.version = "1.0.0";
  state.who = {.subsys = "AP", .index = "001122334455"};
  state.in_force = {.digest = std::string(64, 'a'), .config_id = "id"};
  state.refused = {.which = {.digest = std::string(64, 'b'), .config_id = ""},
                   .reason = "apply: exit status 1",
                   .time = then};
  state.undo = {.digest = "", .time = then};
  state.problem = {.text = "get: no answer", .since = then};
  return state;
}

// The text of a state with one part replaced.
std::string replaced(const std::string &part, const std::string &by) {
  std::string text = zotconf::element_state_text(full_state(), now);
  const size_t at = text.find(part);
  if (at == std::string::npos) {
    throw std::runtime_error("no " + part + " in " + text);
  }
  return text.replace(at, part.size(), by);
}

std::string failure_of(const std::string &path) {
  try {
    static_cast<void>(zotconf::read_element_state(path));
  } catch (const std::runtime_error &error) {
    return error.what();
  }
  return "";
}

mode_t mode_of(const std::string &path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0);
  return info.st_mode & 07777;
}

TEST(ElementState, IsAJsonObjectWithAllMembers) {
  const json_value text(zotconf::element_state_text(full_state(), now));
  EXPECT_EQ(text["format"].number(), 1);
  EXPECT_EQ(text["time"].text(), now);
  EXPECT_EQ(text["version"].text(), "1.0.0");
  EXPECT_EQ(text["subsys"].text(), "AP");
  EXPECT_EQ(text["index"].text(), "001122334455");
  EXPECT_EQ(text["in_force"]["digest"].text(), std::string(64, 'a'));
  EXPECT_EQ(text["in_force"]["config_id"].text(), "id");
  EXPECT_EQ(text["refused"]["digest"].text(), std::string(64, 'b'));
  EXPECT_TRUE(text["refused"]["config_id"].is_null());
  EXPECT_EQ(text["refused"]["reason"].text(), "apply: exit status 1");
  EXPECT_EQ(text["refused"]["time"].text(), then);
  EXPECT_TRUE(text["undo"]["digest"].is_null());
  EXPECT_EQ(text["undo"]["time"].text(), then);
  EXPECT_EQ(text["problem"]["text"].text(), "get: no answer");
  EXPECT_EQ(text["problem"]["since"].text(), then);
}

TEST(ElementState, HasNullForWhatIsNotThere) {
  element_state state;
  state.who = full_state().who;
  const json_value text(zotconf::element_state_text(state, now));
  for (const char *const member : {"in_force", "refused", "undo", "problem"}) {
    EXPECT_TRUE(text[member].is_null()) << member;
  }
}

TEST(ElementState, IsReadAsItWasWritten) {
  const std::string text = zotconf::element_state_text(full_state(), now);
  const element_state again = zotconf::parse_element_state(text);
  EXPECT_EQ(zotconf::element_state_text(again, now), text);
}

TEST(ElementState, IsRefusedWithAWrongMember) {
  const std::string digest(64, 'a');
  const std::vector<std::string> wrong = {
      "",
      "[]",
      "null",
      "{}",
      "{\"format\": 1}",
      replaced("\"format\":\t1", "\"format\":\t2"),
      replaced("\"format\":\t1", "\"format\":\t\"1\""),
      replaced("\"AP\"", "17"),
      replaced("\"001122334455\"", "null"),
      replaced(digest, digest.substr(1)),
      replaced(digest, std::string(64, 'A')),
      replaced("\"" + digest + "\"", "null"),
      replaced("\"in_force\"", "\"other\""),
      replaced("\"id\"", "{}"),
      replaced("\"apply: exit status 1\"", "1"),
      replaced(then, "yesterday"),
      replaced(then, "2026-13-22T10:00:00Z"),
      replaced("\"get: no answer\"", "null"),
      replaced("}\n", "} }"),
      zotconf::element_state_text(full_state(), now) + std::string(1, '\0') + "more",
      zotconf::element_state_text(full_state(), now).substr(0, 100),
      std::string(60000, '['),
  };
  for (const std::string &text : wrong) {
    EXPECT_THROW(static_cast<void>(zotconf::parse_element_state(text)), std::runtime_error)
        << text.substr(0, 600);
  }
}

TEST(ElementState, MayHaveMembersThatAreNotKnown) {
  const std::string text = replaced("\"format\"", "\"later\": [1, {}], \"format\"");
  EXPECT_EQ(zotconf::parse_element_state(text).who.subsys, "AP");
}

TEST(ElementState, HasTextsThatAreShortAndPrintable) {
  const std::string text = replaced("apply: exit status 1", "\\u001b[2J" + std::string(5000, 'x'));
  const std::string reason = zotconf::parse_element_state(text).refused->reason;
  EXPECT_EQ(reason.size(), 1024U);
  EXPECT_TRUE(reason.starts_with("?[2Jxxx")) << reason;
}

TEST(ElementState, ATextIsCutWithoutHalfACharacter) {
  const std::string text = zotconf::short_text("x" + std::string(2000, '\xc3') + "\xa4");
  EXPECT_TRUE(zotconf::is_utf8(text));
  std::string letters = "x";
  for (int i = 0; i < 1000; ++i) {
    letters += "\xc3\xa4";
  }
  EXPECT_TRUE(zotconf::is_utf8(zotconf::short_text(letters)));
  EXPECT_LE(zotconf::short_text(letters).size(), 1024U);
}

// As if the medium had no more room.
class limited_file_size {
 public:
  explicit limited_file_size(rlim_t bytes) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
    const rlimit limit{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  limited_file_size(const limited_file_size &) = delete;
  limited_file_size &operator=(const limited_file_size &) = delete;
  ~limited_file_size() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_{};
  sighandler_t handler_;
};

class ElementStateFile : public testing::Test {
 protected:
  void write(const std::string &text) const { zotconf::write_element_state(file_, text); }

  temp_dir dir_;
  const std::string file_ = dir_ / "element.json";
};

TEST_F(ElementStateFile, EverybodyMayReadItWhateverTheUmaskSays) {
  const mode_t before = ::umask(077);
  write("1");
  EXPECT_EQ(mode_of(file_), 0644U);
  ::umask(0);
  write("2");
  ::umask(before);
  EXPECT_EQ(mode_of(file_), 0644U);
  EXPECT_EQ(read_bytes(file_), "2");
  EXPECT_EQ(tree(dir_.path()), std::vector<std::string>{"element.json"});
}

TEST_F(ElementStateFile, WritingThrowsWithoutAFolder) {
  EXPECT_THROW(zotconf::write_element_state(dir_ / "absent/element.json", "1"), std::system_error);
}

TEST_F(ElementStateFile, ReplacesNothingButARegularFile) {
  write_bytes(dir_ / "elsewhere", "other");
  std::filesystem::create_symlink(dir_ / "elsewhere", file_);
  EXPECT_THROW(write("1"), std::runtime_error);
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
  std::filesystem::remove(file_);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  EXPECT_THROW(write("1"), std::runtime_error);
  EXPECT_TRUE(std::filesystem::is_fifo(file_));
  EXPECT_EQ(tree(dir_.path()), std::vector<std::string>{"elsewhere"});
}

TEST_F(ElementStateFile, LeavesNothingBehindWithoutRoom) {
  write("old");
  {
    const limited_file_size limit(4096);
    EXPECT_THROW(write(std::string(60000, 'x')), std::system_error);
  }
  EXPECT_EQ(read_bytes(file_), "old");
  EXPECT_EQ(tree(dir_.path()), std::vector<std::string>{"element.json"});
}

// A writer that is killed again and again leaves either the old text or the new one.
TEST_F(ElementStateFile, IsWholeWhenItsWriterIsKilled) {
  const std::string first(30000, '1');
  const std::string second(60000, '2');
  write(first);
  for (int i = 0; i < 40; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      for (;;) {
        write(second);
        write(first);
      }
    }
    ::usleep(static_cast<useconds_t>(1000 + 137 * i));
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    const std::string found = read_bytes(file_);
    EXPECT_TRUE(found == first || found == second) << i << ": " << found.size();
  }
  write("whole");
  EXPECT_EQ(read_bytes(file_), "whole");
}

TEST_F(ElementStateFile, IsRead) {
  write(zotconf::element_state_text(full_state(), now));
  EXPECT_EQ(zotconf::read_element_state(file_).who.index, "001122334455");
}

TEST_F(ElementStateFile, OneThatIsMissingIsRefused) {
  EXPECT_EQ(failure_of(file_), "cannot open " + file_ + ": No such file or directory");
}

TEST_F(ElementStateFile, OneThatIsTooLongIsRefused) {
  const std::string text = zotconf::element_state_text(full_state(), now);
  write(text + std::string(zotconf::most_state_bytes - text.size(), ' '));
  EXPECT_EQ(failure_of(file_), "");
  write(text + std::string(zotconf::most_state_bytes + 1 - text.size(), ' '));
  EXPECT_EQ(failure_of(file_), file_ + ": more than 65536 bytes");
}

TEST_F(ElementStateFile, AnEndlessOneIsRefused) {
  ASSERT_EQ(::truncate((write("1"), file_.c_str()), off_t{1} << 40), 0);
  EXPECT_EQ(failure_of(file_), file_ + ": more than 65536 bytes");
}

TEST_F(ElementStateFile, ALinkIsRefused) {
  write(zotconf::element_state_text(full_state(), now));
  std::filesystem::create_symlink(file_, dir_ / "link");
  EXPECT_NE(failure_of(dir_ / "link"), "");
}

TEST_F(ElementStateFile, AFifoAndAFolderAreRefusedAtOnce) {
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  EXPECT_EQ(failure_of(file_), file_ + ": not a regular file");
  EXPECT_EQ(failure_of(dir_.path()), dir_.path() + ": not a regular file");
}

TEST_F(ElementStateFile, TheReasonNamesTheFile) {
  write("nothing");
  EXPECT_EQ(failure_of(file_), file_ + ": not a JSON object");
}

}  // namespace
}  // namespace zot::test
