// SPDX-License-Identifier: Apache-2.0
#include "witness.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "zot_conf.h"

namespace zot::test {
namespace {

thread_local int depth = 0;

const char *name_of(int status) {
  static const std::map<int, const char *> names = {
#define ZOT_STATUS_NAME(name, code, text) {(code), #name},
      ZOT_STATUS_MAP(ZOT_STATUS_NAME)
#undef ZOT_STATUS_NAME
  };
  const auto found = names.find(status);
  return found != names.end() ? found->second : nullptr;
}

// What the calls of one test returned. A test that failed counts for nothing.
class record : public testing::EmptyTestEventListener {
 public:
  explicit record(const char *path) : file_(path, std::ios::app) {}

  void add(const char *call, int status) {
    const char *const name = name_of(status);
    if (name == nullptr) {
      return;
    }
    const std::scoped_lock lock(mutex_);
    seen_.emplace(call, name);
    if (::getpid() != process_) {
      // A child ends without the end of its test.
      write(*testing::UnitTest::GetInstance()->current_test_info());
    }
  }

 private:
  void OnTestEnd(const testing::TestInfo &test) override {
    const std::scoped_lock lock(mutex_);
    if (test.result()->Passed()) {
      write(test);
    }
    seen_.clear();
  }

  // Several processes may append to the file, so the lines of a test are one write.
  void write(const testing::TestInfo &test) {
    const std::string name = std::string(test.test_suite_name()) + "." + test.name();
    std::string lines;
    for (const auto &[call, status] : seen_) {
      lines += call + " " + status + " " + name + "\n";
    }
    file_ << lines << std::flush;
  }

  std::ofstream file_;
  const pid_t process_ = ::getpid();
  std::mutex mutex_;
  std::set<std::pair<std::string, std::string>> seen_;
};

// GoogleTest owns it.
record *make_record() {
  const char *const path = std::getenv("ZOT_TEST_PROMISES");
  if (path == nullptr) {
    return nullptr;
  }
  auto *const made = new record(path);
  testing::UnitTest::GetInstance()->listeners().Append(made);
  return made;
}

record *const kept = make_record();

}  // namespace

witnessed_call::witnessed_call() {
  ++depth;
}

witnessed_call::~witnessed_call() {
  --depth;
}

void witnessed_call::returned(const char *name, int status) const {
  if (kept != nullptr && depth == 1) {
    kept->add(name, status);
  }
}

}  // namespace zot::test
