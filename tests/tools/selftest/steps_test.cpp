// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/steps.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <optional>
#include <stdexcept>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

using zotconf::step;
using zotconf::trial;

const step &step_named(std::string_view name) {
  for (const step &each : zotconf::steps_of_selftest()) {
    if (each.name == name) {
      return each;
    }
  }
  throw std::runtime_error("no such step");
}

// Limits the file size of processes that start during the lifetime of the object.
class file_size_limit {
 public:
  explicit file_size_limit(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  file_size_limit(const file_size_limit &) = delete;
  file_size_limit &operator=(const file_size_limit &) = delete;
  ~file_size_limit() { ::setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

class StepsOfSelftest : public testing::Test {
 protected:
  void SetUp() override { on_.make_folder(); }

  void run_before(std::string_view name) {
    for (const step &each : zotconf::steps_of_selftest()) {
      if (each.name == name) {
        return;
      }
      each.run(on_);
    }
  }
  // Returns why the step fails; empty if it passes.
  std::string failure_of(std::string_view name) {
    try {
      step_named(name).run(on_);
      return "";
    } catch (const std::runtime_error &error) {
      return error.what();
    }
  }
  void expect_failure(std::string_view name, const std::string &part) {
    const std::string reason = failure_of(name);
    EXPECT_NE(reason.find(part), std::string::npos) << name << ": " << reason;
  }

  temp_dir dir_;
  trial on_{dir_ / ""};
};

TEST_F(StepsOfSelftest, PublicationFailsWhereAFileMayNotGrow) {
  const file_size_limit limit(65536);
  expect_failure("publication", "ended by signal ");
}

TEST_F(StepsOfSelftest, ServiceFailsWithoutAPublication) {
  expect_failure("service", "is not a folder");
}

TEST_F(StepsOfSelftest, FirstCommitFailsWithoutAService) {
  step_named("publication").run(on_);
  expect_failure("first_commit", "ZOT_ERR_REMOTE_UNAVAIL");
}

TEST_F(StepsOfSelftest, FirstCommitFailsWhenAnotherConfigurationIsPublished) {
  step_named("publication").run(on_);
  step_named("service").run(on_);
  on_.publish(on_.published.second);
  expect_failure("first_commit", "Wlan/office has other bytes than were published");
}

TEST_F(StepsOfSelftest, FirstCommitFailsOnWhatIsInForceAlready) {
  run_before("update");
  expect_failure("first_commit", "Ap/site is reported as unchanged instead of added");
}

TEST_F(StepsOfSelftest, UpdateFailsWithoutWhatItUpdates) {
  run_before("first_commit");
  expect_failure("update", " is reported as added instead of ");
}

TEST_F(StepsOfSelftest, RollbackFailsWhenTheSameIsOfferedOnceMore) {
  run_before("killed_commit");
  expect_failure("rollback", "ZOT_ERR_SAME_AS_CORRUPTED");
}

TEST_F(StepsOfSelftest, KilledCommitFailsWhenNothingIsToBeCommitted) {
  run_before("restart");
  EXPECT_NE(failure_of("killed_commit"), "");
}

TEST_F(StepsOfSelftest, RestartFailsWithoutTheFilesOfTheCache) {
  run_before("restart");
  std::filesystem::remove_all(on_.cache() / "config");
  expect_failure("restart", "ZOT_ERR_NO_CACHE");
}

TEST_F(StepsOfSelftest, RestartFailsWhenAnotherConfigurationIsInForce) {
  run_before("killed_commit");
  expect_failure("restart", "another configuration is in force without a service");
}

TEST_F(StepsOfSelftest, DamageFailsInACacheThatIsDamagedAlready) {
  run_before("damage");
  write_bytes(on_.cache() / "config/Ap/site/1", "y");
  expect_failure("damage", "verify ends with 7 instead of 0");
}

}  // namespace
}  // namespace zot::test
