// SPDX-License-Identifier: Apache-2.0
#include "tools/element/cycle.hpp"

#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"

namespace zot::test {
namespace {

constexpr int ok = 0;
constexpr int failed = 1;
constexpr int usage = 2;
constexpr int no_update = 3;
constexpr int same_as_corrupted = 4;
constexpr int rolled_back = 5;
constexpr int apply_failed = 10;

bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

// An access point; it has no service unless a test names a port.
class Element : public testing::Test {
 protected:
  [[nodiscard]] finished run_at(uint16_t port, const std::vector<std::string> &more) const {
    std::vector<std::string> args = {"cycle", "--index", "001122334455"};
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args, {{"ZOT_DEV_PATH", ""},
                              {"ZOT_PREFIX_CONF_ROOT", dir_ / "device"},
                              {"ZOT_PREFIX_TMP_ROOT", dir_ / "device"},
                              {"ZOT_REMOTE_PORT", std::to_string(port)},
                              {"TMPDIR", dir_ / "tmp"},
                              {"PROBE", dir_ / "probe"}});
  }
  [[nodiscard]] std::string in_force(const std::string &name) const {
    return read_bytes(dir_ / "device/writable/zot/config/" + name);
  }

  void SetUp() override { std::filesystem::create_directories(dir_ / "tmp"); }

  temp_dir dir_;
  std::string out_ = dir_ / "out";
};

// The same, with a service that publishes two files.
class Cycle : public Element {
 protected:
  void SetUp() override {
    Element::SetUp();
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    publish_source();
    service_ = std::make_unique<serving>(dir_ / "pub");
  }

  void put(const std::string &name, const std::string &bytes) const {
    write_bytes(dir_ / "source/" + name, bytes);
  }
  void publish_source(const std::vector<std::string> &more = {}) const {
    ASSERT_EQ(publish(dir_ / "source", dir_ / "pub", more).status, 0);
  }
  [[nodiscard]] finished run(const std::vector<std::string> &more) const {
    return run_at(service_->port(), more);
  }
  // Renames an entry in the published K.
  void rename_published(const std::string &from, const std::string &to) const {
    const std::string latest = dir_ / "pub/file/knowledge/AP/001122334455/latest/001122334455";
    std::filesystem::rename(dir_ / ("pub/config/" + from), dir_ / ("pub/config/" + to));
    std::string k = read_bytes(latest + ".k");
    k.replace(k.find("/" + from), from.size() + 1, "/" + to);
    write_bytes(latest + ".k", k);
    write_bytes(latest + ".checksum", sha256_hex(k) + "\n");
  }
  // Commits, then publishes a configuration that modifies Wlan/a, deletes Zone/z and adds Ap/x.
  void publish_changes() const {
    ASSERT_EQ(run({"--commit"}).status, ok);
    put("Wlan/a", "ssid=other");
    put("Ap/x", "model=x");
    std::filesystem::remove(dir_ / "source/Zone/z");
    publish_source();
  }

