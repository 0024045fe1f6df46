// SPDX-License-Identifier: Apache-2.0
// Checks the content of a K, turns it into the sorted list of its files, copies it, and compares it
// with another one. The input is the bytes of a K. What follows the first NUL is a second K.
#include <cjson/cJSON.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "fuzz/check.hpp"
#include "fuzz/handle.hpp"
#include "zot_list.hpp"
#include "zot_priv/model/owners.hpp"

namespace {
using zot::fuzz::check;

using object = std::pair<std::int32_t, std::string>;
struct row {
  object name;
  std::uint64_t version = 0;
  std::string path;
  std::uint32_t stat = 0;

  [[nodiscard]] auto order() const { return std::tuple(name.first, name.second, version); }
};
using rows = std::vector<row>;

rows rows_of(const zot_list *list) {
  rows all;
  const zot_list *before = list;
  for (const zot_gpb &gpb : zot::gpb_range(list)) {
    check(gpb.node.prev == before, "the list leads back the way it leads there");
    before = &gpb.node;
    check(gpb.key_len == std::strlen(gpb.key), "the length is that of the key");
    check(gpb.content == nullptr, "a list that was only told has no bytes");
    all.push_back({{gpb.category, gpb.key}, gpb.version, gpb.path, gpb.stat});
  }
  check(list->prev == before, "the list is a circle");
  return all;
}

// What one element of "gpbs" states. An element without a known path is skipped.
struct told {
  bool is_broken = false;
  bool is_known = false;
  row said;
};

told told_by(const cJSON *item) {
  told one;
  char path[ZOT_PATH_SIZE];
  char key[ZOT_KEY_LEN + 1];
  char category[ZOT_PATH_SIZE];
  std::int32_t number = 0;
  const cJSON *const stated = cJSON_GetObjectItem(item, "path");
  one.is_broken = !cJSON_IsString(stated) || std::strlen(stated->valuestring) >= sizeof path;
  if (one.is_broken) {
    return one;
  }
  one.said.path = stated->valuestring;
  one.is_known = get_gpb_meta_by_path(stated->valuestring, &number, key, sizeof key,
                                      &one.said.version, category, sizeof category) == 0;
  if (one.is_known) {
    one.said.name = {number, key};
    const cJSON *const sum = cJSON_GetObjectItem(item, "checksum");
    one.is_broken = !cJSON_IsNumber(cJSON_GetObjectItem(item, "size")) || !cJSON_IsString(sum) ||
                    std::strlen(sum->valuestring) > ZOT_CHECKSUM_LEN;
  }
  return one;
}

// The list that the library must return for a K; false if it must refuse the K.
bool expect_list(const zot_k &k, rows &wanted) {
  for (const cJSON *item = k.gpbs->child; item != nullptr; item = item->next) {
    const told one = told_by(item);
    if (one.is_broken) {
      return false;
    }
    if (one.is_known) {
      wanted.push_back(one.said);
    }
  }
  const auto comes_first = [](const row &a, const row &b) { return a.order() < b.order(); };
  std::stable_sort(wanted.begin(), wanted.end(), comes_first);
  const auto contradicts = [](const row &a, const row &b) {
    return a.name == b.name && a.version != b.version;
  };
  return std::adjacent_find(wanted.begin(), wanted.end(), contradicts) == wanted.end();
}

bool is_same(const row &a, const row &b) {
  return a.order() == b.order() && a.path == b.path;
}

// A K with the list that the library returned for it; invalid if it was refused.
class configuration {
 public:
  configuration(zot_ctx *ctx, const std::uint8_t *bytes, std::size_t size)
      : k(zot::make_k()), gpbs(zot::make_gpb_list(ctx)) {
    k->data = static_cast<char *>(std::calloc(size + 1, 1));
    std::copy(bytes, bytes + size, k->data);
    k->data_len = static_cast<std::uint32_t>(size);
    is_valid = accept(ctx) && list(ctx);
  }

  zot::k_owner k;
  zot::gpb_list_owner gpbs;
  bool is_valid = false;

 private:
  bool accept(zot_ctx *ctx) {
    const int status = zot_priv_chk_vail_k_cont(ctx, k.get());
    check(zot_util_get_err(ctx) == status, "the status of the check is recorded");
    if (status != ZOT_OK) {
      check(status == (k->data[0] == '\0' ? ZOT_ERR_WRONG_INPUT : ZOT_ERR_CORRUPTED),
            "a K is refused as empty or as corrupted");
      check(k->json == nullptr && k->gpbs == nullptr && k->meta.cluster_id[0] == '\0',
            "a refused K leaves the record as it was");
      return false;
    }
    check(cJSON_IsArray(k->gpbs) && cJSON_GetObjectItem(k->json, "gpbs") == k->gpbs,
          "the files are those of the tree");
    const cJSON *const cluster = cJSON_GetObjectItem(k->json, "clusterId");
    check(cJSON_IsString(cluster) && std::strcmp(cluster->valuestring, k->meta.cluster_id) == 0,
          "the cluster is the one that K states");
    return true;
  }

