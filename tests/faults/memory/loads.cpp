// SPDX-License-Identifier: Apache-2.0
// Each load of a handle, alone.
#include <cstdlib>

#include "operations.hpp"

namespace zot::faults {
namespace {

using loader = int (*)(zot_ctx *);

struct load_case {
  std::string name;
  loader load;
  std::uint32_t bit;
  int slot;  // -1: the returned list
  std::uint32_t dispensable;
};

std::string loaded(const zot_ctx &handle, const load_case &wanted) {
  return wanted.slot < 0 ? in_memory(handle.ret.list) + " in " + handle.ret.root
                         : in_memory(handle.slot[wanted.slot]);
}

bool is_empty(const zot_ctx &handle, const load_case &wanted) {
  return wanted.slot < 0
             ? handle.ret.list == nullptr
             : handle.slot[wanted.slot].k == nullptr && handle.slot[wanted.slot].gpbs == nullptr;
}

// A load runs once, whether it succeeds or not, and one that fails leaves its slot empty.
std::string go_on_after_load(stage &on, const load_case &wanted, const outcome &got) {
  const zot_ctx &handle = *on.handle();
  expect((handle.load_flags & wanted.bit) != 0, "the load is not noted");
  expect((got.status == ZOT_OK) != is_empty(handle, wanted), "a slot half filled");
  const std::string before = loaded(handle, wanted);
  const int again = on.under({}, [&] { return wanted.load(on.handle()); });
  expect(again == ZOT_OK && loaded(handle, wanted) == before, "it loads a second time");
  on.publish(second);
  expect(on.get({}).status != ZOT_ERR_NOMEM, "no get after it");
  on.expect_whole_cycle(fourth);
  return {};
}

operation load_operation(const load_case &wanted) {
  const auto run = [wanted](stage &on, const fault &fault) {
    const int status = on.under(fault, [&] { return wanted.load(on.handle()); });
    return outcome{status, "status " + std::to_string(status) + "\n" +
                               (status == ZOT_OK ? loaded(*on.handle(), wanted) : "")};
  };
  const auto go_on = [wanted](stage &on, const outcome &got, const references &) {
    return go_on_after_load(on, wanted, got);
  };
  return {wanted.name, ZOT_OK, {ZOT_ERR_NOMEM, ZOT_ERR_CORRUPTED}, wanted.dispensable, fill_cache,
          run,         go_on};
}

// The operation that the loads have in common leaves its target alone when it fails.
operation load_of_a_k() {
  const auto run = [](stage &on, const fault &fault) {
    zot_k elsewhere{};
    zot_k *target = &elsewhere;
    const int status = on.under(fault, [&] {
      return __zot_priv_init_load_k_f(on.handle(), zot_priv_read_cur_k_f, &target,
                                      on.handle()->conf_root, 0);
    });
    outcome result{status, "status " + std::to_string(status)};
    expect((target == &elsewhere) == (status != ZOT_OK), "the target of a failed load changed");
    if (status == ZOT_OK) {
      result.text += in_memory(zot_slot{target, nullptr});
      zot_priv_free_k(on.handle(), target);
      std::free(target);
    }
    return result;
  };
  const auto go_on = [](stage &on, const outcome &, const references &) -> std::string {
    on.expect_whole_cycle(fourth);
    return {};
  };
  return {"load: a K into a target",
          ZOT_OK,
          {ZOT_ERR_NOMEM, ZOT_ERR_CORRUPTED},
          0,
          fill_cache,
          run,
          go_on};
}

}  // namespace

std::vector<operation> loads() {
  std::vector<operation> all = {load_of_a_k()};
  for (const load_case &each : {
           load_case{"load: current", zot_priv_init_load_conf, ZOT_LOADED_CONF, ZOT_SLOT_CURRENT,
                     0},
           load_case{"load: last", zot_priv_init_load_prev_k, ZOT_LOADED_PREV_K, ZOT_SLOT_LAST, 0},
           load_case{"load: temporary", zot_priv_init_load_tmp_k, ZOT_LOADED_TMP_K, ZOT_SLOT_TMP,
                     0},
           load_case{"load: corrupted", zot_priv_init_load_fail_k, ZOT_LOADED_FAIL_K,
                     ZOT_SLOT_CORRUPTED, 0},
           load_case{"load: returned list", zot_priv_init_load_ret_gpb_list, ZOT_LOADED_RET_LIST,
                     -1, ZOT_LOADED_CONF | ZOT_LOADED_PREV_K},
       }) {
    all.push_back(load_operation(each));
  }
  return all;
}

}  // namespace zot::faults
