// SPDX-License-Identifier: Apache-2.0
// Standard streams that are closed, full or without a reader.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <thread>

#include "tests/faults/host/host.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

zot_log_ctl everything_to(std::uint32_t dst) {
  zot_log_ctl ctl{};
  zot_util_init_log_ctl(&ctl);
  ctl.level = ZOT_LOG_DEBUG;
  ctl.facility = log_capture::every_topic;
  ctl.dst = dst;
  return ctl;
}

void close_all(const std::vector<int> &closed) {
  for (const int fd : closed) {
    ::close(fd);
  }
}

// The bytes in the cache and of each entry are looked at in the cycle.
void runs_closed(host &h, const std::vector<int> &closed, std::uint32_t dst) {
  h.log_to(everything_to(dst));
  close_all(closed);
  h.whole_cycle();
  h.whole_cycle('c', 'd');
  for (const int fd : closed) {
    require(::fcntl(fd, F_GETFD) < 0, "a standard stream stays open");
  }
}

void runs_closed_with_a_log_file(host &h) {
  const std::string path = h.root() + "/log";
  zot_log_ctl ctl = everything_to(ZOT_LOG_DST_PATH);
  ctl.path = path.c_str();
  h.log_to(ctl);
  close_all({0, 1, 2});
  require(h.start(), "no handle");
  std::fputs("what the host prints", stderr);
  std::puts("what the host prints");
  std::fflush(stdout);
  h.stop();
  require(read_bytes(path).find("what the host prints") == std::string::npos,
          "the host's output stands in the log");
}

// A host that prints although nothing is there, all the time: none of it may get into a file or to
// the service.
void prints_to_closed_streams(host &h, const std::string &noise) {
  close_all({0, 1, 2});
  const std::jthread noisy([&noise](const std::stop_token &end) {
    while (!end.stop_requested()) {
      for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        static_cast<void>(::write(fd, noise.data(), noise.size()));
      }
    }
  });
  for (int round = 0; round < 5; ++round) {
    h.whole_cycle(round % 2 == 0 ? 'a' : 'c', round % 2 == 0 ? 'b' : 'd');
  }
}

struct pipe_ends {
  pipe_ends() {
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
    reader = descriptor(ends[0]);
    writer = descriptor(ends[1]);
  }
  descriptor reader{-1};
  descriptor writer{-1};
};

void set_nonblocking(int fd, bool is_nonblocking) {
  ::fcntl(fd, F_SETFL, is_nonblocking ? O_NONBLOCK : 0);
}

void fill(int fd) {
  set_nonblocking(fd, true);
  const std::array<char, 4096> bytes{};
  while (::write(fd, bytes.data(), bytes.size()) > 0) {
  }
  while (::write(fd, bytes.data(), 1) > 0) {
  }
}

void logs_to_a_full_pipe(host &h, std::uint32_t dst) {
  const pipe_ends pipe;
  fill(pipe.writer.get());
  ::dup2(pipe.writer.get(), STDOUT_FILENO);
  ::dup2(pipe.writer.get(), STDERR_FILENO);
  h.log_to(everything_to(dst));
  h.whole_cycle();
}

// The log waits for whoever reads it, and nothing is lost.
void logs_to_a_slow_reader(host &h) {
  constexpr auto pause = std::chrono::milliseconds(300);
  pipe_ends pipe;
  fill(pipe.writer.get());
  set_nonblocking(pipe.writer.get(), false);
  ::dup2(pipe.writer.get(), STDERR_FILENO);
  std::string got;
  std::jthread reader([&] {
    std::this_thread::sleep_for(pause);
    std::array<char, 4096> chunk{};
    for (ssize_t size = 0; (size = ::read(pipe.reader.get(), chunk.data(), chunk.size())) > 0;) {
      got.append(chunk.data(), static_cast<std::size_t>(size));
    }
  });
  h.log_to(everything_to(ZOT_LOG_DST_STDERR));
  const auto begin = std::chrono::steady_clock::now();
  require(h.start(), "no handle");
  h.get_whole('a');
  h.commit_whole('a');
  h.stop();
  const auto taken = std::chrono::steady_clock::now() - begin;
  ::dup2(STDOUT_FILENO, STDERR_FILENO);
  pipe.writer = descriptor(-1);
  reader.join();
  require(taken >= pause, "the log didn't wait");
  require(got.find("Init. zot lib: Done\n") != std::string::npos &&
              got.find("Get new configuration: Done\n") != std::string::npos,
          "messages are lost");
}

