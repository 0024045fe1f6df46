// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/element_update.hpp"

#include <gtest/gtest.h>

#include <ctime>

#include "tests/support/files.hpp"

namespace zotconf {
namespace {

class ElementUpdate : public testing::Test {
 protected:
  // Puts a K with one file and its checksum file into the publication folder.
  void put_k(uint64_t sequence) const {
    const std::string k = render_for(who_, sequence, content());
    zot::test::write_bytes(latest_file(dir_.path(), who_, ".k"), k);
    zot::test::write_bytes(latest_file(dir_.path(), who_, ".checksum"), sha256_text(k) + "\n");
  }
  [[nodiscard]] static manifest content() {
    return {.cluster = "c",
            .config_id = "",
            .firmware = "",
            .files = {{.category = 0,
                       .category_name = "Wlan",
                       .key = "a",
                       .version = 3,
                       .size = 1,
                       .checksum = "ab"}}};
  }
  [[nodiscard]] element_update update(const plan &planned) const {
    return update_of(store_, who_, read_previous(store_, who_), planned, nullptr);
  }
  [[nodiscard]] static plan unchanged() {
    return {.next = content(), .changes = {}, .before = 1, .same = 1, .to_write = {}};
  }

  const element who_{.subsys = "AP", .index = "0A"};
  zot::test::temp_dir dir_;
  publication_store store_{dir_.path()};
};

TEST_F(ElementUpdate, ReadsNoPreviousKWhereThereIsNone) {
  const previous_k previous = read_previous(store_, who_);
  EXPECT_EQ(previous.text, "");
  EXPECT_FALSE(previous.is_damaged);
}

TEST_F(ElementUpdate, TellsADamagedKFromNone) {
  zot::test::write_bytes(latest_file(dir_.path(), who_, ".k"), "{");
  const previous_k previous = read_previous(store_, who_);
  EXPECT_TRUE(previous.is_damaged);
  EXPECT_TRUE(previous.content.files.empty());
}

TEST_F(ElementUpdate, KeepsAKOfTheSameContent) {
  put_k(7);
  const element_update done = update(unchanged());
  EXPECT_EQ(done.action, k_action::keep);
  EXPECT_EQ(done.sequence, 7U);
  EXPECT_FALSE(done.is_signed);
}

TEST_F(ElementUpdate, AnnouncesTheFirstKWithTheTimeAsItsSequence) {
  const auto before = static_cast<uint64_t>(std::time(nullptr));
  const element_update done = update(unchanged());
  EXPECT_EQ(done.action, k_action::announce);
  EXPECT_GE(done.sequence, before);
}

TEST_F(ElementUpdate, RaisesASequenceThatIsAheadOfTheTime) {
  put_k(9000000000);
  plan changed = unchanged();
  changed.next.firmware = "2";
  const element_update done = update(changed);
  EXPECT_EQ(done.action, k_action::announce);
  EXPECT_EQ(done.sequence, 9000000001U);
}

TEST_F(ElementUpdate, AnnouncesTheSameContentAgainWhenAFileIsRestored) {
  put_k(7);
  plan restored = unchanged();
  restored.written = 1;
  EXPECT_EQ(update(restored).action, k_action::announce);
}

TEST_F(ElementUpdate, AnnouncesTheSameContentAgainWhenTheChecksumIsLost) {
  put_k(7);
  std::filesystem::remove(latest_file(dir_.path(), who_, ".checksum"));
  EXPECT_EQ(update(unchanged()).action, k_action::announce);
}

}  // namespace
}  // namespace zotconf