  std::unique_ptr<serving> service_;
};

TEST_F(Cycle, ListsEveryEntryOfTheFirstConfigurationAsAdded) {
  const finished done = run({});
  EXPECT_EQ(done.status, ok);
  EXPECT_EQ(done.out,
            "CATEGORY  KEY  STATUS  SIZE\n"
            "Wlan      a    added      6\n"
            "Zone      z    added     10\n"
            "new configuration: 2 entries, 2 added, 16 bytes\n"
            "neither committed nor rolled back (see --commit, --roll-back and --apply)\n");
}

TEST_F(Cycle, IsSilentOnStandardErrorWhenAllIsWell) {
  EXPECT_EQ(run({"--commit"}).err, "");
}

TEST_F(Cycle, LeavesAConfigurationUndecidedWithoutAVerdict) {
  ASSERT_EQ(run({}).status, ok);
  EXPECT_TRUE(has(run({}).out, "new configuration: 2 entries"));
}

TEST_F(Cycle, CommitsOnDemand) {
  const finished done = run({"--commit"});
  EXPECT_EQ(done.status, ok);
  EXPECT_TRUE(has(done.out, "committed\n"));
  EXPECT_EQ(in_force("Wlan/a/1"), "ssid=a");
}

TEST_F(Cycle, TakesAnyKey) {
  put("Wlan/-a.tmp", "ssid=hidden");
  put("Wlan/\xc2\x9b\x33m", "ssid=red");
  publish_source();
  // Renamed after publication, because zotconf does not publish hidden files.
  rename_published("Wlan/-a.tmp", "Wlan/.a.tmp");
  EXPECT_TRUE(has(run({"--out", out_}).out, "\nWlan      ?3m "));
  EXPECT_EQ(read_bytes(out_ + "/Wlan/.a.tmp"), "ssid=hidden");
  EXPECT_EQ(read_bytes(out_ + "/Wlan/a"), "ssid=a");
}

TEST_F(Cycle, TellsThatThereIsNoUpdate) {
  ASSERT_EQ(run({"--commit"}).status, ok);
  const finished done = run({"--commit"});
  EXPECT_EQ(done.status, no_update);
  EXPECT_TRUE(has(done.out, "no update: 0 entries, 0 bytes\n"));
}

TEST_F(Cycle, ListsUnchangedEntriesOfNoUpdateOnDemand) {
  ASSERT_EQ(run({"--commit"}).status, ok);
  const finished done = run({"--want", "unchanged"});
  EXPECT_EQ(done.status, no_update);
  EXPECT_TRUE(has(done.out, "no update: 2 entries, 2 unchanged, 16 bytes\n"));
}

TEST_F(Cycle, ListsTheDifference) {
  publish_changes();
  EXPECT_EQ(run({"--want", "added,modified,deleted,unchanged"}).out,
            "CATEGORY  KEY  STATUS    SIZE\n"
            "Ap        x    added        7\n"
            "Wlan      a    modified    10\n"
            "Zone      z    deleted      0\n"
            "new configuration: 3 entries, 1 added, 1 modified, 1 deleted, 17 bytes\n"
            "neither committed nor rolled back (see --commit, --roll-back and --apply)\n");
}

TEST_F(Cycle, ListsOnlyTheChangesAskedFor) {
  publish_changes();
  EXPECT_TRUE(has(run({"--want", "deleted"}).out, "new configuration: 1 entries, 1 deleted"));
}

TEST_F(Cycle, ListsTheWholeConfigurationOnDemand) {
  publish_changes();
  EXPECT_TRUE(has(run({"--want", "full"}).out, "new configuration: 2 entries, 2 full, 17 bytes"));
}

TEST_F(Cycle, ListsOnlyTheCategoriesAskedFor) {
  EXPECT_TRUE(has(run({"--categories", "Zone,Ap"}).out, "new configuration: 1 entries"));
}

TEST_F(Cycle, WritesTheEntriesBelowTheFolder) {
  ASSERT_EQ(run({"--out", out_}).status, ok);
  EXPECT_EQ(tree(out_), (std::vector<std::string>{"Wlan/a", "Zone/z"}));
  EXPECT_EQ(read_bytes(out_ + "/Wlan/a"), "ssid=a");
}

TEST_F(Cycle, WritesNothingForADeletedEntry) {
  publish_changes();
  ASSERT_EQ(run({"--out", out_}).status, ok);
  EXPECT_EQ(tree(out_), (std::vector<std::string>{"Ap/x", "Wlan/a"}));
}

TEST_F(Cycle, CommitsWhenTheCommandAccepts) {
  const finished done = run({"--out", out_, "--apply", "cat \"$ZOTCONF_DIR/Wlan/a\""});
  EXPECT_EQ(done.status, ok);
  EXPECT_TRUE(has(done.out, "ssid=aapply: exit status 0\ncommitted\n")) << done.out;
  EXPECT_EQ(in_force("Wlan/a/1"), "ssid=a");
}

TEST_F(Cycle, RollsBackWhenTheCommandRefuses) {
  publish_changes();
  const finished done = run({"--apply", "exit 7"});
  EXPECT_EQ(done.status, rolled_back);
  EXPECT_TRUE(
      has(done.out, "apply: exit status 7\nrolled back; to accept it again: zotconf forget\n"))
      << done.out;
  EXPECT_EQ(in_force("Wlan/a/1"), "ssid=a");
}

struct no_answer {
  const char *name;
  const char *command;
  const char *told;
};

class CycleWithoutAnAnswer : public Cycle, public testing::WithParamInterface<no_answer> {};

TEST_P(CycleWithoutAnAnswer, DecidesNothing) {
  const std::string told = GetParam().told;
  const finished done = run({"--apply", GetParam().command, "--apply-timeout", "200ms"});
  EXPECT_EQ(done.status, apply_failed);
  EXPECT_TRUE(done.out.ends_with("apply: " + told + "\n")) << done.out;
  EXPECT_TRUE(has(done.err, "zotconf: apply: " + told +
                                "; the configuration is neither committed nor rolled back\n"))
      << done.err;
  EXPECT_EQ(run({"--commit"}).status, ok);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CycleWithoutAnAnswer,
    testing::Values(
        no_answer{"NotFound", "./no-such-command", "exit status 127, a command was not found"},
        no_answer{"NotExecutable", "/dev/null", "exit status 126, a command cannot be run"},
        no_answer{"Killed", "kill -KILL $$", "ended by signal 9"},
        no_answer{"ChildKilled", "sh -c 'kill -KILL $$'; exit $?",
                  "exit status 137, a signal has ended a command"},
        no_answer{"Late", "sleep 60", "stopped after 200ms"},
        no_answer{"LateAndDeaf", "trap '' TERM; while :; do sleep 1; done", "stopped after 200ms"}),
    [](const auto &each) { return std::string(each.param.name); });

TEST_F(Cycle, DecidesNothingWhenASignalEndsACommandWithoutALimit) {
  const finished done = run({"--apply", "kill -KILL $$"});
  EXPECT_EQ(done.status, apply_failed);
  EXPECT_TRUE(done.out.ends_with("apply: ended by signal 9\n")) << done.out;
}

TEST_F(Cycle, TakesTheAnswerOfACommandThatEndsInTime) {
  const finished done = run({"--apply", "echo done", "--apply-timeout", "30s"});
  EXPECT_EQ(done.status, ok);
  EXPECT_TRUE(has(done.out, "done\napply: exit status 0\ncommitted\n")) << done.out;
}

TEST_F(Cycle, KeepsStandardOutputForItsDocumentBesideACommandWithALimit) {
  const finished done = run({"--apply", "echo printed", "--apply-timeout", "30s", "--json"});
  EXPECT_EQ(json_value(done.out)["verdict"].text(), "committed");
  EXPECT_EQ(done.err, "printed\n");
}

TEST_F(Cycle, RollsBackWithTheHighestStatusOfARefusal) {
  EXPECT_EQ(run({"--apply", "exit 125"}).status, rolled_back);
}

TEST_F(Cycle, RollsBackOnDemand) {
  const finished done = run({"--roll-back"});
  EXPECT_EQ(done.status, rolled_back);
  EXPECT_TRUE(has(done.out, "rolled back; to accept it again: zotconf forget\n"));
}

TEST_F(Cycle, RefusesWhatWasRolledBack) {
  ASSERT_EQ(run({"--roll-back"}).status, rolled_back);
  const finished done = run({"--commit"});
  EXPECT_EQ(done.status, same_as_corrupted);
  EXPECT_TRUE(has(done.err, "New configuration is still corrupted. (-13)")) << done.err;
  EXPECT_FALSE(has(done.out, "committed"));
}

TEST_F(Cycle, RunsNoCommandWithoutANewConfiguration) {
  ASSERT_EQ(run({"--commit"}).status, ok);
  EXPECT_EQ(run({"--apply", "touch \"$PROBE\""}).status, no_update);
  EXPECT_FALSE(exists(dir_ / "probe"));
}

TEST_F(Cycle, RunsNoCommandForWhatWasRolledBack) {
  ASSERT_EQ(run({"--roll-back"}).status, rolled_back);
  EXPECT_EQ(run({"--apply", "touch \"$PROBE\""}).status, same_as_corrupted);
  EXPECT_FALSE(exists(dir_ / "probe"));
}

TEST_F(Cycle, RemovesTheTemporaryFolderAfterTheCommand) {
  ASSERT_EQ(run({"--apply", "test -e \"$ZOTCONF_DIR/Zone/z\" && echo \"$ZOTCONF_DIR\" >\"$PROBE\""})
                .status,
            ok);
  EXPECT_TRUE(read_bytes(dir_ / "probe").starts_with(dir_ / "tmp/"));
  EXPECT_TRUE(std::filesystem::is_empty(dir_ / "tmp"));
}

TEST_F(Cycle, GivesTheCommandAnAbsoluteFolder) {
  const std::string relative = std::filesystem::relative(out_);
  ASSERT_EQ(run({"--out", relative, "--apply", "echo \"$ZOTCONF_DIR\" >\"$PROBE\""}).status, ok);
  EXPECT_TRUE(read_bytes(dir_ / "probe").starts_with("/"));
}

TEST_F(Cycle, CommitsNothingWhenTheEntriesCannotBeWritten) {
  write_bytes(out_, "in the way");
  const finished done = run({"--out", out_, "--commit"});
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, out_)) << done.err;
  EXPECT_TRUE(has(run({}).out, "new configuration"));
}

