// SPDX-License-Identifier: Apache-2.0
#include "utilities/standard_streams.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>

namespace {

// A standard stream that is closed, in a process of its own.
class ClosedStream : public testing::TestWithParam<int> {
 protected:
  template <class Body>
  static void expect_in_child(Body body) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(GetParam());
      ::_exit(body() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  static bool is_closed(int fd) { return ::fcntl(fd, F_GETFD) == -1 && errno == EBADF; }
};

TEST_P(ClosedStream, GivesItsDescriptorToNoFile) {
  expect_in_child([] {
    const zot::standard_streams guard;
    const zot::descriptor file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    return file.get() > STDERR_FILENO;
  });
}

TEST_P(ClosedStream, IsClosedAgainAfterwards) {
  expect_in_child([] {
    { const zot::standard_streams guard; }
    return is_closed(GetParam());
  });
}

TEST_P(ClosedStream, LeavesTheOthersAsTheyAre) {
  expect_in_child([] {
    const auto which_are_closed = [] {
      return std::array{is_closed(STDIN_FILENO), is_closed(STDOUT_FILENO),
                        is_closed(STDERR_FILENO)};
    };
    const auto before = which_are_closed();
    { const zot::standard_streams guard; }
    return which_are_closed() == before;
  });
}

TEST_P(ClosedStream, IsInheritedByCommandsWhileItIsHeld) {
  expect_in_child([] {
    const zot::standard_streams guard;
    return ::fcntl(GetParam(), F_GETFD) == 0;
  });
}

INSTANTIATE_TEST_SUITE_P(EachStream, ClosedStream,
                         testing::Values(STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO));

}  // namespace
