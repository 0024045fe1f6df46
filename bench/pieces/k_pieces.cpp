// SPDX-License-Identifier: Apache-2.0
// From the text of a K to a sorted list.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/pieces/document.hpp"
#include "bench/pieces/measure.hpp"
#include "bench/pieces/records.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zot::bench {

namespace {

// The parse with the JSON library alone.
class cjson_parse {
 public:
  explicit cjson_parse(std::size_t entries)
      : entries_(entries), document_(first_document(entries)) {}

  void reset() { tree_.reset(); }
  bool run() {
    tree_.reset(cJSON_Parse(document_.text.c_str()));
    return tree_ != nullptr;
  }
  [[nodiscard]] bool is_right() const {
    const cJSON *const gpbs = cJSON_GetObjectItem(tree_.get(), "gpbs");
    return static_cast<std::size_t>(cJSON_GetArraySize(gpbs)) == entries_;
  }

 private:
  std::size_t entries_;
  const document &document_;
  json_tree tree_;
};

class k_validate {
 public:
  explicit k_validate(std::size_t entries) : entries_(entries), k_(first_document(entries)) {}

  void reset() { k_.forget(); }
  bool run() { return k_.validate(); }
  [[nodiscard]] bool is_right() const { return k_.is_valid(entries_); }

 private:
  std::size_t entries_;
  knowledge k_;
};

class k_parse {
 public:
  explicit k_parse(std::size_t entries) : k_parse(first_document(entries)) {}

  void reset() {
    gpbs_.release();
    k_.forget();
  }
  bool run() { return k_.validate() && gpbs_.build(k_); }
  [[nodiscard]] bool is_right() const { return gpbs_.holds(document_); }

 protected:
  explicit k_parse(const document &of) : document_(of), k_(document_) {}

 private:
  const document &document_;
  knowledge k_;
  gpb_list gpbs_;
};

class k_parse_ordered : public k_parse {
 public:
  explicit k_parse_ordered(std::size_t entries) : k_parse(ordered_document(entries)) {}
};

class list_build {
 public:
  explicit list_build(std::size_t entries) : document_(first_document(entries)), k_(document_) {
    is_ready_ = k_.validate();
  }

  void reset() { gpbs_.release(); }
  bool run() { return is_ready_ && gpbs_.build(k_); }
  [[nodiscard]] bool is_right() const { return gpbs_.holds(document_); }

 private:
  const document &document_;
  knowledge k_;
  gpb_list gpbs_;
  bool is_ready_ = false;
};

class path_parse {
 public:
  explicit path_parse(std::size_t entries) {
    for (const published_file &file : first_document(entries).files) {
      paths_.push_back(file.path());
      expected_ += summary(file.category, file.key.c_str(), file.version);
    }
  }

  bool run() {
    constexpr std::size_t name_size = 255;
    char category_name[name_size];
    char key[name_size];
    found_ = 0;
    for (const std::string &path : paths_) {
      std::int32_t category = 0;
      std::uint64_t version = 0;
      if (get_gpb_meta_by_path(path.c_str(), &category, key, sizeof key, &version, category_name,
                               sizeof category_name) != 0) {
        return false;
      }
      found_ += summary(category, key, version);
    }
    return true;
  }
  [[nodiscard]] bool is_right() const { return found_ == expected_; }

 private:
  // Only the last letter of the key, so that the check of the result costs nothing.
  static std::uint64_t summary(std::int32_t category, const char *key, std::uint64_t version) {
    return static_cast<std::uint64_t>(category) +
           static_cast<std::uint64_t>(key[ZOT_UUID_LEN - 1]) * ZOT_CAT_COUNT + version;
  }

  std::vector<std::string> paths_;
  std::uint64_t expected_ = 0;
  std::uint64_t found_ = 0;
};

BENCHMARK(measure_entries<cjson_parse>)->Name("cjson_parse")->Apply(at_every_scale);
BENCHMARK(measure_entries<k_validate>)->Name("k_validate")->Apply(at_every_scale);
BENCHMARK(measure_entries<k_parse>)->Name("k_parse")->Apply(at_every_scale);
BENCHMARK(measure_entries<k_parse_ordered>)->Name("k_parse_ordered")->Apply(at_every_scale);
BENCHMARK(measure_entries<list_build>)->Name("list_build")->Apply(at_every_scale);
BENCHMARK(measure_entries<path_parse>)->Name("path_parse")->Apply(at_every_scale);

}  // namespace

}  // namespace zot::bench
