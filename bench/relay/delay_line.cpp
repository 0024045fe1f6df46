// SPDX-License-Identifier: Apache-2.0
// usage: bench_delay_line INTERFACE INTERFACE MILLISECONDS
// Creates two network interfaces and joins them: a frame that leaves through one arrives at the
// other after MILLISECONDS. Prints "ready" when both exist. They may then be moved to other network
// namespaces. The interfaces go away with this process.
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

using timer = std::chrono::steady_clock;

// More than an Ethernet frame of the usual size; a longer one would be cut.
constexpr size_t frame_limit = 2048;

struct frame {
  timer::time_point due;
  std::vector<char> bytes;
};

[[noreturn]] void fail(const std::string &what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Frames from one interface to the other, in order.
class direction {
 public:
  direction(int from, int to, timer::duration delay) : from_(from), to_(to), delay_(delay) {}

  void take() {
    std::array<char, frame_limit> bytes;
    for (;;) {
      const ssize_t size = read(from_, bytes.data(), bytes.size());
      if (size <= 0) {
        return;
      }
      frames_.push_back({timer::now() + delay_, {bytes.data(), bytes.data() + size}});
    }
  }

  // An interface that is down refuses the frame: it is lost, as on a cut cable.
  void deliver() {
    while (!frames_.empty() && frames_.front().due <= timer::now()) {
      const std::vector<char> &bytes = frames_.front().bytes;
      [[maybe_unused]] const ssize_t written = write(to_, bytes.data(), bytes.size());
      frames_.pop_front();
    }
  }

  // When the next frame is due; the end of time if there is none.
  [[nodiscard]] timer::time_point next() const {
    return frames_.empty() ? timer::time_point::max() : frames_.front().due;
  }

 private:
  int from_;
  int to_;
  timer::duration delay_;
  std::deque<frame> frames_;
};

int open_interface(const char *name) {
  const int opened = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (opened < 0) {
    fail("/dev/net/tun");
  }
  ifreq request{};
  request.ifr_flags = IFF_TAP | IFF_NO_PI;
  std::snprintf(request.ifr_name, sizeof request.ifr_name, "%s", name);
  if (ioctl(opened, TUNSETIFF, &request) != 0) {
    fail(name);
  }
  return opened;
}

// Waits until a frame arrives or is due.
void wait_for(std::array<pollfd, 2> &interfaces, timer::time_point due) {
  timespec rest{};
  timespec *limit = nullptr;
  if (due != timer::time_point::max()) {
    const auto left = std::max(due - timer::now(), timer::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    rest.tv_sec = static_cast<time_t>(seconds.count());
    rest.tv_nsec = static_cast<long>(std::chrono::nanoseconds(left - seconds).count());
    limit = &rest;
  }
  if (ppoll(interfaces.data(), interfaces.size(), limit, nullptr) < 0 && errno != EINTR) {
    fail("ppoll");
  }
}

[[noreturn]] void join(int left, int right, timer::duration delay) {
  std::array<direction, 2> both{direction(left, right, delay), direction(right, left, delay)};
  std::array<pollfd, 2> interfaces{pollfd{left, POLLIN, 0}, pollfd{right, POLLIN, 0}};
  for (;;) {
    wait_for(interfaces, std::min(both[0].next(), both[1].next()));
    for (direction &one : both) {
      one.take();
      one.deliver();
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s INTERFACE INTERFACE MILLISECONDS\n", argv[0]);
    return 2;
  }
  try {
    // The kernel delays a wake-up by 50 microseconds otherwise.
    prctl(PR_SET_TIMERSLACK, 1);
    const int left = open_interface(argv[1]);
    const int right = open_interface(argv[2]);
    std::puts("ready");
    std::fflush(stdout);
    join(left, right, std::chrono::milliseconds(std::stoi(argv[3])));
  } catch (const std::exception &wrong) {
    std::fprintf(stderr, "%s: %s\n", argv[0], wrong.what());
    return 1;
  }
}
