// SPDX-License-Identifier: Apache-2.0
// How a lock is held. The tests of whole cycles cover how calls use it.
#include "zot_priv/storage/cache_lock.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/element.hpp"
#include "utilities/owner.hpp"

namespace {
using namespace zot::test;
using namespace std::chrono_literals;

class CacheLock : public testing::Test {
 protected:
  CacheLock() : e(element_options{.timeout = 1}) {}

  static bool is_free(const std::string &folder) {
    const zot::descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0;
  }
  [[nodiscard]] zot::descriptor lock(const std::string &folder) const {
    zot::descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(::flock(fd.get(), LOCK_EX | LOCK_NB), 0);
    return fd;
  }
  // FD_CLOEXEC of both descriptors.
  [[nodiscard]] std::array<int, 2> descriptor_flags() const {
    const zot_own &own = e.handle()->own;
    return {::fcntl(own.lock_fd[0] - 1, F_GETFD), ::fcntl(own.lock_fd[1] - 1, F_GETFD)};
  }

  element e;
};

TEST_F(CacheLock, HoldsBothFoldersUntilItsEnd) {
  {
    zot::cache_lock held(*e.handle());
    ASSERT_EQ(held.acquire("f"), ZOT_OK);
    EXPECT_FALSE(is_free(e.conf_root()));
    EXPECT_FALSE(is_free(e.tmp_root()));
  }
  EXPECT_TRUE(is_free(e.conf_root()));
  EXPECT_TRUE(is_free(e.tmp_root()));
}

// The first file that such a process opens gets the descriptor 0.
class without_standard_input {
 public:
  without_standard_input() : kept_(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    ::close(STDIN_FILENO);
  }
  without_standard_input(const without_standard_input &) = delete;
  without_standard_input &operator=(const without_standard_input &) = delete;
  ~without_standard_input() {
    ::dup2(kept_, STDIN_FILENO);
    ::close(kept_);
  }

 private:
  int kept_;
};

TEST_F(CacheLock, ClosesTheDescriptor0Too) {
  const without_standard_input closed;
  {
    zot::cache_lock held(*e.handle());
    ASSERT_EQ(held.acquire("f"), ZOT_OK);
    ASSERT_EQ(e.handle()->own.lock_fd[0], STDIN_FILENO + 1);
  }
  EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), -1);
}

TEST_F(CacheLock, HoldsTheScratchFolderWithTheDescriptor0Too) {
  const without_standard_input closed;
  std::filesystem::remove_all(e.conf_root());
  zot::cache_lock held(*e.handle());
  ASSERT_EQ(held.acquire("f"), ZOT_OK);
  ASSERT_EQ(e.handle()->own.lock_fd[1], STDIN_FILENO + 1);
  EXPECT_TRUE(zot::is_scratch_held(*e.handle()));
}

TEST_F(CacheLock, OfACallInsideAnotherOneChangesNothing) {
  zot::cache_lock outer(*e.handle());
  ASSERT_EQ(outer.acquire("f"), ZOT_OK);
  {
    zot::cache_lock inner(*e.handle());
    EXPECT_EQ(inner.acquire("g"), ZOT_OK);
    zot::cache_lock tried(*e.handle());
    EXPECT_TRUE(tried.try_acquire());
  }
  EXPECT_FALSE(is_free(e.conf_root()));
}

