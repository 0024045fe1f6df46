// SPDX-License-Identifier: Apache-2.0
// Creation of a handle, and its parameters.
#include <cstdio>

#include "operations.hpp"

namespace zot::faults {
namespace {

constexpr fault none{};

std::string begin_cycles(stage &on) {
  if (on.handle() == nullptr) {
    on.element().restart();
  }
  on.bring_to(first);
  on.expect_whole_cycle(second);
  return {};
}

outcome described_handle(const zot_ctx *handle) {
  if (handle == nullptr) {
    return {ZOT_ERR_NOMEM, "no handle"};
  }
  const zot_parm_all &parm = handle->parm->all;
  return {ZOT_OK, std::string(handle->subsys_id) + " " + handle->sub_data.name + " " +
                      handle->conf_root + " " + handle->tmp_root + " " +
                      std::to_string(parm.timeout) + " " + std::to_string(parm.log_ctl.dst) + " " +
                      (parm.log_ctl.path != nullptr ? parm.log_ctl.path : "-")};
}

outcome create(stage &on, const fault &fault) {
  on.under(fault, [&] { return on.element().start(); });
  return described_handle(on.handle());
}

// The messages of the start open the log file too.
outcome create_with_log_file(stage &on, const fault &fault) {
  zot_parm_all parm = on.element().parm();
  const std::string path = on.log_path();
  zot_util_set_log_ctl_dst_path(&parm.log_ctl, path.c_str());
  zot_ctx *const made =
      on.under(fault, [&] { return zot_conf_init_args("AP", "aabbccddeeff", 12, parm); });
  const test::handle_owner owner(made);
  return described_handle(made);
}

operation creation(const char *name, outcome (*run)(stage &, const fault &)) {
  return {name,
          ZOT_OK,
          {ZOT_ERR_NOMEM},
          0,
          [](stage &) {},
          run,
          [](stage &on, const outcome &, const references &) { return begin_cycles(on); }};
}

int receive(zot_log_ctx *, void *, const char *) {
  return 0;
}

zot_log_ctl file_log(const std::string &path) {
  zot_log_ctl control{};
  zot_util_init_log_ctl(&control);
  control.level = ZOT_LOG_DEBUG;
  zot_util_set_log_ctl_dst_path(&control, path.c_str());
  return control;
}

int set_word(zot_ctx *handle, int id) {
  const std::uint32_t value = 1;
  return zot_parm_set(handle, id, &value, sizeof value);
}

int set_parameter(stage &on, int id, const std::string &path) {
  zot_ctx *const handle = on.handle();
  switch (id) {
    case ZOT_PARM_LOG_DESTINATION_FP:
      return zot_parm_set(handle, id, stderr, sizeof(FILE *));
    case ZOT_PARM_LOG_DESTINATION_PATH:
      return zot_parm_set(handle, id, path.c_str(), path.size() + 1);
    case ZOT_PARM_LOG_DESTINATION_CB_FUNC: {
      const zot_log_cb_func value{receive, nullptr};
      return zot_parm_set(handle, id, &value, sizeof value);
    }
    case ZOT_PARM_LOG_CTL: {
      const zot_log_ctl value = file_log(path);
      return zot_parm_set(handle, id, &value, sizeof value);
    }
    case ZOT_PARM_ALL: {
      const zot_parm_all value{7, 8, file_log(path)};
      return zot_parm_set(handle, id, &value, sizeof value);
    }
    default:
      return set_word(handle, id);
  }
}

// All current parameters as text.
std::string described_parameters(const zot_ctx &handle) {
  const zot_parm &parm = *handle.parm;
  const zot_log_ctl &log = parm.all.log_ctl;
  std::string text;
  for (const std::uint32_t number : {parm.all.timeout, parm.all.timeout_gpb, parm.ret_proto_type,
                                     log.facility, log.option, log.level, log.dst}) {
    text += std::to_string(number) + " ";
  }
  text += log.fp == stderr ? "stderr " : "- ";
  text += log.cb == receive ? "receive " : "- ";
  return text + (log.path != nullptr ? log.path : "-");
}

// With `leaves_log_file`, the handle logs to a file before, which the call must close and free.
operation parameter(int id, bool leaves_log_file) {
  const auto set = [id](stage &on, const fault &fault) {
    const std::string path = on.log_path();
    const int status = on.under(fault, [&] { return set_parameter(on, id, path); });
    return outcome{status, "status " + std::to_string(status) +
                               (status == ZOT_OK ? ", " + described_parameters(*on.handle()) : "")};
  };
  const auto prepare = [leaves_log_file](stage &on) {
    on.element().restart();
    if (leaves_log_file) {
      const std::string path = on.log_path() + ".before";
      const int status =
          zot_parm_set(on.handle(), ZOT_PARM_LOG_DESTINATION_PATH, path.c_str(), path.size() + 1);
      expect(status == ZOT_OK, "no log file");
    }
  };
  const auto go_on = [set](stage &on, const outcome &, const references &known) {
    const outcome again = set(on, none);
    const reference *const want = known.find(0);
    expect(want == nullptr || again.text == want->given.text, "set again: " + again.text);
    return begin_cycles(on);
  };
  return {std::string("set ") + zot_util_parm2str(id) + (leaves_log_file ? ", was a log file" : ""),
          ZOT_OK,
          {ZOT_ERR_NOMEM},
          0,
          prepare,
          set,
          go_on};
}

}  // namespace

std::vector<operation> creations() {
  return {creation("init", create), creation("init with a log file", create_with_log_file)};
}

std::vector<operation> parameters() {
  std::vector<operation> all;
  for (int id = ZOT_PARM_TIMEOUT; id <= ZOT_PARM_ALL; ++id) {
    all.push_back(parameter(id, false));
  }
  for (const int id : {ZOT_PARM_LOG_DESTINATION, ZOT_PARM_LOG_DESTINATION_FP,
                       ZOT_PARM_LOG_DESTINATION_PATH, ZOT_PARM_LOG_DESTINATION_CB_FUNC}) {
    all.push_back(parameter(id, true));
  }
  return all;
}

std::vector<operation> every_operation() {
  std::vector<operation> all;
  for (auto &&some : {creations(), gets(), loads(), verdicts(), parameters()}) {
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

}  // namespace zot::faults
