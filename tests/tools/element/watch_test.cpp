// SPDX-License-Identifier: Apache-2.0
#include "tools/element/watch.hpp"

#include "tests/tools/element/datagrams.hpp"
#include "tests/tools/element/watching.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

TEST_F(Watch, CommitsEachNewConfigurationThatTheCommandAccepts) {
  const auto running = watch("true");
  running->wait_for(committed + "2 entries\n");
  EXPECT_EQ(in_force("Wlan/a/1"), "ssid=a");
  publish_changes();
  running->wait_for(committed + "3 entries\n");
  EXPECT_EQ(in_force("Wlan/a/2"), "ssid=other");
  EXPECT_TRUE(running->err().empty()) << running->err();
}

TEST_F(Watch, TellsEachChangeOfStateOnceWithTheTime) {
  const auto running = watch("true");
  running->wait_for("no update\n");
  wait_for_gets(5);
  running->send(SIGTERM);
  EXPECT_EQ(running->wait(), ok);
  const std::vector<std::string> wanted = {
      " starting: AP 001122334455, every 20ms: "
      "the element has no configuration yet",
      " " + committed + "2 entries", " no update", " stopping: signal 15"};
  const std::vector<std::string> lines = lines_of(running->out());
  ASSERT_EQ(lines.size(), wanted.size()) << running->out();
  for (size_t at = 0; at < lines.size(); ++at) {
    EXPECT_EQ(lines[at].substr(20), wanted[at]);
    EXPECT_EQ(lines[at].substr(0, 2), "20");
    EXPECT_EQ(lines[at][10], 'T');
    EXPECT_EQ(lines[at][19], 'Z');
  }
}

TEST_F(Watch, NamesTheConfiguration) {
  const std::string id = "0f8fad5b-d9cb-469f-a165-70867728950e";
  publish_source({"--config-id", id});
  const auto running = watch("true");
  running->wait_for("committed " + id + ": 2 entries\n");
}

TEST_F(Watch, RollsBackWhatTheCommandRefusesAndGoesOn) {
  const auto running = watch("! test -e \"$ZOTCONF_DIR/Ap/x\"");
  running->wait_for(committed);
  publish_changes();
  running->wait_for("rolled back: apply: exit status 1\n");
  running->wait_for("same as rolled back (to accept it again: zotconf forget)\n");
  EXPECT_EQ(in_force("Wlan/a/1"), "ssid=a");
  fs::remove(dir_ / "source/Ap/x");
  publish_source();
  running->wait_for(committed + "2 entries\n", 2);
  EXPECT_EQ(count_of("same as rolled back", running->out()), 1U);
}

TEST_F(Watch, GivesTheCommandFilesAndAListOfTheChanges) {
  const auto first = watch("true");
  first->wait_for(committed);
  first->send(SIGTERM);
  ASSERT_EQ(first->wait(), ok);
  publish_changes();
  publish_source({"--firmware", "9.1", "--config-id", "0f8fad5b-d9cb-469f-a165-70867728950e"});
  const auto second = watch(
      "cp \"$ZOTCONF_CHANGES\" \"$PROBE\" && cd \"$ZOTCONF_DIR\" && cat Ap/x Wlan/a && test ! -e "
      "Zone/z");
  second->wait_for("committed 0f8fad5b");
  const json_value list(read_bytes(dir_ / "probe"));
  EXPECT_EQ(list["firmware"].text(), "9.1");
  EXPECT_EQ(list["config_id"].text(), "0f8fad5b-d9cb-469f-a165-70867728950e");
  const json_value entries = list["entries"];
  ASSERT_EQ(entries.size(), 3);
  EXPECT_EQ(entries[0]["category"].text(), "Ap");
  EXPECT_EQ(entries[0]["key"].text(), "x");
  EXPECT_EQ(entries[0]["status"].text(), "added");
  EXPECT_EQ(entries[0]["size"].number(), 7);
  EXPECT_EQ(entries[0]["path"].text(), "Ap/x");
  EXPECT_EQ(entries[1]["status"].text(), "modified");
  EXPECT_EQ(entries[2]["key"].text(), "z");
  EXPECT_EQ(entries[2]["status"].text(), "deleted");
  EXPECT_EQ(entries[2]["size"].number(), 0);
  EXPECT_TRUE(entries[2]["path"].is_null());
  // The output of the command goes to standard error and not between the lines of the watch.
  EXPECT_EQ(second->err(), "model=xssid=other");
  EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
}

