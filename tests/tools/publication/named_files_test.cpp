// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/named_files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/tools/support/pruning.hpp"

namespace zot::test {
namespace {

class NamedFiles : public Pruning {};

TEST_F(NamedFiles, StopAtAKThatIsNoJson) {
  publish_twice();
  put("Wlan/a", "the third");
  ASSERT_EQ(publish_for("other").status, 0);
  write_bytes(publication_ + "/" + k_name, "{\"gpbs\":");
  fs::remove(publication_ + "/" + checksum_name);
  expect_refusal(k_name);
}

TEST_F(NamedFiles, StopAtAKThatNamesNoFileOfThisForm) {
  publish_twice();
  for (const std::string path : {"/Wlan/a", "/Wlan/a/b/2", "/Wlan/../2", "/Nonsense/a/2"}) {
    const std::string k =
        R"({"clusterId":"c","gpbs":[{"path":")" + path + R"(","size":6,"checksum":"x"}]})";
    write_bytes(publication_ + "/" + k_name, k);
    write_bytes(publication_ + "/" + checksum_name, sha256_hex(k) + "\n");
    expect_refusal(k_name);
  }
}

TEST_F(NamedFiles, StopAtAKThatIsNotWhatItsChecksumFileAnnounces) {
  publish_twice();
  flip_bit(publication_ + "/" + checksum_name);
  expect_refusal(k_name);
}

// An interrupted publisher leaves this state.
TEST_F(NamedFiles, AreThoseOfAKWithoutAChecksumFileToo) {
  publish_twice();
  fs::remove(publication_ + "/" + checksum_name);
  ASSERT_EQ(prune().status, 0);
  EXPECT_EQ(files(), std::vector<std::string>{"Wlan/a/2"});
}

TEST_F(NamedFiles, StopAtAChecksumFileWhoseKIsLost) {
  publish_twice();
  ASSERT_EQ(publish_for("other").status, 0);
  fs::remove(publication_ + "/" + k_name);
  expect_refusal(k_name);
}

TEST_F(NamedFiles, StopAtALinkBesideTheKFiles) {
  publish_twice();
  fs::create_symlink("001122334455", publication_ + "/file/knowledge/AP/alias");
  expect_refusal("file/knowledge/AP/alias");
}

TEST_F(NamedFiles, StopAtAKThatIsNoFile) {
  publish_twice();
  const std::string fifo = publication_ + "/file/knowledge/AP/001122334455/latest/x.k";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  expect_refusal(fifo);
}

TEST_F(NamedFiles, AreUnknownWithoutAK) {
  publish_twice();
  fs::remove_all(publication_ + "/file/knowledge/AP");
  expect_refusal("contains no K");
}

}  // namespace
}  // namespace zot::test
