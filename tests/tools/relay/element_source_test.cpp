// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/element_source.hpp"

#include <sys/stat.h>

#include "tests/support/env.hpp"
#include "tests/tools/support/cached_element.hpp"

namespace zot::test {
namespace {

using zotconf::element_source;

const zotconf::element who = {.subsys = "AP", .index = "001122334455"};

class ElementSource : public CachedElement {
 protected:
  void write_state(const std::string &digest, const std::string &index = who.index) const {
    zotconf::element_state state;
    state.version = "1.0.0";
    state.who = {.subsys = "AP", .index = index};
    state.in_force = {.digest = digest, .config_id = ""};
    zotconf::write_element_state(file_, zotconf::element_state_text(state, "2026-11-23T11:00:00Z"));
  }
  void expect_unknown(const std::string &wrong) const {
    element_source source(file_, who);
    EXPECT_FALSE(source.read());
    EXPECT_TRUE(has(source.wrong(), wrong)) << source.wrong();
  }

  const std::string file_ = dir_ / "element.json";
};

TEST_F(ElementSource, ReadsTheFileAgainWhenItWasReplaced) {
  element_source source(file_, who);
  EXPECT_FALSE(source.read());
  EXPECT_TRUE(has(source.wrong(), file_)) << source.wrong();
  for (const char digit : {'a', 'b'}) {
    write_state(std::string(64, digit));
    const auto state = source.read();
    ASSERT_TRUE(state) << source.wrong();
    EXPECT_EQ(state->in_force->digest, std::string(64, digit));
    EXPECT_EQ(source.wrong(), "");
  }
  std::filesystem::remove(file_);
  EXPECT_FALSE(source.read());
}

TEST_F(ElementSource, TakesAnIndexInLowerCase) {
  write_state(std::string(64, 'a'), "aabb");
  element_source source(file_, {.subsys = "AP", .index = "AABB"});
  EXPECT_TRUE(source.read()) << source.wrong();
}

TEST_F(ElementSource, RefusesTheStateOfAnotherElement) {
  write_state(std::string(64, 'a'), "AABBCCDDEEFF");
  expect_unknown("element.json: the state of AP AABBCCDDEEFF");
}

TEST_F(ElementSource, RefusesAFileThatIsNoState) {
  write_bytes(file_, "{}");
  expect_unknown("element.json: the member \"format\" is wrong");
  write_bytes(file_, std::string(100'000, ' '));
  expect_unknown("element.json: more than 65536 bytes");
  std::filesystem::remove(file_);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0644), 0);
  expect_unknown("element.json: not a regular file");
}

class ElementSourceOfCache : public ElementSource {
 protected:
  void SetUp() override { put("Wlan/a", "ssid=a"); }

  [[nodiscard]] std::string k_digest() const { return sha256_hex(read_bytes(published(".k"))); }

  const env_guard conf_root_variable_{"ZOT_PREFIX_CONF_ROOT", dir_ / "device"};
  const env_guard dev_path_{"ZOT_DEV_PATH", ""};
};

TEST_F(ElementSourceOfCache, ReadsWhatIsInForceAndWhatIsRefused) {
  commit_source();
  const std::string first = k_digest();
  put("Wlan/a", "ssid=b");
  publish_source();
  ASSERT_NE(cycle("--roll-back").status, 0);
  element_source source("", who);
  const auto state = source.read();
  ASSERT_TRUE(state) << source.wrong();
  EXPECT_EQ(state->in_force->digest, first);
  EXPECT_EQ(state->refused->which.digest, k_digest());
  EXPECT_EQ(state->refused->reason, "");
  EXPECT_EQ(state->version, "");
}

TEST_F(ElementSourceOfCache, WithoutACacheTheElementIsNotKnown) {
  element_source source("", who);
  EXPECT_FALSE(source.read());
  EXPECT_TRUE(has(source.wrong(), "cannot read ")) << source.wrong();
}

}  // namespace
}  // namespace zot::test