void logs_to_nobody(host &h) {
  ::signal(SIGPIPE, SIG_IGN);
  pipe_ends pipe;
  pipe.reader = descriptor(-1);
  ::dup2(pipe.writer.get(), STDERR_FILENO);
  h.log_to(everything_to(ZOT_LOG_DST_STDERR));
  h.whole_cycle();
}

// What the library prints is the host's own output: SIGPIPE does to it what it does to that.
void logs_to_nobody_and_is_killed(host &h) {
  const int status = in_own_process([&] {
    pipe_ends pipe;
    pipe.reader = descriptor(-1);
    ::dup2(pipe.writer.get(), STDERR_FILENO);
    h.log_to(everything_to(ZOT_LOG_DST_STDERR));
    h.whole_cycle();
  });
  require(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE, "another end than by SIGPIPE");
  h.recover();
}

void logs_to_a_full_device(host &h) {
  const descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  ::dup2(full.get(), STDOUT_FILENO);
  ::dup2(full.get(), STDERR_FILENO);
  h.log_to(everything_to(ZOT_LOG_DST_STDERR));
  h.whole_cycle();
}

void reads_nothing(host &h) {
  const pipe_ends pipe;
  const std::string waiting = "for the host";
  require(::write(pipe.writer.get(), waiting.data(), waiting.size()) > 0, "no pipe");
  ::dup2(pipe.reader.get(), STDIN_FILENO);
  h.whole_cycle();
  std::array<char, 64> got{};
  require(::read(STDIN_FILENO, got.data(), got.size()) == static_cast<ssize_t>(waiting.size()),
          "something read the host's input");
}

}  // namespace

std::vector<situation> stream_situations() {
  constexpr std::uint32_t to_stderr = ZOT_LOG_DST_STDERR;
  constexpr std::uint32_t to_stdout = ZOT_LOG_DST_STDOUT;
  return {
      {"standard input closed", [](host &h) { runs_closed(h, {0}, to_stderr); }, true},
      {"standard output closed", [](host &h) { runs_closed(h, {1}, to_stderr); }, true},
      {"standard error closed", [](host &h) { runs_closed(h, {2}, to_stdout); }, true},
      {"standard error closed, log to it", [](host &h) { runs_closed(h, {2}, to_stderr); }},
      {"input and output closed",
       [](host &h) {
         runs_closed(h, {0, 1}, to_stdout);
       }},
      {"all standard streams closed, log to error",
       [](host &h) {
         runs_closed(h, {0, 1, 2}, to_stderr);
       }},
      {"all standard streams closed, log to output",
       [](host &h) {
         runs_closed(h, {0, 1, 2}, to_stdout);
       }},
      {"all standard streams closed, log to a file", runs_closed_with_a_log_file},
      {"all standard streams closed, a byte printed without end",
       [](host &h) { prints_to_closed_streams(h, "!"); }},
      {"all standard streams closed, lines printed without end",
       [](host &h) { prints_to_closed_streams(h, "what the host prints\n"); }},
      {"standard error a full pipe", [](host &h) { logs_to_a_full_pipe(h, to_stderr); }},
      {"standard output a full pipe", [](host &h) { logs_to_a_full_pipe(h, to_stdout); }},
      {"standard error a pipe that is read late", logs_to_a_slow_reader},
      {"standard error a pipe that nobody reads", logs_to_nobody},
      {"standard error a pipe that nobody reads, SIGPIPE kills", logs_to_nobody_and_is_killed},
      {"standard error a full device", logs_to_a_full_device},
      {"standard input that the host still wants to read", reads_nothing},
  };
}

}  // namespace zot::test
