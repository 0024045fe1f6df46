// SPDX-License-Identifier: Apache-2.0
#include "tools/service/archive_cache.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "tests/support/files.hpp"
#include "tests/tools/support/process.hpp"
#include "tools/files/file_io.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using clock = zotconf::archive_cache::clock;

// Files of which only the state counts.
class numbered_files : public zotconf::served_files {
 public:
  [[nodiscard]] zot::descriptor open_member(
      const std::vector<std::string> & /*parts*/) const override {
    return zot::descriptor(-1);
  }
  [[nodiscard]] std::optional<std::string> read_checksum(
      const zotconf::element & /*who*/) const override {
    return std::nullopt;
  }
  [[nodiscard]] std::string state() const override { return std::to_string(number); }

  std::atomic<int> number = 1;
};

class ArchiveCache : public testing::Test {
 protected:
  // Makes an archive whose content is its number.
  [[nodiscard]] zotconf::http_file make() {
    const std::string path = dir_ / std::to_string(++made_);
    write_bytes(path, std::to_string(made_));
    zot::descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return {.file = std::move(file), .size = 1};
  }
  [[nodiscard]] static std::string content(const zotconf::http_file &archive) {
    std::string text(static_cast<size_t>(archive.size) + 10, '\0');
    const ssize_t got = ::pread(archive.file.get(), text.data(), text.size(), 0);
    return text.substr(0, static_cast<size_t>(got));
  }
  [[nodiscard]] std::string get(const std::string &key) {
    return content(cache_.get(key, [this] { return make(); }));
  }

  temp_dir dir_;
  std::atomic<int> made_ = 0;
  numbered_files files_;
  zotconf::archive_cache cache_{files_, 0};
};

TEST_F(ArchiveCache, MakesAnArchiveOnce) {
  EXPECT_EQ(get("a"), "1");
  EXPECT_EQ(get("a"), "1");
  EXPECT_EQ(made_, 1);
}

TEST_F(ArchiveCache, KeepsTheLastOneOnly) {
  EXPECT_EQ(get("a"), "1");
  EXPECT_EQ(get("b"), "2");
  EXPECT_EQ(get("b"), "2");
  EXPECT_EQ(get("a"), "3");
}

TEST_F(ArchiveCache, MakesAnotherForAnotherPublication) {
  EXPECT_EQ(get("a"), "1");
  files_.number = 2;
  EXPECT_EQ(get("a"), "2");
  files_.number = 1;
  EXPECT_EQ(get("a"), "3");
}

TEST_F(ArchiveCache, GivesUpAnArchiveThatIsNoLongerRequested) {
  EXPECT_EQ(get("a"), "1");
  cache_.expire(clock::now() + 4min);
  EXPECT_EQ(get("a"), "1");
  cache_.expire(clock::now() + 5min);
  EXPECT_EQ(get("a"), "2");
}

TEST_F(ArchiveCache, GivesUpAnArchiveWhenAnotherPublicationIsPutIntoService) {
  EXPECT_EQ(get("a"), "1");
  files_.number = 2;
  cache_.expire(clock::now());
  files_.number = 1;
  EXPECT_EQ(get("a"), "2");
}

TEST_F(ArchiveCache, KeepsNoArchiveDuringWhichAnotherPublicationWasPutIntoService) {
  const auto replaced = [this] {
    files_.number = 2;
    return make();
  };
  EXPECT_EQ(content(cache_.get("a", replaced)), "1");
  files_.number = 1;
  EXPECT_EQ(get("a"), "2");
}

TEST_F(ArchiveCache, LeavesAnArchiveThatIsBeingSent) {
  const zotconf::http_file sent = cache_.get("a", [this] { return make(); });
  cache_.expire(clock::now() + 5min);
  EXPECT_EQ(content(sent), "1");
}

TEST_F(ArchiveCache, KeepsNoDescriptorOfAnArchiveThatItGaveUp) {
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = descriptors();
  EXPECT_EQ(get("a"), "1");
  EXPECT_EQ(descriptors(), before + 1);
  cache_.expire(clock::now() + 5min);
  EXPECT_EQ(descriptors(), before);
}

TEST_F(ArchiveCache, MakesAnArchiveOnceForRequestsAtTheSameTime) {
  std::atomic<int> asking = 0;
  const auto slow = [&] {
    wait_until([&] { return asking == 4; }, "all requests");
    // The others have begun to wait by now, or they come to the kept archive. Both are right.
    std::this_thread::sleep_for(100ms);
    return make();
  };
  std::vector<std::jthread> clients;
  for (int i = 0; i < 4; ++i) {
    clients.emplace_back([&] {
      ++asking;
      EXPECT_EQ(content(cache_.get("a", slow)), "1");
    });
  }
  clients.clear();
  EXPECT_EQ(made_, 1);
}

TEST_F(ArchiveCache, MakesDifferentArchivesAtTheSameTime) {
  std::atomic<int> at_work = 0;
  const auto together = [&] {
    ++at_work;
    wait_until([&] { return at_work == 2; }, "the other archive");
    return make();
  };
  std::jthread other([&] { (void)cache_.get("a", together); });
  (void)cache_.get("b", together);
  other.join();
  EXPECT_EQ(made_, 2);
}

TEST_F(ArchiveCache, LetsTheNextRequestMakeWhatCouldNotBeMade) {
  const auto fails = []() -> zotconf::http_file { throw std::runtime_error("no space"); };
  EXPECT_THROW((void)cache_.get("a", fails), std::runtime_error);
  EXPECT_EQ(get("a"), "1");
}

TEST_F(ArchiveCache, LetsAWaitingRequestMakeWhatCouldNotBeMade) {
  std::atomic<bool> is_making = false;
  std::atomic<bool> is_asked = false;
  std::jthread first([&] {
    const auto fails = [&]() -> zotconf::http_file {
      is_making = true;
      wait_until([&] { return is_asked.load(); }, "the other request");
      std::this_thread::sleep_for(50ms);
      throw std::runtime_error("no space");
    };
    EXPECT_THROW((void)cache_.get("a", fails), std::runtime_error);
  });
  wait_until([&] { return is_making.load(); }, "the first request");
  is_asked = true;
  EXPECT_EQ(get("a"), "1");
}

}  // namespace
}  // namespace zot::test