TEST_F(Cycle, ReturnsCachedEntriesWithoutAService) {
  ASSERT_EQ(run({"--commit"}).status, ok);
  service_->stop(SIGTERM);
  const finished done = run_at(1, {"--want", "cached", "--out", out_});
  EXPECT_EQ(done.status, ok);
  EXPECT_TRUE(has(done.out, "cached configuration: 2 entries, "));
  EXPECT_EQ(read_bytes(out_ + "/Zone/z"), "country=DE");
}

TEST_F(Cycle, FailsOnAnElementThatIsNotPublished) {
  const finished done = run({"--subsys", "CP"});
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "http return code = 404 (-16)")) << done.err;
  EXPECT_EQ(done.out, "");
}

TEST_F(Cycle, FailsOnAMissingFileOfTheConfiguration) {
  std::filesystem::remove(dir_ / "pub/config/Zone/z/1");
  EXPECT_EQ(run({"--commit"}).status, failed);
  EXPECT_FALSE(exists(dir_ / "device/writable/zot/config/Wlan/a/1"));
}

TEST_F(Cycle, GetsAConfigurationWithoutFiles) {
  ASSERT_EQ(run({"--commit"}).status, ok);
  std::filesystem::remove(dir_ / "source/Wlan/a");
  std::filesystem::remove(dir_ / "source/Zone/z");
  publish_source({"--allow-empty"});
  const finished done = run({"--commit"});
  EXPECT_EQ(done.status, ok) << done.err;
  EXPECT_TRUE(has(done.out, "new configuration: 2 entries, 2 deleted, 0 bytes\ncommitted\n"))
      << done.out;
}

