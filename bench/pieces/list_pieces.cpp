// SPDX-License-Identifier: Apache-2.0
// Operations on lists: sort, difference, selection of the requested entries, release.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#include "bench/pieces/document.hpp"
#include "bench/pieces/measure.hpp"
#include "bench/pieces/records.hpp"
#include "zot_conf.h"
#include "zot_list.hpp"

namespace zot::bench {

namespace {

int compare_nodes(void * /*priv*/, zot_list *a, zot_list *b) {
  return zot_priv_cmp_gpb(&gpb_of(a), &gpb_of(b), nullptr);
}

// The entries are in memory in the order of the document, as when a list is built.
class list_sort {
 public:
  explicit list_sort(std::size_t entries) : document_(first_document(entries)) {
    for (const published_file &file : document_.files) {
      zot_gpb *const made = zot_priv_gpb_new(file.path().c_str(), file.size, file.category,
                                             file.checksum.c_str(), file.key.c_str(), file.version);
      if (made == nullptr) {
        throw std::bad_alloc();
      }
      entries_.push_back(made);
      list_add_tail(gpbs_.get(), &made->node);
    }
  }

  void reset() {
    zot_list_init(gpbs_.get());
    for (zot_gpb *const entry : entries_) {
      list_add_tail(gpbs_.get(), &entry->node);
    }
  }
  bool run() {
    zot_list_sort(nullptr, gpbs_.get(), compare_nodes);
    return true;
  }
  [[nodiscard]] bool is_right() const { return gpbs_.holds(document_); }

 private:
  const document &document_;
  gpb_list gpbs_;
  std::vector<zot_gpb *> entries_;
};

class diff {
 public:
  explicit diff(std::size_t entries)
      : updated_(updated_document(entries)), current_(first_document(entries)), fresh_(updated_) {}

  void reset() { marked_.release(); }
  bool run() {
    return current_.is_ready && fresh_.is_ready &&
           zot_priv_build_full_diff_gpb_list(handle_.get(), current_.k.get(), fresh_.k.get(),
                                             current_.gpbs.get(), fresh_.gpbs.get(),
                                             marked_.get()) == ZOT_OK;
  }
  [[nodiscard]] bool is_right() const { return marked_.holds(updated_) && is_marked(); }

 private:
  [[nodiscard]] bool is_marked() const {
    const std::vector<published_file> files = in_list_order(updated_);
    auto file = files.begin();
    for (const zot_gpb &gpb : gpb_range(marked_.get())) {
      if (gpb.stat != (file->is_modified ? ZOT_STAT_MODIFIED : ZOT_STAT_UNCHANGED)) {
        return false;
      }
      ++file;
    }
    return true;
  }

  const document &updated_;
  bare_handle handle_;
  configuration current_;
  configuration fresh_;
  gpb_list marked_;
};

class list_free {
 public:
  explicit list_free(std::size_t entries) : k_(first_document(entries)) {
    is_ready_ = k_.validate() && gpbs_.build(k_) && gpbs_.holds(first_document(entries));
  }

  void reset() {
    gpbs_.release();
    is_ready_ = is_ready_ && gpbs_.build(k_);
  }
  bool run() { return is_ready_ && zot_priv_free_gpb_list(handle_.get(), gpbs_.get()) == ZOT_OK; }
  [[nodiscard]] bool is_right() const { return zot_list_is_empty(gpbs_.get()); }

 private:
  bare_handle handle_;
  knowledge k_;
  gpb_list gpbs_;
  bool is_ready_ = false;
};

// A full request for files that were read before, so that no time is spent on files.
class filter {
 public:
  explicit filter(std::size_t entries) : document_(first_document(entries)), fresh_(document_) {
    zot_list_init(&returned_);
    zot_catset_set_all(&catset_);
    zot_list nothing;
    zot_list_init(&nothing);
    is_ready_ = fresh_.is_ready &&
                zot_priv_build_full_diff_gpb_list(handle_.get(), nullptr, fresh_.k.get(), &nothing,
                                                  fresh_.gpbs.get(), marked_.get()) == ZOT_OK;
    for (zot_gpb &gpb : gpb_range(marked_.get())) {
      stand_for_verified(gpb);
    }
  }
  filter(const filter &) = delete;
  filter &operator=(const filter &) = delete;
  ~filter() { reset(); }

  void reset() { zot_priv_free_ret_data(&returned_); }
  bool run() {
    return is_ready_ && zot_priv_get_ret_data_via_gpb(handle_.get(), marked_.get(), &returned_,
                                                      ZOT_STAT_FULL, "/nowhere", catset_) == ZOT_OK;
  }
  [[nodiscard]] bool is_right() {
    auto entry = ret_data_range(&returned_).begin();
    const auto end = ret_data_range(&returned_).end();
    for (const published_file &file : in_list_order(document_)) {
      if (!zot_catset_has(&catset_, file.category)) {
        continue;
      }
      if (entry == end || !is_entry_of(*entry, file)) {
        return false;
      }
      ++entry;
    }
    return entry == end;
  }

 protected:
  zot_catset catset_{};

 private:
  static bool is_entry_of(const zot_ret_data &entry, const published_file &file) {
    return file.key == entry.key && file.category == entry.category && file.size == entry.size &&
           entry.stat == ZOT_STAT_FULL && entry.data != nullptr;
  }

  const document &document_;
  bare_handle handle_;
  configuration fresh_;
  gpb_list marked_;
  zot_list returned_{};
  bool is_ready_ = false;
};

// One category of eighty, as a service with one task requests.
class filter_narrow : public filter {
 public:
  explicit filter_narrow(std::size_t entries) : filter(entries) {
    catset_ = {};
    zot_catset_add(&catset_, ZOT_CAT_WLAN);
  }
};

BENCHMARK(measure_entries<list_sort>)->Name("list_sort")->Apply(at_every_scale);
BENCHMARK(measure_entries<diff>)->Name("diff")->Apply(at_every_scale);
BENCHMARK(measure_entries<list_free>)->Name("list_free")->Apply(at_every_scale);
BENCHMARK(measure_entries<filter>)->Name("filter")->Apply(at_every_scale);
BENCHMARK(measure_entries<filter_narrow>)->Name("filter_narrow")->Apply(at_every_scale);

}  // namespace

}  // namespace zot::bench
