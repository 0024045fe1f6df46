// SPDX-License-Identifier: Apache-2.0
// The GPB list of a K. Its elements are sorted before any record is made: records made in the order
// of the list lie in that order, and whoever walks it walks through memory instead of across it.
#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "utilities/gpb_path.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/model/owners.hpp"

namespace {

constexpr const char *operation = "zot_priv_get_gpb_list_via_k_json";

// What one element of "gpbs" states. The texts are those of the parsed K.
struct stated_gpb {
  std::string_view path;
  std::string_view checksum;
  std::string_view key;
  uint64_t version;
  int32_t category;
  uint32_t size;
};

// Letter case is no matter to the names of members. `name` is in lower case.
bool is_called(const cJSON &member, std::string_view name) {
  constexpr unsigned char lower_case = 0x20;
  const char *found = member.string;
  if (found == nullptr) {
    return false;
  }
  for (const char letter : name) {
    if (static_cast<char>(static_cast<unsigned char>(*found) | lower_case) != letter) {
      return false;
    }
    ++found;
  }
  return *found == '\0';
}

// The members of an element that count; of those with one name the first.
struct element {
  explicit element(const cJSON &item) {
    for (const cJSON *member = item.child; member != nullptr; member = member->next) {
      keep(path, *member, "path");
      keep(size, *member, "size");
      keep(checksum, *member, "checksum");
    }
  }

  static void keep(const cJSON *&kept, const cJSON &member, std::string_view name) {
    if (kept == nullptr && is_called(member, name)) {
      kept = &member;
    }
  }

  const cJSON *path = nullptr;
  const cJSON *size = nullptr;
  const cJSON *checksum = nullptr;
};

// The text of a member; nothing when it is none, or longer than it may be.
std::optional<std::string_view> text_of(const cJSON *member, size_t longest) {
  if (member == nullptr || cJSON_IsString(member) == 0 || member->valuestring == nullptr) {
    return std::nullopt;
  }
  const std::string_view text(member->valuestring);
  return text.size() <= longest ? std::optional(text) : std::nullopt;
}

void warn_of_unknown(zot_ctx *handle, const char *path) {
  char name[255] = "";
  char key[ZOT_KEY_LEN + 1];
  int32_t category = 0;
  uint64_t version = 0;
  get_gpb_meta_by_path(path, &category, key, sizeof key, &version, name, sizeof name);
  ZOT_LOG_AT(handle, operation, __LINE__, ZOT_LOG_WARN, ZOT_TOPIC_K,
             "%s[Warning] Unknown category = %s or wrong path format = %s.\n", name, path);
}

// Takes category, key and version from the path; false when it names no category.
bool take_path(stated_gpb &gpb, std::string_view path) {
  const std::optional<zot::gpb_path> parts = zot::split_gpb_path(path.data());
  const std::optional<int32_t> category = parts ? zot::category_of(parts->category) : std::nullopt;
  if (!category) {
    return false;
  }
  gpb.path = path;
  gpb.key = parts->key;
  gpb.version = parts->version;
  gpb.category = *category;
  return true;
}

int record_no_memory(zot_ctx *handle) {
  return zot::record(handle, ZOT_ERR_NOMEM, operation, __LINE__, "[%s] out of memory.", operation);
}

// What zot_priv_gpb_new makes of the same, without measuring each text again.
zot_gpb *make_gpb(const stated_gpb &stated) {
  auto gpb = zot::make_zeroed<zot_gpb>();
  zot::c_text path(static_cast<char *>(std::malloc(stated.path.size() + 1)));
  if (gpb == nullptr || path == nullptr) {
    return nullptr;
  }
  std::memcpy(path.get(), stated.path.data(), stated.path.size() + 1);
  gpb->path = path.release();
  std::memcpy(gpb->checksum, stated.checksum.data(), stated.checksum.size());
  std::memcpy(gpb->key, stated.key.data(), stated.key.size());
  gpb->key_len = static_cast<uint32_t>(stated.key.size());
  gpb->size = stated.size;
  gpb->category = stated.category;
  gpb->version = stated.version;
  return gpb.release();
}

// As zot_priv_cmp_gpb compares the records.
int compare(const stated_gpb &a, const stated_gpb &b) {
  if (const int result = cmp_int(a.category, b.category); result != 0) {
    return result;
  }
  const int result = a.key.compare(b.key);
  return result != 0 ? result : cmp_uint64(a.version, b.version);
}

// How the keys of each category begin, which is mostly alike.
class key_starts {
 public:
  void add(const stated_gpb &gpb) {
    std::string_view &start = starts_[static_cast<size_t>(gpb.category)];
    if (start.data() == nullptr) {
      start = gpb.key;
      return;
    }
    size_t length = 0;
    while (length < start.size() && length < gpb.key.size() && start[length] == gpb.key[length]) {
      ++length;
    }
    start = {start.data(), length};
  }