TEST_F(Cycle, LogsOnDemand) {
  const finished done = run({"--log-level", "info"});
  EXPECT_TRUE(has(done.err, "Get new configuration: Done\n")) << done.err;
}

TEST_F(Element, FailsWithoutAServiceInTheWordsOfTheLibrary) {
  const finished done = run_at(1, {});
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "zotconf: get: curl error get K.checksum from")) << done.err;
}

TEST_F(Element, FailsOnAnEmptyCache) {
  const finished done = run_at(1, {"--want", "cached"});
  EXPECT_EQ(done.status, failed);
  EXPECT_EQ(done.err,
            "zotconf: get: No cached data now (-12): the element has no configuration yet\n"
            "try: zotconf explain -12\n");
}

TEST_F(Element, GivesUpAfterTheTimeLimit) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *const generic = reinterpret_cast<sockaddr *>(&address);
  ASSERT_EQ(::bind(listener, generic, size), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  ASSERT_EQ(::getsockname(listener, generic, &size), 0);
  const finished done = run_at(ntohs(address.sin_port), {"--timeout", "1"});
  ::close(listener);
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "timeout(1) (-11)")) << done.err;
}

TEST_F(Element, TellsWhyThereIsNoHandle) {
  const finished done = run_zotconf({"cycle", "--index", "a"},
                                    {{"ZOT_DEV_PATH", ""}, {"ZOT_PREFIX_CONF_ROOT", dir_ / "a;b"}});
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, dir_ / "a;b")) << done.err;
}