TEST_F(Watch, GivesTheListToTheCommandOfACycleToo) {
  ASSERT_EQ(run_zotconf({"cycle", "--index", "001122334455", "--apply",
                         "cp \"$ZOTCONF_CHANGES\" \"$PROBE\""},
                        variables_)
                .status,
            ok);
  const json_value list(read_bytes(dir_ / "probe"));
  EXPECT_EQ(list["cluster"].text(), "cluster-1");
  EXPECT_EQ(list["entries"][1]["path"].text(), "Zone/z");
}

TEST_F(Watch, HandsOverTheCategoriesAskedFor) {
  const auto running = watch("find \"$ZOTCONF_DIR\" -type f", {"--categories", "Zone"});
  running->wait_for(committed + "1 entry\n");
  EXPECT_TRUE(has(running->err(), "/Zone/z\n"));
  EXPECT_FALSE(has(running->err(), "/Wlan/a\n"));
}

TEST_F(Watch, TriesAgainWhileTheServiceFailsAndTellsTheRecovery) {
  hide_publication();
  const auto running = watch("true");
  running->wait_for("service failing: unable to get K.checksum");
  wait_for_gets(3);
  EXPECT_EQ(count_of("service failing", running->out()), 1U);
  show_publication();
  running->wait_for(committed);
  EXPECT_TRUE(has(running->out(), " recovered\n"));
  hide_publication();
  running->wait_for("service failing", 2);
  show_publication();
  running->wait_for("recovered\n", 2);
  running->wait_for("no update\n");
}

TEST_F(Watch, TellsThePauseBeforeTheNextAttempt) {
  hide_publication();
  const auto running = watch("true", {"--json"});
  running->wait_for("service_failing");
  running->wait_for("\n", 2);
  const json_value line(lines_of(running->out()).at(1));
  EXPECT_EQ(line["event"].text(), "service_failing");
  EXPECT_EQ(line["status"].number(), -16);
  EXPECT_GE(line["retry_ms"].number(), 20);
  EXPECT_LE(line["retry_ms"].number(), 40);
}

TEST_F(Watch, ReturnsToItsIntervalAfterAFailure) {
  const datagrams manager(dir_ / "notify");
  variables_["NOTIFY_SOCKET"] = dir_ / "notify";
  variables_["WATCHDOG_USEC"] = "100000";
  hide_publication();
  const auto running = watch("true", {"--every", "1h"});
  running->wait_for("service failing");
  show_publication();
  running->wait_for(committed);
  const size_t gets = count_of(".checksum", service_->output());
  EXPECT_TRUE(has(manager.next_with("STATUS=new"), committed));
  // Ten messages take longer than the longest pause after a failure.
  for (int signs = 0; signs < 10; ++signs) {
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
  }
  EXPECT_EQ(count_of(".checksum", service_->output()), gets);
}

TEST_F(Watch, PrintsOneObjectALine) {
  const auto running = watch("false", {"--json"});
  running->wait_for("same_as_rolled_back");
  running->send(SIGINT);
  ASSERT_EQ(running->wait(), ok);
  const std::vector<std::string> wanted = {"starting", "rolled_back", "same_as_rolled_back",
                                           "stopping"};
  const std::vector<std::string> lines = lines_of(running->out());
  ASSERT_EQ(lines.size(), wanted.size()) << running->out();
  for (size_t at = 0; at < lines.size(); ++at) {
    const json_value line(lines[at]);
    EXPECT_EQ(line["event"].text(), wanted[at]);
    EXPECT_EQ(line["time"].text().size(), sizeof "2000-01-01T00:00:00Z" - 1);
    EXPECT_TRUE(line["retry_ms"].is_null());
    EXPECT_TRUE(line["config_id"].is_null());
  }
  EXPECT_EQ(json_value(lines[1])["text"].text(), "apply: exit status 1");
  EXPECT_EQ(json_value(lines[2])["status"].number(), -13);
  EXPECT_EQ(json_value(lines[3])["text"].text(), "signal 2");
}

