// SPDX-License-Identifier: Apache-2.0
// Each call that promises ZOT_ERR_NOMEM returns it when an allocation fails.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "failing_memory.hpp"
#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/service.hpp"
#include "zot_list.hpp"
#include "zot_priv/model/owners.hpp"

namespace {
using namespace zot::test;
using zot::gpb_list_owner;
using zot::k_owner;

// An element with a configuration in force and its K as records of the test's own.
class OutOfMemory : public testing::Test {
 protected:
  // Each try needs an element of its own, because a failed call may have changed it.
  struct place {
    place() {
      remote.publish(first_configuration());
      install_current(e, first_configuration());
      install_last(e, second_configuration());
      install_corrupted(e, third_configuration());
      first_configuration().install_k(e.tmp_root(), "subsys.k", "subsys.checksum");
      zot_priv_read_cur_k(e.handle(), k.get(), e.conf_root().c_str());
      zot_priv_k_set_root(k.get(), e.tmp_root().c_str());
      zot_priv_get_gpb_list_via_k_json(e.handle(), k.get(), gpbs.get());
    }
    [[nodiscard]] zot_ctx *handle() const { return e.handle(); }

    service remote;
    element e{remote.port()};
    k_owner k = zot::make_k();
    k_owner other = zot::make_k();
    gpb_list_owner gpbs = zot::make_gpb_list(e.handle());
    gpb_list_owner out = zot::make_gpb_list(e.handle());
  };

  // Whether a failed allocation of this call leads to the status.
  template <typename Call>
  static bool gives(int wanted, Call call) {
    return leads_to(wanted, [&](const failing_memory &memory) {
      place at;
      memory.start();
      return call(at);
    });
  }

  // The same after a get of a new configuration.
  template <typename Call>
  static bool gives_after_a_get(int wanted, Call call) {
    return leads_to(wanted, [&](const failing_memory &memory) {
      place at;
      at.remote.publish(second_configuration());
      if (at.e.get().status != ZOT_OK) {
        return static_cast<int>(ZOT_OK);
      }
      memory.start();
      return call(at);
    });
  }
};

TEST_F(OutOfMemory, GetTellsIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    zot_list *list = nullptr;
    const int status = zot_conf_get(at.handle(), every_category(), every_change, &list);
    if (list != nullptr) {
      zot_conf_free_ret_data(at.handle(), &list);
    }
    return status;
  }));
}

TEST_F(OutOfMemory, CommitTellsIt) {
  EXPECT_TRUE(
      gives_after_a_get(ZOT_ERR_NOMEM, [](place &at) { return zot_conf_commit(at.handle()); }));
}

TEST_F(OutOfMemory, RollBackTellsIt) {
  EXPECT_TRUE(
      gives_after_a_get(ZOT_ERR_NOMEM, [](place &at) { return zot_conf_roll_back(at.handle()); }));
}

TEST_F(OutOfMemory, CommitOfTheOperationsTellsIt) {
  EXPECT_TRUE(gives_after_a_get(ZOT_ERR_NOMEM,
                                [](place &at) { return zot_priv_commit_conf(at.handle()); }));
}

TEST_F(OutOfMemory, RollBackOfTheOperationsTellsIt) {
  EXPECT_TRUE(gives_after_a_get(ZOT_ERR_NOMEM,
                                [](place &at) { return zot_priv_commit_fail_k(at.handle()); }));
}

TEST_F(OutOfMemory, SettingAPathTellsIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return zot_parm_set(at.handle(), ZOT_PARM_LOG_DESTINATION_PATH, "/dev/null", 10);
  }));
}

TEST_F(OutOfMemory, LoadingAKTellsIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    zot_k *loaded = nullptr;
    const int status = __zot_priv_init_load_k_f(at.handle(), zot_priv_read_cur_k_f, &loaded,
                                                at.e.conf_root().c_str(), 0);
    const k_owner owner(loaded);
    return status;
  }));
}