// The test provides the service, because zotconf does not publish such a key.
TEST_F(Element, WritesNoEntryWhoseKeyIsNoFileName) {
  write_bytes(dir_ / "pack/config/Wlan/1", "ssid=a");
  const std::string archive = dir_ / "gpb.tgz";
  ASSERT_EQ(std::system(("tar czf '" + archive + "' -C '" + (dir_ / "pack") + "' config").c_str()),
            0);
  const std::string k =
      R"({"clusterId": "c", "gpbs": [{"path": "/Wlan/./1", "size": 6, "checksum": ")" +
      sha256_hex("ssid=a") + R"("}]})";
  httplib::Server server;
  const auto answer_with = [](const std::string &bytes) {
    return [bytes](const httplib::Request &, httplib::Response &response) {
      response.set_content(bytes, "application/octet-stream");
    };
  };
  server.Get(R"(.*\.k)", answer_with(k));
  server.Get(R"(.*\.checksum)", answer_with(sha256_hex(k)));
  server.Post("/tgz", [&](const httplib::Request &, httplib::Response &response,
                          const httplib::ContentReader &reader) {
    reader([](const char *, size_t) { return true; });
    response.set_content(read_bytes(archive), "application/gzip");
  });
  const int port = server.bind_to_any_port("127.0.0.1");
  std::thread loop([&server] { server.listen_after_bind(); });
  const finished done = run_at(static_cast<uint16_t>(port), {"--out", out_, "--commit"});
  server.stop();
  loop.join();
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "key \".\" cannot be a file name")) << done.err;
  EXPECT_TRUE(tree(out_).empty());
}

class CycleUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(CycleUsage, RefusesTheArguments) {
  std::vector<std::string> args = {"cycle"};
  args.insert(args.end(), GetParam().begin(), GetParam().end());
  const finished done = run_zotconf(args);
  EXPECT_EQ(done.status, usage);
  EXPECT_NE(done.err, "");
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, CycleUsage,
    testing::Values(std::vector<std::string>{},
                    std::vector<std::string>{"--index", "a", "--subsys", "ap"},
                    std::vector<std::string>{"--index", std::string(18, 'i')},
                    std::vector<std::string>{"--index", "a", "--categories", "Wlan,Nonsense"},
                    std::vector<std::string>{"--index", "a", "--categories", "all,Wlan"},
                    std::vector<std::string>{"--index", "a", "--want", "all"},
                    std::vector<std::string>{"--index", "a", "--want", "full,added"},
                    std::vector<std::string>{"--index", "a", "--want", "cached,added"},
                    std::vector<std::string>{"--index", "a", "--want", "cached", "--commit"},
                    std::vector<std::string>{"--index", "a", "--commit", "--roll-back"},
                    std::vector<std::string>{"--index", "a", "--commit", "--apply", "true"},
                    std::vector<std::string>{"--index", "a", "--roll-back", "--apply", "true"},
                    std::vector<std::string>{"--index", "a", "--apply", ""},
                    std::vector<std::string>{"--index", "a", "--timeout", "-1"},
                    std::vector<std::string>{"--index", "a", "--log-level", "loud"}));

TEST(ParseCategories, TakesAllAndNames) {
  std::string wrong;
  const auto all = zotconf::parse_categories({"all"}, wrong);
  const auto some = zotconf::parse_categories({"Wlan", "Vpn"}, wrong);
  ASSERT_TRUE(all && some);
  EXPECT_TRUE(zot_catset_has(&*all, ZOT_CAT_VPN));
  EXPECT_TRUE(zot_catset_has(&*some, ZOT_CAT_WLAN));
  EXPECT_TRUE(zot_catset_has(&*some, ZOT_CAT_VPN));
  EXPECT_FALSE(zot_catset_has(&*some, ZOT_CAT_ZONE));
}

TEST(ParseCategories, NamesTheWrongOne) {
  std::string wrong;
  EXPECT_FALSE(zotconf::parse_categories({"Wlan", "wlan"}, wrong));
  EXPECT_EQ(wrong, "wlan");
}

TEST(ParseWant, JoinsChanges) {
  std::string wrong;
  EXPECT_EQ(zotconf::parse_want({"added", "deleted"}, wrong),
            static_cast<uint32_t>(ZOT_STAT_ADDED | ZOT_STAT_DELETED));
}

}  // namespace
}  // namespace zot::test