TEST_F(Watch, EndsACommitThatFailedWithALaterGetAndAsksTheCommandOnce) {
  const auto running = watch("echo run >>\"$PROBE\"; mv \"$SCRATCH/subsys.k\" \"$SCRATCH/aside\"");
  running->wait_for("commit or rollback failing: ");
  running->wait_for("recovered\n");
  running->wait_for(committed + "2 entries\n");
  running->wait_for("no update\n");
  EXPECT_EQ(in_force("Wlan/a/1"), "ssid=a");
  EXPECT_EQ(read_bytes(dir_ / "probe"), "run\n");
}

TEST_F(Watch, EndsARollBackThatFailedWithALaterGetAndAsksTheCommandOnce) {
  const auto running =
      watch("echo run >>\"$PROBE\"; mv \"$SCRATCH/subsys.k\" \"$SCRATCH/aside\"; exit 1");
  running->wait_for("commit or rollback failing: ");
  running->wait_for("rolled back: apply: exit status 1\n");
  running->wait_for("same as rolled back (to accept it again: zotconf forget)\n");
  EXPECT_EQ(read_bytes(dir_ / "probe"), "run\n");
}

TEST_F(Watch, TakesWhatAnotherGetPutInTheScratchAreaBeforeTheCommit) {
  const auto running = watch(
      "test -e \"$PROBE\" || { echo asked >\"$PROBE\"; until test -e \"$PROBE.go\"; do sleep 0.02; "
      "done; }");
  ASSERT_EQ(probe(), "asked");
  publish_changes();
  ASSERT_EQ(run_zotconf({"cycle", "--index", "001122334455"}, variables_).status, ok);
  write_bytes(dir_ / "probe.go", "");
  running->wait_for(
      "commit or rollback failing: [zot_priv_commit_conf]: what the get fetched was changed in ");
  running->wait_for(committed + "2 entries\n");
  EXPECT_EQ(in_force("Ap/x/1"), "model=x");
}

// The command applies a configuration while another process rolls it back.
TEST_F(Watch, HandsOverWhatIsInForceWhenAnotherDecidedOtherwise) {
  const auto running = watch(
      "cat \"$ZOTCONF_DIR\"/Wlan/a >>\"$PROBE.seen\"; echo >>\"$PROBE.seen\"; "
      "test -e \"$PROBE.wait\" || exit 0; echo asked >\"$PROBE\"; "
      "until test -e \"$PROBE.go\"; do sleep 0.02; done");
  running->wait_for(committed);
  write_bytes(dir_ / "probe.wait", "");
  put("Wlan/a", "ssid=b");
  publish_source();
  ASSERT_EQ(probe(), "asked");
  auto elsewhere = variables_;
  elsewhere["ZOT_PREFIX_TMP_ROOT"] = dir_ / "other-scratch";
  ASSERT_EQ(run_zotconf({"cycle", "--index", "001122334455", "--roll-back"}, elsewhere).status, 5);
  write_bytes(dir_ / "probe.go", "");
  running->wait_for("commit or rollback failing: ");
  running->wait_for("configuration in force passed to CMD: 2 entries");
  running->wait_for("same as rolled back (to accept it again: zotconf forget)\n");
  EXPECT_EQ(read_bytes(dir_ / "probe.seen"), "ssid=a\nssid=b\nssid=a\n");
}

// The command saves each list of changes that it receives.
class WatchChanges : public Watch {
 protected:
  [[nodiscard]] std::unique_ptr<background> watch_changes(
      const std::string &then, const std::vector<std::string> &more) const {
    return watch("{ tr -d '\\n\\t' <\"$ZOTCONF_CHANGES\"; echo; } >>\"$PROBE.lists\"; " + then,
                 more);
  }
  // One text for each list.
  [[nodiscard]] std::vector<std::string> given() const {
    std::vector<std::string> texts;
    for (const std::string &line : lines_of(read_bytes(dir_ / "probe.lists"))) {
      const json_value list = json_value(line)["entries"];
      std::string text;
      for (int at = 0; at < list.size(); ++at) {
        text += list[at]["status"].text() + " " + list[at]["category"].text() + "/" +
                list[at]["key"].text() + "; ";
      }
      texts.push_back(text);
    }
    return texts;
  }
};

