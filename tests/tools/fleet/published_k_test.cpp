// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/published_k.hpp"

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/tools/fleet/reporting.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;
using zotconf::k_reading;

class PublishedK : public Reporting {
 protected:
  void SetUp() override {
    Reporting::SetUp();
    std::filesystem::create_directories(publication_ + "/file/knowledge/AP");
  }
  [[nodiscard]] k_reading read(const std::string &index) const {
    return zotconf::k_reader().read(zotconf::folder(publication_ + "/file/knowledge/AP"), index);
  }
};

TEST_F(PublishedK, StatesDigestConfigIdAndSequence) {
  const std::string digest = put_k("0A", some_id, 12);
  const k_reading found = read("0A");
  ASSERT_TRUE(found.k) << found.wrong;
  EXPECT_EQ(found.wrong, "");
  EXPECT_EQ(found.k->digest, digest);
  EXPECT_EQ(found.k->config_id, some_id);
  EXPECT_EQ(found.k->sequence, 12U);
}

TEST_F(PublishedK, ReadsAKWithoutConfigIdAndSequence) {
  put_k("0A", "", 0);
  const k_reading found = read("0A");
  ASSERT_TRUE(found.k) << found.wrong;
  EXPECT_EQ(found.k->config_id, "");
  EXPECT_EQ(found.k->sequence, 0U);
}

TEST_F(PublishedK, FindsNoK) {
  EXPECT_FALSE(read("0A").k);
  EXPECT_EQ(read("0A").wrong, "");
  std::filesystem::create_directories(publication_ + "/file/knowledge/AP/0B/latest");
  EXPECT_FALSE(read("0B").k);
  EXPECT_EQ(read("0B").wrong, "");
}

TEST_F(PublishedK, ExistsInWhateverState) {
  put_k("0A");
  write_bytes(k_file("0B", ".k"), "damaged");
  write_bytes(k_file("0C", ".checksum"), "no K");
  const zotconf::folder subsys(publication_ + "/file/knowledge/AP");
  EXPECT_TRUE(zotconf::has_k(subsys, "0A"));
  EXPECT_TRUE(zotconf::has_k(subsys, "0B"));
  EXPECT_FALSE(zotconf::has_k(subsys, "0C"));
  EXPECT_FALSE(zotconf::has_k(subsys, "0D"));
}

TEST_F(PublishedK, SaysThatItIsNoManifest) {
  for (const std::string text : {"", "{", "[]", "\0x", "{\"gpbs\":[}"}) {
    put_k("0A");
    write_bytes(k_file("0A", ".k"), text);
    const k_reading found = read("0A");
    EXPECT_FALSE(found.k) << text;
    EXPECT_EQ(found.wrong, "K is not a valid manifest") << text;
  }
}

TEST_F(PublishedK, SaysThatItDoesNotMatchItsChecksumFile) {
  put_k("0A");
  for (const std::string text : {"", "x\n"}) {
    write_bytes(k_file("0A", ".checksum"), text);
    const k_reading found = read("0A");
    EXPECT_TRUE(found.k) << text;
    EXPECT_EQ(found.wrong, "K does not match its checksum file") << text;
  }
  std::filesystem::remove(k_file("0A", ".checksum"));
  EXPECT_EQ(read("0A").wrong, "K does not match its checksum file");
}

TEST_F(PublishedK, ReadsRegularFilesOnly) {
  put_k("0A");
  std::filesystem::remove(k_file("0A", ".k"));
  ASSERT_EQ(::mkfifo(k_file("0A", ".k").c_str(), 0644), 0);
  EXPECT_EQ(read("0A").wrong, "K cannot be opened as a regular file");
  std::filesystem::remove(k_file("0A", ".k"));
  std::filesystem::create_symlink("/nowhere", k_file("0A", ".k"));
  EXPECT_EQ(read("0A").wrong, "K cannot be opened as a regular file");
}

TEST_F(PublishedK, WaitsForAPublisherThatStopsBetweenTheTwoFiles) {
  put_k("0A");
  const std::string k = k_text("0A", some_id, 2);
  write_bytes(k_file("0A", ".k"), k);
  std::thread publisher([&] {
    std::this_thread::sleep_for(100ms);
    write_bytes(k_file("0A", ".checksum"), sha256_hex(k) + "\n");
  });
  const k_reading found = read("0A");
  publisher.join();
  ASSERT_TRUE(found.k);
  EXPECT_EQ(found.k->sequence, 2U);
  EXPECT_EQ(found.wrong, "");
}

TEST_F(PublishedK, DoesNotWaitForEachOfManyThatAreDamaged) {
  constexpr int damaged = 100;
  for (int i = 0; i < damaged; ++i) {
    put_k(std::to_string(i));
    write_bytes(k_file(std::to_string(i), ".checksum"), "x\n");
  }
  const zotconf::folder subsys(publication_ + "/file/knowledge/AP");
  zotconf::k_reader reader;
  const clock::time_point begin = clock::now();
  for (int i = 0; i < damaged; ++i) {
    EXPECT_NE(reader.read(subsys, std::to_string(i)).wrong, "");
  }
  EXPECT_LT(clock::now() - begin, 20s);
}

TEST_F(PublishedK, IsGoodWhileAPublisherReplacesIt) {
  put_k("0A");
  std::atomic<bool> done = false;
  std::thread publisher([&] {
    for (uint64_t sequence = 2; !done; ++sequence) {
      const std::string k = k_text("0A", some_id, sequence);
      zotconf::write_beside(k_file("0A", ".k"), k, zotconf::durability::buffered);
      zotconf::write_beside(k_file("0A", ".checksum"), sha256_hex(k) + "\n",
                            zotconf::durability::buffered);
      for (const std::string suffix : {".k", ".checksum"}) {
        std::filesystem::rename(zotconf::temporary_beside(k_file("0A", suffix)),
                                k_file("0A", suffix));
      }
    }
  });
  for (int i = 0; i < 2000; ++i) {
    const k_reading found = read("0A");
    EXPECT_TRUE(found.k) << found.wrong;
    EXPECT_TRUE(!found.k || found.k->config_id == some_id);
  }
  done = true;
  publisher.join();
  EXPECT_EQ(read("0A").wrong, "");
}

}  // namespace
}  // namespace zot::test