  bool list(zot_ctx *ctx) {
    rows wanted;
    const bool is_good = expect_list(*k, wanted);
    const int status = zot_priv_get_gpb_list_via_k_json(ctx, k.get(), gpbs.get());
    check(status == (is_good ? ZOT_OK : ZOT_ERR_CORRUPTED), "a list comes of a K that has one");
    check(zot_util_get_err(ctx) == status, "the status of the list is recorded");
    const rows found = rows_of(gpbs.get());
    check(is_good || found.empty(), "nothing is left of a refused list");
    check(!is_good || std::ranges::equal(found, wanted, is_same),
          "the list has the stated files in the order of category, key, version and K");
    return is_good;
  }
};

void copy(zot_ctx *ctx, const configuration &from) {
  const zot::k_owner other = zot::make_k();
  check(zot::duplicate_k(from.k.get(), other.get()) == ZOT_OK, "a K can be copied");
  check(zot_priv_cmp_k(from.k.get(), other.get()) == 0, "a copy is the same K");
  check(std::memcmp(&from.k->meta, &other->meta, sizeof other->meta) == 0, "of the same metadata");
  const zot::gpb_list_owner list = zot::make_gpb_list(ctx);
  check(zot_priv_get_gpb_list_via_k_json(ctx, other.get(), list.get()) == ZOT_OK, "with a list");
  check(std::ranges::equal(rows_of(list.get()), rows_of(from.gpbs.get()), is_same),
        "that is the same");
}

rows without(const rows &all, std::uint32_t stat) {
  rows rest;
  std::ranges::copy_if(all, std::back_inserter(rest),
                       [&](const row &one) { return one.stat != stat; });
  return rest;
}

std::map<object, row> by_object(const rows &all) {
  std::map<object, row> found;
  for (const row &one : all) {
    found.emplace(one.name, one);
  }
  return found;
}

// Checks the mark of each object that neither side names twice.
void check_marks(const rows &marked, const rows &before, const rows &after, bool other_cluster) {
  const auto current = by_object(before);
  const auto fresh = by_object(after);
  if (current.size() != before.size() || fresh.size() != after.size()) {
    return;
  }
  for (const row &one : marked) {
    const auto old = current.find(one.name);
    const auto now = fresh.find(one.name);
    const std::uint32_t wanted = old == current.end() ? ZOT_STAT_ADDED
                                 : now == fresh.end() ? ZOT_STAT_DELETED
                                 : other_cluster || old->second.version != now->second.version
                                     ? ZOT_STAT_MODIFIED
                                     : ZOT_STAT_UNCHANGED;
    check(one.stat == wanted, "the mark tells what became of the object");
  }
}

void compare(zot_ctx *ctx, const configuration &current, const configuration &fresh) {
  const zot::gpb_list_owner out = zot::make_gpb_list(ctx);
  check(zot_priv_build_full_diff_gpb_list(ctx, current.k.get(), fresh.k.get(), current.gpbs.get(),
                                          fresh.gpbs.get(), out.get()) == ZOT_OK,
        "two configurations can be compared");
  const rows marked = rows_of(out.get());
  const rows before = rows_of(current.gpbs.get());
  const rows after = rows_of(fresh.gpbs.get());
  check(std::ranges::equal(without(marked, ZOT_STAT_DELETED), after,
                           [](const row &a, const row &b) { return a.order() == b.order(); }),
        "what is not deleted is the new configuration");
  check(std::ranges::equal(without(marked, ZOT_STAT_ADDED), before,
                           [](const row &a, const row &b) { return a.name == b.name; }),
        "what is not added is the old configuration");
  check_marks(marked, before, after,
              std::strcmp(current.k->meta.cluster_id, fresh.k->meta.cluster_id) != 0);
  zot_priv_prune_deleted_gpb(ctx, out.get());
  const rows pruned = rows_of(out.get());
  check(pruned.size() == after.size() && without(pruned, ZOT_STAT_UNCHANGED).empty(),
        "without the deleted ones everything is unchanged");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  const zot::fuzz::handle handle;
  const configuration first(handle.get(), bytes, size);
  if (!first.is_valid) {
    return 0;
  }
  copy(handle.get(), first);
  compare(handle.get(), first, first);
  const std::uint8_t *const end = bytes + size;
  const std::uint8_t *const second = std::find(bytes, end, 0);
  if (second == end) {
    return 0;
  }
  const configuration other(handle.get(), second + 1, static_cast<std::size_t>(end - second) - 1);
  if (other.is_valid) {
    compare(handle.get(), first, other);
    compare(handle.get(), other, first);
  }
  return 0;
}
