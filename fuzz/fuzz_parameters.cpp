// SPDX-License-Identifier: Apache-2.0
// Sets and gets parameters, with any id and with values of any length in buffers of exactly that
// length, and compares the result with a record of what must be stored. For each call the input has
// some bytes that choose the call, then the bytes of its value.
#include <dirent.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstring>

#include "fuzz/check.hpp"
#include "tests/support/element.hpp"
#include "zot_conf.h"

namespace {
using zot::fuzz::check;
namespace test = zot::test;

constexpr std::size_t longest_value = 128;
constexpr int most_calls = 24;
// Indexed by id.
constexpr std::array<std::size_t, ZOT_PARM_ALL + 1> shortest_value = {0,
                                                                      4,
                                                                      1,
                                                                      1,
                                                                      1,
                                                                      sizeof(FILE *),
                                                                      1,
                                                                      sizeof(zot_log_cb_func),
                                                                      1,
                                                                      4,
                                                                      1,
                                                                      sizeof(zot_log_ctl),
                                                                      sizeof(zot_parm_all)};

struct wanted_record {
  zot_parm_all all{};
  std::string path;
  bool has_path = false;
  std::uint32_t proto = 0;
};

int swallow(zot_log_ctx *, void *, const char *) {
  return 0;
}

std::uint32_t word_in(const std::string &bytes) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data(), std::min(bytes.size(), sizeof word));
  return word;
}