  // The category, and those characters of the key that tell it from most others of the category.
  [[nodiscard]] uint64_t word_of(const stated_gpb &gpb) const {
    auto word = static_cast<uint64_t>(gpb.category);
    const size_t begin = starts_[static_cast<size_t>(gpb.category)].size();
    for (size_t i = begin; i < begin + sizeof word - 1; ++i) {
      word = word << 8 | (i < gpb.key.size() ? static_cast<unsigned char>(gpb.key[i]) : 0U);
    }
    return word;
  }

 private:
  std::array<std::string_view, ZOT_CAT_COUNT> starts_{};
};

// What a K states, in the order of the document, and the order of the list.
class stated_gpbs {
 public:
  // Elements of categories that nobody here knows are left out.
  int read(zot_ctx *handle, const cJSON &elements) {
    for (const cJSON *item = elements.child; item != nullptr; item = item->next) {
      if (const int status = read_element(handle, element(*item)); status != ZOT_OK) {
        return status;
      }
    }
    return ZOT_OK;
  }

  // Most comparisons look no further than the words. False without memory.
  bool sort() {
    ranks_.reset(static_cast<rank *>(std::malloc((size_t{count_} + 1) * sizeof(rank))));
    if (ranks_ == nullptr) {
      return false;
    }
    for (uint32_t index = 0; index < count_; ++index) {
      ranks_.get()[index] = {starts_.word_of(gpbs_.get()[index]), index};
    }
    const auto is_before = [this](const rank &left, const rank &right) {
      if (left.word != right.word) {
        return left.word < right.word;
      }
      const int order = compare(gpbs_.get()[left.index], gpbs_.get()[right.index]);
      return order != 0 ? order < 0 : left.index < right.index;
    };
    // Publishers mostly name the files in this very order.
    if (!std::is_sorted(ranks_.get(), ranks_.get() + count_, is_before)) {
      std::sort(ranks_.get(), ranks_.get() + count_, is_before);
    }
    return true;
  }

  // Whether two entries are of one object; known once they are sorted.
  [[nodiscard]] bool has_repeated_key() const {
    const rank *const first = ranks_.get();
    return std::adjacent_find(first, first + count_, [this](const rank &a, const rank &b) {
             return a.word == b.word && gpbs_.get()[a.index].key == gpbs_.get()[b.index].key;
           }) != first + count_;
  }

  [[nodiscard]] uint32_t count() const { return count_; }
  [[nodiscard]] const stated_gpb &read_at(uint32_t index) const { return gpbs_.get()[index]; }
  [[nodiscard]] const stated_gpb &sorted_at(uint32_t place) const {
    return gpbs_.get()[ranks_.get()[place].index];
  }

 private:
  struct rank {
    uint64_t word;
    uint32_t index;
  };

  // Room for one more.
  bool grow() {
    if (count_ < room_) {
      return true;
    }
    constexpr uint32_t least = 64;
    const uint32_t room = std::max(least, 2 * room_);
    void *const grown = std::realloc(gpbs_.get(), size_t{room} * sizeof(stated_gpb));
    if (grown == nullptr) {
      return false;
    }
    static_cast<void>(gpbs_.release());
    gpbs_.reset(static_cast<stated_gpb *>(grown));
    room_ = room;
    return true;
  }