// Another process commits a configuration and rolls back the next one, which stays published.
TEST_F(WatchChanges, AreThoseToWhatAnotherProcessCommitted) {
  const auto running = watch_changes("true", {"--every", "1500ms"});
  running->wait_for(committed);
  running->send(SIGSTOP);
  publish_changes();
  ASSERT_EQ(run_zotconf({"cycle", "--index", "001122334455", "--commit"}, variables_).status, ok);
  put("Ap/x", "model=y");
  publish_source();
  ASSERT_EQ(run_zotconf({"cycle", "--index", "001122334455", "--roll-back"}, variables_).status, 5);
  running->send(SIGCONT);
  running->wait_for("configuration in force passed to CMD: ");
  running->wait_for("same as rolled back (to accept it again: zotconf forget)\n");
  wait_for_gets(1);
  EXPECT_EQ(given(), (std::vector<std::string>{"added Wlan/a; added Zone/z; ",
                                               "added Ap/x; modified Wlan/a; deleted Zone/z; "}));
}

// The commit of what the command accepted fails, and then another configuration is published.
TEST_F(WatchChanges, CountFromWhatTheCommandHasApplied) {
  variables_["CACHE"] = dir_ / "device/writable/zot";
  const auto running = watch_changes(
      "test -e \"$PROBE.lock\" || exit 0; rm \"$PROBE.lock\"; "
      "exec 9<\"$CACHE\" && flock 9 && { until test -e \"$PROBE.go\"; do sleep 0.02; done <&9 & } "
      "&& "
      "exec 9<&-",
      {"--timeout", "1"});
  running->wait_for(committed);
  write_bytes(dir_ / "probe.lock", "");
  publish_changes();
  running->wait_for("commit or rollback failing: ");
  put("Zone/z", "country=FR");
  put("Wlan/a", "ssid=a");
  fs::remove(dir_ / "source/Ap/x");
  publish_source();
  write_bytes(dir_ / "probe.go", "");
  running->wait_for("recovered\n");
  running->wait_for(committed);
  EXPECT_EQ(given(), (std::vector<std::string>{"added Wlan/a; added Zone/z; ",
                                               "added Ap/x; modified Wlan/a; deleted Zone/z; ",
                                               "deleted Ap/x; modified Wlan/a; added Zone/z; "}));
}

TEST_F(Watch, GoesOnWhenTheCacheIsLockedDuringACommit) {
  variables_["CACHE"] = dir_ / "device/writable/zot";
  const auto running =
      watch("exec 9<\"$CACHE\" && flock 9 && { sleep 1.5 <&9 & } && exec 9<&-", {"--timeout", "1"});
  running->wait_for("commit or rollback failing: ");
  EXPECT_TRUE(has(running->out(), "writable/zot/ is locked by another process")) << running->out();
  running->wait_for(committed + "2 entries\n");
}

TEST_F(Watch, AppliesLaterWhatCouldNotBeWritten) {
  fs::remove(dir_ / "tmp");
  const auto running = watch("true");
  running->wait_for("apply failing: ");
  fs::create_directory(dir_ / "tmp");
  running->wait_for(committed);
  EXPECT_TRUE(has(running->out(), "recovered\n"));
}

TEST_F(Watch, DecidesNothingWhenTheCommandIsNotThere) {
  const std::string script = dir_ / "aply.sh";
  const auto running = watch(script);
  running->wait_for("apply failing: exit status 127, a command was not found (retry in ");
  write_bytes(script, "#!/bin/sh\n");
  running->wait_for("apply failing: exit status 126, a command cannot be run (retry in ");
  EXPECT_FALSE(exists(dir_ / "device/writable/zot/knowledge/corrupted.k"));
  fs::permissions(script, fs::perms::owner_all);
  running->wait_for(committed + "2 entries\n");
  EXPECT_TRUE(has(running->out(), "recovered\n"));
}

