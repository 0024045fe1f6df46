// SPDX-License-Identifier: Apache-2.0
#include "world.hpp"

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "file_adapter.hpp"
#include "tests/support/files.hpp"

namespace zot::faults {
namespace {
namespace fs = std::filesystem;

constexpr const char *sub_index = "aabbccddeeff";
constexpr std::size_t bytes_before_break = 10;

void set_answer(test::service &remote, const std::string &suffix, const answer &given) {
  switch (given.how) {
    case answer::kind::body:
      remote.answer(suffix, 200, given.bytes);
      return;
    case answer::kind::not_found:
      remote.answer(suffix, 404, "not found\n");
      return;
    case answer::kind::refused:
      remote.answer(suffix, 500, "refused\n");
      return;
    case answer::kind::breaks_off:
      remote.answer(suffix, 200, given.bytes);
      remote.break_off(suffix, bytes_before_break);
      return;
  }
}

outcome of(int status) {
  outcome seen;
  seen.status = status;
  return seen;
}

const zot_gpb &gpb_of(const zot_list *node) {
  const auto *bytes = reinterpret_cast<const char *>(node) - offsetof(zot_gpb, node);
  return *reinterpret_cast<const zot_gpb *>(bytes);
}

std::string paths_of(const zot_list *list) {
  std::string text;
  for (const zot_list *node = list->next; node != list; node = node->next) {
    text += std::string(gpb_of(node).path) + " ";
  }
  return text;
}

std::string marks_of(const zot_list *list) {
  std::string text;
  for (const zot_list *node = list->next; node != list; node = node->next) {
    text += std::string(gpb_of(node).path) + "=" + std::to_string(gpb_of(node).stat) + " ";
  }
  return text;
}

std::string root_name(const zot_ctx &handle, const char *root) {
  const std::string text = root != nullptr ? root : "none";
  return text == handle.conf_root ? "cache" : text == handle.tmp_root ? "scratch" : text;
}

std::string slot_name(std::uint32_t number) {
  return zot_priv_slot_name(number);
}

void look_at_slot(const zot_ctx &handle, std::uint32_t number, view &seen) {
  const zot_slot &one = handle.slot[number];
  const std::string name = slot_name(number);
  std::uint32_t first = 0;
  if (one.k != nullptr) {
    seen["K of " + name] =
        one.k->data != nullptr ? std::string(one.k->data, one.k->data_len) : std::string();
    seen["digest of " + name] = one.k->checksum;
    seen["root of " + name] = root_name(handle, one.k->root);
    while (handle.slot[first].k != one.k) {
      ++first;
    }
    seen["record of " + name] = slot_name(first);
  }
  if (one.gpbs != nullptr) {
    seen["files of " + name] = paths_of(one.gpbs);
    first = 0;
    while (handle.slot[first].gpbs != one.gpbs) {
      ++first;
    }
    seen["list of " + name] = slot_name(first);
  }
}

void look_at_files(const std::string &directory, const std::string &label, view &seen) {
  for (const std::string &name : test::tree(directory)) {
    if (name == "gpb.tgz") {
      continue;  // compressed, and used for one get only
    }
    const bool partial = name.ends_with(".tmp");
    seen[label + " " + name] = partial ? "" : test::read_bytes(directory + "/" + name);
  }
}

}  // namespace

world::world(test::service &remote, std::uint16_t closed_port, adapter used)
    : remote_(remote),
      closed_port_(closed_port),
      adapter_(used),
      element_({.port = remote.port(), .start = false}) {
  remote_.clear_requests();
  publish(offer{});
  restart();
}

void world::publish(const offer &published) {
  remote_.clear_overrides();
  remote_.publish(published.published);
  set_answer(remote_, ".checksum", published.checksum);
  set_answer(remote_, ".k", published.k);
  if (published.archive.how == answer::kind::breaks_off) {
    remote_.break_off("/tgz", bytes_before_break);
  } else if (published.archive.how != answer::kind::body || !published.is_archive) {
    set_answer(remote_, "/tgz", published.archive);
  }
  file_adapter_offer() = published;
}

void world::set_service(bool up) {
  element_.set_port(up ? remote_.port() : closed_port_);
}

std::string world::directory_of(area where) const {
  return where == area::cache ? element_.conf_root() : element_.tmp_root();
}

void world::damage(const std::vector<change> &changes) const {
  for (const change &what : changes) {
    const std::string path = directory_of(what.where) + "/" + what.name;
    // Removed first, because the file may have a hard link, whose content must not change.
    fs::remove_all(path);
    if (what.bytes.has_value()) {
      test::write_bytes(path, *what.bytes);
    }
  }
}

std::string world::requests() const {
  std::string text;
  for (const test::request &made : remote_.requests()) {
    text += made.path.ends_with(".checksum") ? "sum "
            : made.path.ends_with(".k")      ? "k "
                                             : "archive";
  }
  return text;
}

outcome world::get(std::uint32_t mask, const zot_catset &categories) {
  remote_.clear_requests();
  file_adapter_requests() = 0;
  const test::returned_list got = test::get(handle_.get(), mask, categories);
  outcome seen;
  seen.status = got.status;
  seen.has_list = got.has_list;
  seen.entries = got.entries;
  seen.requests = requests();
  if (file_adapter_requests() != 0) {
    seen.requests += "archive";
  }
  return seen;
}

outcome world::commit() {
  return of(zot_conf_commit(handle_.get()));
}

outcome world::roll_back() {
  return of(zot_conf_roll_back(handle_.get()));
}

void world::restart() {
  handle_.reset();
  element_.log().clear();
  zot_parm_all parm = element_.parm();
  parm.log_ctl.level = ZOT_LOG_ERROR;  // nobody reads the log, and it would take most of the time
  handle_.reset(zot_conf_init_args("AP", sub_index, std::strlen(sub_index), parm));
  if (handle_ == nullptr) {
    throw std::runtime_error("no handle:\n" + element_.log().dump());
  }
  if (adapter_ == adapter::client) {
    install_file_adapter(*handle_);
  }
}

view world::look() const {
  const zot_ctx &handle = *handle_;
  view seen;
  for (std::uint32_t i = 0; i < ZOT_SLOT_COUNT; ++i) {
    look_at_slot(handle, i, seen);
  }
  seen["marked list"] = handle.ret.list != nullptr ? marks_of(handle.ret.list) : "none";
  seen["marked root"] = root_name(handle, handle.ret.root);
  seen["state"] = std::to_string(handle.stat.state);
  seen["load flags"] = std::to_string(handle.load_flags);
  seen["cache doubts"] = std::to_string(handle.own.cache_doubts);
  look_at_files(element_.conf_root(), "cache", seen);
  look_at_files(element_.tmp_root(), "scratch", seen);
  return seen;
}

}  // namespace zot::faults
