// SPDX-License-Identifier: Apache-2.0
// People read words, programs read keys: what is printed for people has no word with underscores
// but names that come from elsewhere.
#include <gtest/gtest.h>

#include <regex>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"

namespace zot::test {
namespace {

using words = std::vector<std::string>;

// Names of calls, statuses and variables, and paths, are told as they are.
std::vector<std::string> keys_in(const std::string &text) {
  static const std::regex key("(^|[^A-Za-z0-9_/.])([a-z]+(_[a-z]+)+)(?![A-Za-z0-9_/.(])");
  std::vector<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), key), end; at != end; ++at) {
    const std::string word = (*at)[2];
    if (!word.starts_with("zot_")) {
      found.push_back(word);
    }
  }
  return found;
}

class PlainWords : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    commit_source();
    put("Wlan/a", "ssid=b");
    commit_source();
  }
  void expect_plain(const words &args) const {
    const finished done = run(args);
    for (const std::string &text : {done.out, done.err}) {
      EXPECT_EQ(keys_in(text), words{}) << args.front() << ":\n" << text;
    }
  }
};

TEST(KeysInText, AreFound) {
  EXPECT_EQ(keys_in("not_restorable: /a/prev_subsys.k: still_bad"),
            (words{"not_restorable", "still_bad"}));
  EXPECT_EQ(keys_in("[zot_conf_get] zot_conf_get() /tmp/a_b ZOT_PREFIX_CONF_ROOT"), words{});
}

TEST_F(PlainWords, AreAllThatIsToldOfDamage) {
  write_bytes(conf("config/Zone/z/1"), "broken");
  write_bytes(conf("knowledge/prev_subsys.k"), "{");
  write_bytes(conf("config/stray"), "x");
  for (const words &args :
       {words{"status"}, words{"verify", "--strict"}, words{"show", "last"},
        words{"cycle", "--index", index_}, words{"verify", "--repair", "--index", index_}}) {
    expect_plain(args);
  }
}

TEST_F(PlainWords, AreAllThatIsToldOfAFileThatTheServiceLacks) {
  write_bytes(conf("config/Zone/z/1"), "broken");
  std::filesystem::remove(dir_ / "pub/config/Zone/z/1");
  const finished done = run({"verify", "--repair", "--index", index_});
  EXPECT_TRUE(has(done.out, "not available: ")) << done.out;
  EXPECT_EQ(keys_in(done.out + done.err), words{}) << done.out << done.err;
}

TEST_F(PlainWords, AreAllThatIsToldOfAnInterruptedCommit) {
  const interrupted_commit commit(conf_root_);
  for (const words &args : {words{"status"}, words{"verify"}, words{"forget"}}) {
    expect_plain(args);
  }
}

TEST_F(PlainWords, AreAllThatIsToldOfARollBack) {
  put("Wlan/a", "ssid=c");
  publish_source();
  for (const words &args : {words{"cycle", "--index", index_, "--roll-back"},
                            words{"cycle", "--index", index_}, words{"status"}, words{"forget"}}) {
    expect_plain(args);
  }
}

TEST_F(PlainWords, AreAllThatIsToldOfPublications) {
  for (const words &args :
       {words{"publish", dir_ / "source", "--out", dir_ / "other", "--index", "x", "--cluster", "c",
              "--dry-run"},
        words{"publish", dir_ / "source", "--out", dir_ / "other", "--index", "x", "--cluster",
              "c"},
        words{"prune", dir_ / "pub", "--grace", "0", "--dry-run"}, words{"prune", dir_ / "source"},
        words{"diff", "last", "current", "--stat"}, words{"categories"}}) {
    expect_plain(args);
  }
}

}  // namespace
}  // namespace zot::test