TEST_F(OutOfMemory, LoadersTellIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) { return zot_priv_init_load_conf(at.handle()); }));
  EXPECT_TRUE(
      gives(ZOT_ERR_NOMEM, [](place &at) { return zot_priv_init_load_prev_k(at.handle()); }));
  EXPECT_TRUE(
      gives(ZOT_ERR_NOMEM, [](place &at) { return zot_priv_init_load_tmp_k(at.handle()); }));
  EXPECT_TRUE(
      gives(ZOT_ERR_NOMEM, [](place &at) { return zot_priv_init_load_fail_k(at.handle()); }));
  EXPECT_TRUE(
      gives(ZOT_ERR_NOMEM, [](place &at) { return zot_priv_init_load_ret_gpb_list(at.handle()); }));
}

TEST_F(OutOfMemory, DownloadsTellIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return ap_download_gpb(at.handle(), at.k.get(), at.gpbs.get());
  }));
  EXPECT_TRUE(
      gives(ZOT_ERR_NOMEM, [](place &at) { return ap_download_k(at.handle(), at.other.get()); }));
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return zot_priv_get_new_k_by_host(at.handle(), at.other.get(), at.remote.host().c_str());
  }));
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return zot_priv_update_tmp_gpb(at.handle(), at.k.get(), at.out.get());
  }));
}

TEST_F(OutOfMemory, UpdateOfTheTemporaryKInDevModeTellsIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    at.handle()->dev_mode = 1;
    return zot_priv_update_tmp_k(at.handle(), at.other.get());
  }));
}

TEST_F(OutOfMemory, CopiesTellIt) {
  EXPECT_TRUE(
      gives(ZOT_ERR_NOMEM, [](place &at) { return zot_priv_k_cpy(at.k.get(), at.other.get()); }));
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return zot_priv_hd_dup_k(at.handle(), at.k.get(), at.other.get(), "K");
  }));
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    zot_gpb copy{};
    const zot_gpb &source = zot::gpb_of(at.gpbs->next);
    const int status = zot_priv_gpb_list_cpy(at.handle(), &copy, &source);
    std::free(copy.path);
    return status;
  }));
}

TEST_F(OutOfMemory, CacheOperationsTellIt) {
  EXPECT_TRUE(
      gives(ZOT_ERR_NOMEM, [](place &at) { return zot_priv_commit_k(at.handle(), at.k.get()); }));
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM,
                    [](place &at) { return zot_priv_rotate_prev_k(at.handle(), at.k.get()); }));
}

TEST_F(OutOfMemory, NoUpdateTellsIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    zot_priv_set_k(at.handle(), ZOT_SLOT_TMP, at.k.release());
    return zot_priv_handle_no_update(at.handle());
  }));
}

TEST_F(OutOfMemory, ListsTellIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return zot_priv_get_gpb_list_via_k_json(at.handle(), at.k.get(), at.out.get());
  }));
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    zot_list nothing;
    zot_list_init(&nothing);
    return zot_priv_build_full_diff_gpb_list(at.handle(), nullptr, at.k.get(), &nothing,
                                             at.gpbs.get(), at.out.get());
  }));
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return zot_priv_update_cached_ret_gpb_list(at.handle(), at.k.get(), at.gpbs.get(), "/root");
  }));
}

TEST_F(OutOfMemory, ReadingTheFilesTellsIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return zot_priv_read_gpb(at.handle(), at.k.get(), at.gpbs.get(), at.e.conf_root().c_str());
  }));
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    return zot_priv_build_gpb_cont(at.handle(), &zot::gpb_of(at.gpbs->next),
                                   at.e.conf_root().c_str());
  }));
}

TEST_F(OutOfMemory, ReturnedListTellsIt) {
  EXPECT_TRUE(gives(ZOT_ERR_NOMEM, [](place &at) {
    zot::gpb_of(at.gpbs->next).stat = ZOT_STAT_ADDED;
    zot_list ret;
    zot_list_init(&ret);
    const int status = zot_priv_get_ret_data_via_gpb(at.handle(), at.gpbs.get(), &ret, every_change,
                                                     at.e.conf_root().c_str(), every_category());
    zot_priv_free_ret_data(&ret);
    return status;
  }));
}

}  // namespace