template <class T>
T value_of(const std::string &bytes) {
  T value{};
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

template <class T>
std::string bytes_of(const T &value) {
  return {reinterpret_cast<const char *>(&value), sizeof value};
}

class session {
 public:
  session(FuzzedDataProvider &input, FILE *stream, const std::string &dir)
      : input_(input), stream_(stream), dir_(dir) {
    zot_util_init_conf_parm(&record_.all);
    record_.all.log_ctl.dst = ZOT_LOG_DST_CB_FUNC;
    record_.all.log_ctl.cb = swallow;
    handle_.reset(zot_conf_init_args("AP", "a", 1, record_.all));
    check(handle_ != nullptr, "a handle is created");
  }

  void call() {
    const int id = input_.ConsumeIntegralInRange<int>(-1, ZOT_PARM_ALL + 1);
    input_.ConsumeBool() ? set(id) : get(id);
    check_record();
  }

 private:
  void set(int id);
  void get(int id);
  int expect_set(int id, const std::string &value);
  int expect_path(const std::string &value);
  int expect_ctl(const zot_log_ctl &ctl);
  int expect_all(const zot_parm_all &all);
  int expect_callback(const std::string &value);
  int expect_destination(std::uint32_t dst);
  [[nodiscard]] std::string value_for(int id);
  [[nodiscard]] zot_log_ctl make_ctl();
  [[nodiscard]] std::string make_path();
  [[nodiscard]] std::string stored(int id) const;
  void check_record() const;

  FuzzedDataProvider &input_;
  FILE *stream_;
  const std::string &dir_;
  wanted_record record_;
  std::string text_;  // the text that the log control of the current call points to
  test::handle_owner handle_;
};

// Never makes a path outside the directory of this process.
std::string session::make_path() {
  std::string name = input_.ConsumeRandomLengthString(12);
  for (char &letter : name) {
    letter = static_cast<char>('a' + static_cast<unsigned char>(letter) % 16);
  }
  switch (input_.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
      return {};
    case 1:
      return dir_ + "/absent/" + name;
    case 2:
      return dir_ + "/" + std::string(ZOT_PATH_SIZE + 9, 'x');
    case 3:
      return dir_ + "/" + name + std::string("\0behind", 7);
    default:
      return dir_ + "/" + name;
  }
}

zot_log_ctl session::make_ctl() {
  zot_log_ctl ctl{};
  ctl.facility = input_.ConsumeIntegral<std::uint32_t>();
  ctl.option = input_.ConsumeIntegral<std::uint32_t>();
  ctl.level = input_.ConsumeIntegralInRange<std::uint32_t>(0, 5);
  ctl.dst = input_.ConsumeIntegralInRange<std::uint32_t>(0, 7);
  ctl.fp = input_.ConsumeBool() ? stream_ : nullptr;
  ctl.cb = input_.ConsumeBool() ? swallow : nullptr;
  ctl.cb_arg = input_.ConsumeBool() ? this : nullptr;
  if (input_.ConsumeBool()) {
    ctl.path = handle_->parm->all.log_ctl.path;  // as for a caller who has read the control
  } else if (input_.ConsumeBool()) {
    text_ = make_path();
    ctl.path = text_.c_str();
  }
  return ctl;
}

std::string session::value_for(int id) {
  std::string value;
  switch (id) {
    case ZOT_PARM_LOG_DESTINATION_PATH:
      return make_path();
    case ZOT_PARM_LOG_DESTINATION_CB_FUNC:
      value = bytes_of(zot_log_cb_func{input_.ConsumeBool() ? swallow : nullptr, this});
      break;
    case ZOT_PARM_LOG_CTL:
      value = bytes_of(make_ctl());
      break;
    case ZOT_PARM_ALL:
      value = bytes_of(zot_parm_all{input_.ConsumeIntegral<std::uint32_t>(),
                                    input_.ConsumeIntegral<std::uint32_t>(), make_ctl()});
      break;
    default:
      return input_.ConsumeRandomLengthString(longest_value);
  }
  const auto change = input_.ConsumeIntegralInRange<std::size_t>(0, longest_value);
  // Mostly complete; otherwise truncated, or with more bytes behind it.
  value.resize(input_.ConsumeBool() ? value.size() : change);
  return value;
}

int session::expect_destination(std::uint32_t dst) {
  zot_log_ctl &ctl = record_.all.log_ctl;
  if (dst > ZOT_LOG_DST_CB_FUNC) {
    return ZOT_ERR_UNKNOWN_OPT;
  }
  if (ctl.dst == ZOT_LOG_DST_PATH) {
    record_.has_path = false;
    ctl.fp = nullptr;
    ctl.cb = nullptr;
    ctl.cb_arg = nullptr;
  }
  ctl.dst = dst;
  return ZOT_OK;
}

int session::expect_path(const std::string &value) {
  const std::string text =
      value.substr(0, std::min<std::size_t>(value.find('\0'), ZOT_PATH_SIZE - 1));
  expect_destination(ZOT_LOG_DST_PATH);
  if (text.empty()) {
    return ZOT_ERR_WRONG_INPUT;
  }
  record_.path = text;
  record_.has_path = true;
  return ZOT_OK;
}

int session::expect_ctl(const zot_log_ctl &ctl) {
  zot_log_ctl &kept = record_.all.log_ctl;
  const std::string path = ctl.path != nullptr ? ctl.path : "";
  kept.facility = ctl.facility;
  kept.option = ctl.option & 3U;
  if (ctl.level > ZOT_LOG_DEBUG) {
    return ZOT_ERR_UNKNOWN_OPT;
  }
  kept.level = ctl.level;
  if (const int status = expect_destination(ctl.dst); status != ZOT_OK) {
    return status;
  }
  switch (ctl.dst) {
    case ZOT_LOG_DST_FP:
      kept.fp = ctl.fp != nullptr ? ctl.fp : kept.fp;
      return ctl.fp != nullptr ? ZOT_OK : ZOT_ERR_NULL_INPUT;
    case ZOT_LOG_DST_PATH:
      return ctl.path != nullptr ? expect_path(path) : ZOT_ERR_NULL_INPUT;
    case ZOT_LOG_DST_CB_FUNC:
      kept.cb = ctl.cb != nullptr ? ctl.cb : kept.cb;
      kept.cb_arg = ctl.cb != nullptr ? ctl.cb_arg : kept.cb_arg;
      return ctl.cb != nullptr ? ZOT_OK : ZOT_ERR_NULL_INPUT;
    default:
      return ZOT_OK;
  }
}

int session::expect_all(const zot_parm_all &all) {
  const int status = expect_ctl(all.log_ctl);
  if (status == ZOT_OK) {
    record_.all.timeout = all.timeout;
    record_.all.timeout_gpb = all.timeout_gpb;
  }
  return status;
}

int session::expect_callback(const std::string &value) {
  const auto func = value_of<zot_log_cb_func>(value);
  expect_destination(ZOT_LOG_DST_CB_FUNC);
  if (func.cb == nullptr) {
    return ZOT_ERR_WRONG_INPUT;
  }
  record_.all.log_ctl.cb = func.cb;
  record_.all.log_ctl.cb_arg = func.cb_arg;
  return ZOT_OK;
}

int session::expect_set(int id, const std::string &value) {
  const std::uint32_t word = word_in(value);
  zot_log_ctl &ctl = record_.all.log_ctl;
  if (id < ZOT_PARM_TIMEOUT || id > ZOT_PARM_ALL) {
    return value.empty() ? ZOT_ERR_WRONG_INPUT : ZOT_ERR_UNKNOWN_OPT;
  }
  if (value.size() < shortest_value.at(static_cast<std::size_t>(id))) {
    return ZOT_ERR_WRONG_INPUT;
  }
  switch (id) {
    case ZOT_PARM_TIMEOUT:
      record_.all.timeout = word;
      return ZOT_OK;
    case ZOT_PARM_TIMEOUT_GPB:
      record_.all.timeout_gpb = word;
      return ZOT_OK;
    case ZOT_PARM_RETURN_PROTO_TYPE:
      record_.proto = word > 1 ? record_.proto : word;
      return word > 1 ? ZOT_ERR_UNKNOWN_OPT : ZOT_OK;
    case ZOT_PARM_LOG_DESTINATION:
      return expect_destination(word);
    case ZOT_PARM_LOG_DESTINATION_FP:
      expect_destination(ZOT_LOG_DST_FP);
      ctl.fp = stream_;
      return ZOT_OK;
    case ZOT_PARM_LOG_DESTINATION_PATH:
      return expect_path(value);
    case ZOT_PARM_LOG_DESTINATION_CB_FUNC:
      return expect_callback(value);
    case ZOT_PARM_LOG_LEVEL:
      ctl.level = word > ZOT_LOG_DEBUG ? ctl.level : word;
      return word > ZOT_LOG_DEBUG ? ZOT_ERR_UNKNOWN_OPT : ZOT_OK;
    case ZOT_PARM_LOG_FACILITY:
      ctl.facility = word & ZOT_TOPIC_DEFAULT;
      return ZOT_OK;
    case ZOT_PARM_LOG_OPTION:
      ctl.option = word & 3U;
      return ZOT_OK;
    case ZOT_PARM_LOG_CTL:
      return expect_ctl(value_of<zot_log_ctl>(value));
    default:
      return expect_all(value_of<zot_parm_all>(value));
  }
}

void session::set(int id) {
  const std::string value = value_for(id);
  const bool is_stream = id == ZOT_PARM_LOG_DESTINATION_FP && !value.empty();
  const zot::fuzz::exact_copy<char> exact(value);
  const int wanted = expect_set(id, value);
  const void *const handed = is_stream ? static_cast<const void *>(stream_) : exact.get();
  const int status = zot_parm_set(handle_.get(), id, handed, value.size());
  check(status == wanted, "a parameter takes what it may take");
  check(zot_util_get_err(handle_.get()) == status, "the status is recorded");
}

// The bytes that a parameter returns; none for an unset path.
std::string session::stored(int id) const {
  const zot_log_ctl &ctl = record_.all.log_ctl;
  zot_parm_all all = record_.all;
  all.log_ctl.path = handle_->parm->all.log_ctl.path;
  switch (id) {
    case ZOT_PARM_TIMEOUT:
      return bytes_of(all.timeout);
    case ZOT_PARM_TIMEOUT_GPB:
      return bytes_of(all.timeout_gpb);
    case ZOT_PARM_RETURN_PROTO_TYPE:
      return bytes_of(record_.proto);
    case ZOT_PARM_LOG_DESTINATION:
      return bytes_of(ctl.dst);
    case ZOT_PARM_LOG_DESTINATION_FP:
      return bytes_of(ctl.fp);
    case ZOT_PARM_LOG_DESTINATION_PATH:
      return record_.has_path ? record_.path + '\0' : std::string();
    case ZOT_PARM_LOG_DESTINATION_CB_FUNC:
      return bytes_of(zot_log_cb_func{ctl.cb, ctl.cb_arg});
    case ZOT_PARM_LOG_LEVEL:
      return bytes_of(ctl.level);
    case ZOT_PARM_LOG_FACILITY:
      return bytes_of(ctl.facility);
    case ZOT_PARM_LOG_OPTION:
      return bytes_of(ctl.option);
    case ZOT_PARM_LOG_CTL:
      return bytes_of(all.log_ctl);
    default:
      return bytes_of(all);
  }
}

void session::get(int id) {
  const bool is_known = id >= ZOT_PARM_TIMEOUT && id <= ZOT_PARM_ALL;
  const std::string wanted = is_known ? stored(id) : std::string();
  const auto length = input_.ConsumeBool()
                          ? wanted.size()
                          : input_.ConsumeIntegralInRange<std::size_t>(0, longest_value);
  const zot::fuzz::exact_copy<char> out(std::string(length, '#'));
  const int status = zot_parm_get(handle_.get(), id, out.get(), length);
  const int expected = length == 0              ? ZOT_ERR_WRONG_INPUT
                       : !is_known              ? ZOT_ERR_UNKNOWN_OPT
                       : length < wanted.size() ? ZOT_ERR_WRONG_INPUT
                                                : ZOT_OK;
  check(status == expected, "a parameter is handed out into a buffer that holds it");
  const std::string found(out.get(), length);
  const std::size_t filled = status == ZOT_OK ? wanted.size() : 0;
  check(found.substr(0, filled) == wanted.substr(0, filled), "what was set reads back");
  check(found.substr(filled) == std::string(length - filled, '#'), "nothing else is written");
}

void session::check_record() const {
  const zot_parm &parm = *handle_->parm;
  check(parm.handle == handle_.get() && handle_->log_ctx.ctl == &parm.all.log_ctl,
        "the record belongs to the handle");
  check((parm.all.log_ctl.path != nullptr) == record_.has_path, "a path is kept while it counts");
  check(!record_.has_path || parm.all.log_ctl.path == record_.path, "it is the one that was set");
  zot_parm_all kept = parm.all;
  kept.log_ctl.path = record_.all.log_ctl.path;
  check(bytes_of(kept) == bytes_of(record_.all) && parm.ret_proto_type == record_.proto,
        "a call changes its own parameter and no other");
}

}  // namespace

// Discards what the library would write to the machine's log.
extern "C" {
void __wrap_openlog(const char *, int, int) {}
void __wrap_syslog(int, const char *format, ...) {
  check(std::strcmp(format, "%s") == 0, "a message is no format");
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static FILE *const stream = std::fopen("/dev/null", "we");
  const test::temp_dir dir;
  FuzzedDataProvider input(bytes, size);
  session one(input, stream, dir.path());
  for (int calls = 0; calls < most_calls && input.remaining_bytes() > 0; ++calls) {
    one.call();
  }
  return 0;
}
