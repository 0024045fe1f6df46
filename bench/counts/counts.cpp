// SPDX-License-Identifier: Apache-2.0
// usage: bench_counts PIECE ENTRIES
// Runs one operation of the library once. Under callgrind, started with collection off, only the
// instructions of the operation itself are collected.
#include <cjson/cJSON.h>
#include <valgrind/callgrind.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "bench/pieces/document.hpp"
#include "bench/pieces/records.hpp"
#include "zot_conf.h"
#include "zot_list.hpp"

namespace {

using namespace zot::bench;

using work = std::function<bool()>;

bool counted(const work &run) {
  CALLGRIND_TOGGLE_COLLECT;
  const bool is_done = run();
  CALLGRIND_TOGGLE_COLLECT;
  return is_done;
}

bool count_cjson_parse(std::size_t entries) {
  const document &published = first_document(entries);
  cJSON *tree = nullptr;
  const bool is_done = counted([&] {
    tree = cJSON_Parse(published.text.c_str());
    return tree != nullptr;
  });
  cJSON_Delete(tree);
  return is_done;
}

bool count_k_parse(std::size_t entries) {
  const document &published = first_document(entries);
  knowledge k(published);
  gpb_list gpbs;
  return counted([&] { return k.validate() && gpbs.build(k); }) && gpbs.holds(published);
}

bool count_path_parse(std::size_t entries) {
  const document &published = first_document(entries);
  std::size_t known = 0;
  for (const published_file &file : published.files) {
    const std::string path = file.path();
    int32_t category = -1;
    uint64_t version = 0;
    std::array<char, 256> key{};
    std::array<char, 256> name{};
    const bool is_known = counted([&] {
      return get_gpb_meta_by_path(path.c_str(), &category, key.data(), key.size(), &version,
                                  name.data(), name.size()) == 0;
    });
    known += is_known && category == file.category && file.key == key.data() ? 1 : 0;
  }
  return known == entries;
}

// The marked list of an update, with its configurations.
struct update {
  explicit update(std::size_t entries)
      : published(updated_document(entries)), current(first_document(entries)), fresh(published) {}

  bool mark() {
    return current.is_ready && fresh.is_ready &&
           zot_priv_build_full_diff_gpb_list(handle.get(), current.k.get(), fresh.k.get(),
                                             current.gpbs.get(), fresh.gpbs.get(),
                                             marked.get()) == ZOT_OK;
  }

  const document &published;
  bare_handle handle;
  configuration current;
  configuration fresh;
  gpb_list marked;
};

bool count_diff(std::size_t entries) {
  update of(entries);
  return counted([&] { return of.mark(); }) && of.marked.holds(of.published);
}

bool count_list_free(std::size_t entries) {
  update of(entries);
  return of.mark() && counted([&] {
           return zot_priv_free_gpb_list(of.handle.get(), of.marked.get()) == ZOT_OK;
         }) &&
         zot_list_is_empty(of.marked.get());
}

// A request for all categories. The bytes are in memory, so no file is read.
bool count_filter(std::size_t entries) {
  update of(entries);
  if (!of.mark()) {
    return false;
  }
  for (zot_gpb &gpb : zot::gpb_range(of.marked.get())) {
    zot::bench::stand_for_verified(gpb);
  }
  zot_catset all{};
  zot_catset_set_all(&all);
  zot_list returned;
  zot_list_init(&returned);
  const bool is_done = counted([&] {
    return zot_priv_get_ret_data_via_gpb(of.handle.get(), of.marked.get(), &returned, ZOT_STAT_FULL,
                                         "/nowhere", all) == ZOT_OK;
  });
  const bool is_filled = !zot_list_is_empty(&returned);
  zot_priv_free_ret_data(&returned);
  return is_done && is_filled;
}

// Calls that log at debug level, which is disabled.
bool count_log_disabled(std::size_t calls) {
  update of(1);
  return counted([&] {
    for (std::size_t call = 0; call < calls; ++call) {
      zot_log_ctx *const log = &of.handle.get()->log_ctx;
      zot_log(log, ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, __LINE__, __func__, "%s\n", "");
    }
    return true;
  });
}

struct piece {
  std::string_view name;
  bool (*count)(std::size_t entries);
};

constexpr std::array pieces = {
    piece{"cjson_parse", count_cjson_parse},   piece{"k_parse", count_k_parse},
    piece{"path_parse", count_path_parse},     piece{"diff", count_diff},
    piece{"list_free", count_list_free},       piece{"filter", count_filter},
    piece{"log_disabled", count_log_disabled},
};

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    static_cast<void>(std::fprintf(stderr, "usage: %s PIECE ENTRIES\n", argv[0]));
    return 2;
  }
  for (const piece &known : pieces) {
    if (known.name == argv[1]) {
      const bool is_right = known.count(std::strtoul(argv[2], nullptr, 10));
      static_cast<void>(is_right || std::fprintf(stderr, "%s: the result is wrong\n", argv[1]) < 0);
      return is_right ? 0 : 1;
    }
  }
  static_cast<void>(std::fprintf(stderr, "unknown operation '%s'\n", argv[1]));
  return 2;
}
