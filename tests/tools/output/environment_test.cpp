// SPDX-License-Identifier: Apache-2.0
// Variables that hold what the library cannot use.
#include <gtest/gtest.h>

#include "tests/tools/support/cached_element.hpp"

namespace zot::test {
namespace {

using words = std::vector<std::string>;

class Variables : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    commit_source();
  }
  [[nodiscard]] std::string warnings(const words &args, const environment &changes) const {
    environment all = variables();
    for (const auto &[name, value] : changes) {
      all[name] = value;
    }
    std::istringstream lines(run_zotconf(args, all).err);
    std::string found;
    for (std::string line; std::getline(lines, line);) {
      found += line.starts_with("zotconf: warning: ") ? line.substr(18) + "\n" : "";
    }
    return found;
  }
  [[nodiscard]] std::string of_port(const words &args, const std::string &port) const {
    return warnings(args, {{"ZOT_REMOTE_PORT", port}});
  }

  words cycle_ = {"cycle", "--index", index_, "--timeout", "1"};
};

TEST_F(Variables, ThatAreRightAreNotWarnedOf) {
  for (const words &args :
       {cycle_, words{"status"}, words{"verify", "--repair", "--index", index_}, words{"forget"}}) {
    EXPECT_EQ(warnings(args, {}), "") << args.front();
  }
  EXPECT_EQ(of_port(cycle_, "65535"), "");
  EXPECT_EQ(of_port({"status"}, ""), "");
}

TEST_F(Variables, AWordForAPortIsTheDefaultPort) {
  const std::string warned =
      "ZOT_REMOTE_PORT=\"abc\": not a port from 1 to 65535; port 8087 is used\n";
  EXPECT_EQ(of_port(cycle_, "abc"), warned);
  EXPECT_EQ(of_port({"status"}, "abc"), warned);
  EXPECT_EQ(of_port({"verify", "--repair", "--index", index_}, "abc"), warned);
}

TEST_F(Variables, APortWithLettersBehindItIsThatPort) {
  EXPECT_EQ(of_port({"status"}, "9000x"),
            "ZOT_REMOTE_PORT=\"9000x\": not a port from 1 to 65535; port 9000 is used\n");
}

TEST_F(Variables, APortAboveTheHighestIsReplacedByNothing) {
  EXPECT_EQ(of_port(cycle_, "99999"),
            "ZOT_REMOTE_PORT=\"99999\": not a port from 1 to 65535; no other port is used, "
            "and every request fails\n");
}

TEST_F(Variables, APortIsNoMatterWhereNoServiceIsAsked) {
  EXPECT_EQ(of_port({"verify"}, "abc"), "");
  EXPECT_EQ(of_port({"forget"}, "abc"), "");
  EXPECT_EQ(of_port({"cycle", "--index", index_, "--want", "cached"}, "abc"), "");
  EXPECT_EQ(warnings(cycle_, {{"ZOT_REMOTE_PORT", "abc"}, {"ZOT_DEV_PATH", dir_.path()}}), "");
}

TEST_F(Variables, APrefixThatAShellWouldInterpretIsNamed) {
  for (const char *const name : {"ZOT_PREFIX_CONF_ROOT", "ZOT_PREFIX_TMP_ROOT"}) {
    EXPECT_EQ(warnings(cycle_, {{name, "/a;b"}}),
              std::string(name) +
                  "=\"/a;b\": contains characters that a shell interprets; no other path is used, "
                  "and every get fails\n");
  }
}

TEST_F(Variables, APrefixThatIsAFileIsNamed) {
  write_bytes(dir_ / "file", "x");
  EXPECT_EQ(warnings({"status"}, {{"ZOT_PREFIX_TMP_ROOT", dir_ / "file"}}),
            "ZOT_PREFIX_TMP_ROOT=\"" + (dir_ / "file") +
                "\": not a directory; no other path is used, and every get fails\n");
}

TEST_F(Variables, ADevelopersFolderThatIsMissingIsNamed) {
  EXPECT_EQ(warnings({"status"}, {{"ZOT_DEV_PATH", dir_ / "none"}}),
            "ZOT_DEV_PATH=\"" + (dir_ / "none") +
                "\": not a directory; no configuration is read, and the service is not used "
                "instead\n");
}

TEST_F(Variables, AreShownWithoutControlCharacters) {
  EXPECT_TRUE(has(of_port({"status"}, "8\x1b[1m"), "ZOT_REMOTE_PORT=\"8?[1m\""));
}

// watch prints its first event after the warning.
TEST_F(Variables, AreWarnedOfByWatch) {
  environment all = variables();
  all["ZOT_REMOTE_PORT"] = "99999";
  background running({"watch", "--index", index_, "--apply", "true"}, all);
  running.wait_for("service failing");
  EXPECT_TRUE(running.err().starts_with("zotconf: warning: ZOT_REMOTE_PORT=\"99999\""))
      << running.err();
  running.send(SIGTERM);
  EXPECT_EQ(running.wait(), 0);
}

}  // namespace
}  // namespace zot::test