  int read_element(zot_ctx *handle, const element &read) {
    const std::optional<std::string_view> path = text_of(read.path, ZOT_PATH_SIZE - 1);
    if (!path) {
      return zot::record(handle, ZOT_ERR_CORRUPTED, operation, __LINE__, "[%s]: unable to get %s",
                         operation, "path");
    }
    if (!grow()) {
      return record_no_memory(handle);
    }
    stated_gpb &gpb = gpbs_.get()[count_];
    if (!take_path(gpb, *path)) {
      warn_of_unknown(handle, path->data());
      return ZOT_OK;
    }
    if (read.size == nullptr || cJSON_IsNumber(read.size) == 0) {
      return zot::record(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                         "[%s]: unable to get %s of GPB", operation, "size");
    }
    const std::optional<std::string_view> checksum = text_of(read.checksum, ZOT_CHECKSUM_LEN);
    if (!checksum) {
      return zot::record(handle, ZOT_ERR_CORRUPTED, operation, __LINE__,
                         "[%s]: unable to get %s of GPB", operation, "checksum");
    }
    gpb.checksum = *checksum;
    // libcjson has truncated the number to what a word holds.
    gpb.size = static_cast<uint32_t>(read.size->valueint);
    starts_.add(gpb);
    ++count_;
    return ZOT_OK;
  }

  zot::c_ptr<stated_gpb> gpbs_;
  zot::c_ptr<rank> ranks_;
  uint32_t room_ = 0;
  uint32_t count_ = 0;
  key_starts starts_;
};

// Appends the record of an entry; false without memory.
bool append(zot_list *gpbs, const stated_gpb &stated) {
  zot_gpb *const gpb = make_gpb(stated);
  if (gpb == nullptr) {
    return false;
  }
  list_add_tail(gpbs, &gpb->node);
  return true;
}

// Entries that sort side by side may stand far apart in the document. What is needed of them is
// asked for before their turn, so that nobody waits for it.
void fetch_ahead(const stated_gpbs &stated, uint32_t place) {
  constexpr uint32_t ahead = 8;
  constexpr size_t line = 64;
  if (place + 2 * ahead >= stated.count()) {
    return;
  }
  __builtin_prefetch(&stated.sorted_at(place + 2 * ahead));
  const stated_gpb &soon = stated.sorted_at(place + ahead);
  for (const char *const text : {soon.path.data(), soon.checksum.data()}) {
    __builtin_prefetch(text);
    __builtin_prefetch(text + line);
  }
}

int append_sorted(zot_ctx *handle, zot_list *gpbs, const stated_gpbs &stated) {
  for (uint32_t place = 0; place < stated.count(); ++place) {
    fetch_ahead(stated, place);
    if (!append(gpbs, stated.sorted_at(place))) {
      return record_no_memory(handle);
    }
  }
  return stated.has_repeated_key() ? zot_priv_chk_dup_gpb(handle, gpbs) : ZOT_OK;
}

// The log tells of each entry of a K that is given up at a later one.
void release_read(zot_ctx *handle, zot_list *gpbs, const stated_gpbs &stated) {
  for (uint32_t index = 0; index < stated.count(); ++index) {
    if (!append(gpbs, stated.read_at(index))) {
      break;
    }
  }
  zot_priv_free_gpb_list(handle, gpbs);
}

}  // namespace

int zot_priv_get_gpb_list_via_k_json(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  if (handle == nullptr) {
    return ZOT_ERR_NULL_INPUT;
  }
  if (k == nullptr || gpbs == nullptr) {
    return ZOT_RECORD(handle, ZOT_ERR_NULL_INPUT, "[%s]: null input", __func__);
  }
  if (k->json == nullptr || !cJSON_IsArray(k->gpbs)) {
    return ZOT_RECORD(handle, ZOT_ERR_WRONG_INPUT, "[%s]: empty JSON content", __func__);
  }
  stated_gpbs stated;
  if (const int status = stated.read(handle, *k->gpbs); status != ZOT_OK) {
    release_read(handle, gpbs, stated);
    return status;
  }
  if (!stated.sort()) {
    const int status = record_no_memory(handle);
    release_read(handle, gpbs, stated);
    return status;
  }
  if (const int status = append_sorted(handle, gpbs, stated); status != ZOT_OK) {
    zot_priv_free_gpb_list(handle, gpbs);
    return status;
  }
  ZOT_LOG(handle, ZOT_LOG_DEBUG, ZOT_TOPIC_GPB, "%sGet GPB list from K: Done\n");
  return zot_priv_err_set_errno(handle, ZOT_OK);
}