TEST_F(Watch, DecidesNothingWhenASignalEndsTheCommand) {
  const auto running = watch("mkdir \"$PROBE\" && kill -KILL $$");
  running->wait_for("apply failing: ended by signal 9 (retry in ");
  running->wait_for("rolled back: apply: exit status 1\n");
}

TEST_F(Watch, EndsACommandThatTakesTooLong) {
  const auto running = watch("mkdir \"$PROBE\" || exit 0; sleep 60", {"--apply-timeout", "100ms"});
  running->wait_for("apply failing: stopped after 100ms (retry in ");
  running->wait_for(committed + "2 entries\n");
}

TEST_F(Watch, OffersNothingAgainThatAnEarlierRunCommitted) {
  const auto first = watch("true");
  first->wait_for(committed);
  first->send(SIGTERM);
  ASSERT_EQ(first->wait(), ok);
  const auto second = watch("touch \"$PROBE\"");
  second->wait_for("no update\n");
  EXPECT_FALSE(exists(dir_ / "probe"));
}

TEST_F(Watch, HandsOverWhatIsInForceOnDemand) {
  const auto first = watch("true");
  first->wait_for(committed);
  first->send(SIGTERM);
  ASSERT_EQ(first->wait(), ok);
  const auto second = watch("cat \"$ZOTCONF_DIR\"/*/*; exit 3", {"--apply-cached-at-start"});
  second->wait_for("configuration in force passed to CMD: 2 entries, exit status 3\n");
  second->wait_for("no update\n");
  EXPECT_EQ(second->err(), "ssid=acountry=DE");
}

TEST_F(Watch, HandsOverWhatIsInForceAgainWhenTheCommandCouldNotRun) {
  const auto first = watch("true");
  first->wait_for(committed);
  first->send(SIGTERM);
  ASSERT_EQ(first->wait(), ok);
  const auto second = watch("mkdir \"$PROBE\" && kill -KILL $$; cat \"$ZOTCONF_DIR\"/*/*",
                            {"--apply-cached-at-start"});
  second->wait_for("apply failing: ended by signal 9\n");
  second->wait_for("configuration in force passed to CMD: 2 entries, exit status 0\n");
  EXPECT_TRUE(has(second->err(), "ssid=acountry=DE")) << second->err();
}

TEST_F(Watch, TellsThatNothingIsInForce) {
  const auto running = watch("true", {"--apply-cached-at-start"});
  running->wait_for("configuration in force passed to CMD: No cached data now\n");
  running->wait_for(committed);
}

TEST_F(Watch, FailsWithoutAHandle) {
  variables_["ZOT_PREFIX_CONF_ROOT"] = dir_ / "a;b";
  const auto running = watch("true");
  EXPECT_EQ(running->wait(), failed);
  EXPECT_TRUE(has(running->err(), dir_ / "a;b")) << running->err();
}

class WatchUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(WatchUsage, RefusesTheArguments) {
  std::vector<std::string> args = {"watch"};
  args.insert(args.end(), GetParam().begin(), GetParam().end());
  const finished done = run_zotconf(args);
  EXPECT_EQ(done.status, usage);
  EXPECT_NE(done.err, "");
}

using words = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(
    Arguments, WatchUsage,
    testing::Values(words{"--index", "a"}, words{"--apply", "true"},
                    words{"--index", "a", "--apply", ""},
                    words{"--index", "a", "--apply", "true", "--every", "30"},
                    words{"--index", "a", "--apply", "true", "--every", "0s"},
                    words{"--index", "a", "--apply", "true", "--apply-timeout", "5"},
                    words{"--index", "a", "--apply", "true", "--categories", "Nonsense"},
                    words{"--index", "a", "--apply", "true", "--backoff-max", "500ms"},
                    words{"--index", "a", "--apply", "true", "--want", "full"}));

}  // namespace
}  // namespace zot::test