TEST_F(CacheLock, WaitsNoLongerThanTheTimeOut) {
  const zot::descriptor other = lock(e.tmp_root());
  const auto begin = std::chrono::steady_clock::now();
  zot::cache_lock held(*e.handle());
  EXPECT_EQ(held.acquire("f"), ZOT_ERR_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_EQ(e.error_text(), "[f]: " + e.tmp_root() + " is locked by another process");
}

// A busy machine may delay an attempt, but not all of them.
TEST_F(CacheLock, IsHadSoonAfterItsRelease) {
  auto shortest = std::chrono::nanoseconds::max();
  for (int attempt = 0; attempt < 5 && shortest >= 500ms; ++attempt) {
    zot::descriptor other = lock(e.conf_root());
    std::chrono::steady_clock::time_point released;
    std::thread releaser([&] {
      std::this_thread::sleep_for(50ms);
      released = std::chrono::steady_clock::now();
      other.close();
    });
    zot::cache_lock held(*e.handle());
    const int status = held.acquire("f");
    const auto had = std::chrono::steady_clock::now();
    releaser.join();
    if (status == ZOT_OK) {
      shortest = std::min<std::chrono::nanoseconds>(shortest, had - released);
    }
  }
  EXPECT_LT(shortest, 500ms);
}

TEST_F(CacheLock, ThatWasNotHadReleasesWhatItHas) {
  const zot::descriptor other = lock(e.tmp_root());
  {
    zot::cache_lock held(*e.handle());
    ASSERT_EQ(held.acquire("f"), ZOT_ERR_TIMEOUT);
  }
  EXPECT_TRUE(is_free(e.conf_root()));
  EXPECT_EQ(e.handle()->own.lock_depth, 0U);
}

TEST_F(CacheLock, IsTriedWithoutWaiting) {
  const zot::descriptor other = lock(e.conf_root());
  zot::cache_lock held(*e.handle());
  EXPECT_FALSE(held.try_acquire());
}

TEST_F(CacheLock, IsNotNeededInDevMode) {
  const zot::descriptor other = lock(e.conf_root());
  e.handle()->dev_mode = 1;
  zot::cache_lock held(*e.handle());
  EXPECT_EQ(held.acquire("f"), ZOT_OK);
}

TEST_F(CacheLock, IsPassedToCommandsOnlyWhereItIsLent) {
  zot::cache_lock held(*e.handle());
  ASSERT_EQ(held.acquire("f"), ZOT_OK);
  EXPECT_EQ(descriptor_flags(), (std::array{FD_CLOEXEC, FD_CLOEXEC}));
  {
    const zot::locks_for_commands lent(*e.handle());
    EXPECT_EQ(descriptor_flags(), (std::array{0, 0}));
    { const zot::locks_for_commands again(*e.handle()); }
    EXPECT_EQ(descriptor_flags(), (std::array{0, 0}));
  }
  EXPECT_EQ(descriptor_flags(), (std::array{FD_CLOEXEC, FD_CLOEXEC}));
}

// The child stands for a worker that another thread of the host forks in the meantime and that
// starts no program.
TEST_F(CacheLock, EndsThoughAChildHasItsDescriptors) {
  pid_t child = -1;
  {
    zot::cache_lock held(*e.handle());
    ASSERT_EQ(held.acquire("f"), ZOT_OK);
    child = ::fork();
    if (child == 0) {
      ::pause();
      ::_exit(0);
    }
  }
  EXPECT_TRUE(is_free(e.conf_root()));
  EXPECT_TRUE(is_free(e.tmp_root()));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

TEST_F(CacheLock, GoesOnWithACommandThatNobodyCouldWaitFor) {
  {
    zot::cache_lock held(*e.handle());
    ASSERT_EQ(held.acquire("f"), ZOT_OK);
    const zot::locks_for_commands lent(*e.handle());
    cmd_helper_system("sleep 0.5 & kill -KILL $$");
  }
  EXPECT_FALSE(is_free(e.conf_root()));
  for (int tries = 0; tries < 500 && !is_free(e.conf_root()); ++tries) {
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_TRUE(is_free(e.conf_root()));
}

TEST_F(CacheLock, IsThatOfAScratchFolderMadeAnewWhileItWaited) {
  zot::descriptor before = lock(e.tmp_root());
  std::thread loss([&] {
    std::this_thread::sleep_for(50ms);
    std::filesystem::rename(e.tmp_root(), e.dir() / "lost");
    std::filesystem::create_directories(e.tmp_root());
    before.close();
  });
  zot::cache_lock held(*e.handle());
  EXPECT_EQ(held.acquire("f"), ZOT_OK);
  loss.join();
  EXPECT_FALSE(is_free(e.tmp_root()));
  EXPECT_TRUE(zot::is_scratch_held(*e.handle()));
}

// Makes the call that looks up a file by its name fail every time.
void deny_stat() {
#ifdef __NR_newfstatat
  constexpr auto stat_call = __NR_newfstatat;
#else
  constexpr auto stat_call = __NR_statx;
#endif
  // With an empty name the call looks at a descriptor.
  constexpr std::uint32_t flags = offsetof(seccomp_data, args[stat_call == __NR_statx ? 2 : 3]);
  std::array filter = {sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))),
                       sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, stat_call, 0, 3)),
                       sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, flags)),
                       sock_filter(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, AT_EMPTY_PATH, 1, 0)),
                       sock_filter(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EIO)),
                       sock_filter(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW))};
  const sock_fprog program{filter.size(), filter.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    ::_exit(2);
  }
}

TEST_F(CacheLock, IsHadWhereNobodyCanLookAtTheFolder) {
  const pid_t child = ::fork();
  if (child == 0) {
    deny_stat();
    ::alarm(10);
    zot::cache_lock held(*e.handle());
    ::_exit(held.acquire("f") == ZOT_OK ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(CacheLock, TellsThatTheScratchFolderWasMadeAnew) {
  zot::cache_lock held(*e.handle());
  ASSERT_EQ(held.acquire("f"), ZOT_OK);
  EXPECT_TRUE(zot::is_scratch_held(*e.handle()));
  std::filesystem::remove_all(e.tmp_root());
  EXPECT_FALSE(zot::is_scratch_held(*e.handle()));
  std::filesystem::create_directories(e.tmp_root());
  EXPECT_FALSE(zot::is_scratch_held(*e.handle()));
}

TEST_F(CacheLock, TellsThatAScratchFolderHasComeThatWasNotThere) {
  std::filesystem::remove_all(e.tmp_root());
  zot::cache_lock held(*e.handle());
  ASSERT_EQ(held.acquire("f"), ZOT_OK);
  EXPECT_TRUE(zot::is_scratch_held(*e.handle()));
  std::filesystem::create_directories(e.tmp_root());
  EXPECT_FALSE(zot::is_scratch_held(*e.handle()));
}

}  // namespace
