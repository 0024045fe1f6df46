// SPDX-License-Identifier: Apache-2.0
/**
 * @file zot_conf.hpp
 * @brief C++20 layer over zot_conf.h, header only: owners, values and ranges for a client.
 *
 * A process creates a zotconf::handle, gets zotconf::entries from it, applies them, and then calls
 * handle::commit() or handle::roll_back().
 *
 * Conventions, in addition to those of zot_conf.h:
 *
 *  1. Ownership. The destructors release a handle and a list of entries. Both can be moved but not
 *     copied. The text and bytes of an entry are views: see #zotconf::entry.
 *  2. Errors. The layer throws no exceptions of its own and compiles without exceptions and RTTI.
 *     Copies of text may throw std::bad_alloc, like every std::string. A #zotconf::status is a
 * value and does not change, whatever the handle does next.
 *  3. Threads. As in zot_conf.h: one thread at a time uses a handle, and calls block.
 *  4. A moved-from handle may be destroyed and assigned to; any other call on it returns
 *     #ZOT_ERR_NULL_INPUT or an empty value.
 *  5. Language. C++20. With an older standard, the compiler reports one error that says so. Define
 *     `ZOT_CONF_CLIENT` before the include if your program defines functions with the plain names
 *     of the library.
 */
#ifndef ZOT_CONF_HPP
#define ZOT_CONF_HPP

#if __cplusplus <= 201703L
#error "zot_conf.hpp needs C++20: compile with -std=c++20, or include zot_conf.h"
#else

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "zot_conf.h"

/** The C++ layer of libzotconf. */
namespace zotconf {
/** Version of the layer's types, so that a program may contain several versions side by side. */
inline namespace v1 {

/* ---------------------------------------------------------------------------------- values */

/** Result of a call: a #zot_status with its own copy of the text. Equal when the codes are equal.
 */
class status {
 public:
  /** Success. */
  status() : status(ZOT_OK) {}

  /** A code with its default text, or with its name when it has no text. */
  explicit status(int code) : status(code, default_text(code)) {}

  /** A code with the given text, without its trailing newlines. */
  status(int code, std::string_view text)
      : code_(code), text_(text.substr(0, text.find_last_not_of('\n') + 1)) {}

  /** The number, a #zot_status. */
  [[nodiscard]] int code() const noexcept { return code_; }

  /** The name, "ZOT_ERR_TIMEOUT"; "unknown" for a number that is not a #zot_status. Static. */
  [[nodiscard]] std::string_view name() const noexcept { return find(code_).name; }

  /** The text from the library. */
  [[nodiscard]] const std::string &text() const noexcept { return text_; }

  /** Whether the code is negative. Results such as #ZOT_NO_UPDATE are not errors. */
  [[nodiscard]] bool is_error() const noexcept { return code_ < 0; }

  /** Compares the codes. */
  friend bool operator==(const status &left, const status &right) noexcept {
    return left.code_ == right.code_;
  }
  /** Compares with a code: `outcome == ZOT_NO_UPDATE`. */
  friend bool operator==(const status &left, int code) noexcept { return left.code_ == code; }

 private:
  struct known {
    int code;
    std::string_view name;
    const char *text;
  };

  static known find(int code) noexcept {
    constexpr std::array table = {
#define ZOT_CONF_KNOWN_STATUS_(name, number, text) known{(number), #name, (text)},
        ZOT_STATUS_MAP(ZOT_CONF_KNOWN_STATUS_)
#undef ZOT_CONF_KNOWN_STATUS_
    };
    const auto *const found = std::ranges::find(table, code, &known::code);
    return found != table.end() ? *found : known{code, "unknown", nullptr};
  }

  static std::string_view default_text(int code) noexcept {
    const known found = find(code);
    return found.text != nullptr ? found.text : found.name;
  }

  int code_;
  std::string text_;
};

/** Change of an entry, and request of handle::get(); combine values with `|`. */
enum class change : std::uint32_t {
  none = 0,                       /**< nothing; refused by handle::get() */
  unchanged = ZOT_STAT_UNCHANGED, /**< in both configurations, same version */
  deleted = ZOT_STAT_DELETED,     /**< only in the configuration in force */
  added = ZOT_STAT_ADDED,         /**< only in the new configuration */
  modified = ZOT_STAT_MODIFIED,   /**< in both, different version or different cluster */
  full = ZOT_STAT_FULL,           /**< request: every entry that is not deleted */
  cached = ZOT_STAT_CACHED,       /**< request: the cached entries, without asking the service */
  differences = added | modified | deleted, /**< request: the changes that an element must apply */
  any = differences | unchanged             /**< request: every entry, with its change */
};

/** Combines two requests. */
constexpr change operator|(change left, change right) noexcept {
  return static_cast<change>(static_cast<std::uint32_t>(left) | static_cast<std::uint32_t>(right));
}

/** Name of one change: "added". Static; "unknown" for anything except the six single values. */
[[nodiscard]] constexpr std::string_view name_of(change which) noexcept {
  switch (which) {
    case change::unchanged:
      return "unchanged";
    case change::deleted:
      return "deleted";
    case change::added:
      return "added";
    case change::modified:
      return "modified";
    case change::full:
      return "full";
    case change::cached:
      return "cached";
    default:
      return "unknown";
  }
}

/** Name of a category: "Wlan". Static; empty for a value that is not a category. */
[[nodiscard]] inline std::string_view name_of(zot_category which) noexcept {
  const char *const name = zot_util_cat2str(static_cast<std::int32_t>(which));
  return name != nullptr ? name : std::string_view();
}

/** The category with this name, case-sensitive; std::nullopt if there is none. */
[[nodiscard]] inline std::optional<zot_category> category_named(std::string_view name) noexcept {
  for (int number = 0; number < ZOT_CAT_COUNT; ++number) {
    if (name_of(static_cast<zot_category>(number)) == name) {
      return static_cast<zot_category>(number);
    }
  }
  return std::nullopt;
}

/** A set of categories. */
class category_set {
 public:
  /** An empty set. */
  category_set() noexcept = default;

  /** A set of some categories: `{ZOT_CAT_WLAN, ZOT_CAT_ZONE}`. Skips values that are not
   * categories. */
  category_set(std::initializer_list<zot_category> some) noexcept {
    for (const zot_category one : some) {
      add(one);
    }
  }

  /** A copy of the C form. */
  explicit category_set(const zot_catset &set) noexcept : set_(set) {}

  /** The set of all categories. */
  [[nodiscard]] static category_set all() noexcept {
    category_set result;
    static_cast<void>(zot_catset_set_all(&result.set_));
    return result;
  }

  /** Adds a category. @return false for a value that is not a category. */
  bool add(zot_category one) noexcept { return zot_catset_add(&set_, one) == ZOT_OK; }

  /** Whether the set contains a category. */
  [[nodiscard]] bool has(zot_category one) const noexcept { return zot_catset_has(&set_, one); }

  /** The C form. */
  [[nodiscard]] const zot_catset &c_set() const noexcept { return set_; }

 private:
  zot_catset set_{};
};

/** Metadata of a configuration. */
struct metadata {
  std::string firmware_version; /**< firmware version that it is for; may be empty */
  std::string config_id;        /**< its ID; may be empty */
  std::string cluster_id;       /**< the cluster that published it */
};

/** Which configuration handle::metadata_of() reads. */
enum class generation : int {
  fetched = ZOT_K_NEW,     /**< the one that the last get fetched */
  current = ZOT_K_CURRENT, /**< the one in force */
  last = ZOT_K_LAST        /**< the previous one */
};

/* ------------------------------------------------------------------------------------- log */

/** One message of the library. The texts are valid during the call that delivers the message. */
struct log_line {
  std::uint32_t level;       /**< #ZOT_LOG_ERROR to #ZOT_LOG_DEBUG */
  std::uint32_t topics;      /**< ZOT_TOPIC_… bits */
  std::string_view function; /**< name of the logging function, static */
  long line;                 /**< its source line */
  std::string_view text;     /**< the message with its prefix and trailing newline */
};

/**
 * Receives log messages. It runs on the thread of the logging call, must not use the handle and
 * must not throw: an exception that leaves it terminates the process.
 */
using log_function = std::function<void(const log_line &)>;

/** Log settings of a handle. */
struct log_settings {
  std::uint32_t level = ZOT_LOG_WARN;       /**< highest level delivered */
  std::uint32_t topics = ZOT_TOPIC_DEFAULT; /**< topics delivered */
  std::uint32_t prefix = ZOT_LOG_OPT_FUNC;  /**< ZOT_LOG_OPT_… bits of the prefix */
  log_function function = {};               /**< receives the messages; empty: standard error */
};

/** Options of handle::create(). */
struct options {
  std::string subsystem = "AP";   /**< "AP", "CP" or "DP" */
  std::string index = {};         /**< the element's own index, at most 52 bytes */
  std::uint32_t timeout = 5;      /**< seconds for K and checksum; 0: no limit */
  std::uint32_t timeout_gpb = 30; /**< seconds for GPB files, for adapters; 0: no limit */
  log_settings log = {};          /**< log settings */
};

/** Internals: nothing here is for a client. */
namespace detail {

// The callback argument of a handle. Its address stays the same when the handle is moved.
class log_sink {
 public:
  explicit log_sink(log_function function) : function_(std::move(function)) {}

  // The callback of the C interface.
  static int deliver(zot_log_ctx *log_ctx, void *sink, const char *text) noexcept {
    static_cast<log_sink *>(sink)->take(zot_util_log_cb_func_get_conf_stat(log_ctx), text);
    return 0;
  }

  [[nodiscard]] std::string_view last_error() const { return last_error_.data(); }

 private:
  void take(const zot_log_site &site, const char *text) {
    if (site.level == ZOT_LOG_ERROR) {
      std::snprintf(last_error_.data(), last_error_.size(), "%s", text);
    }
    if (!function_) {
      std::fputs(text, stderr);
      return;
    }
    const char *const function = site.func != nullptr ? site.func : "";
    function_({site.level, site.mask, function, site.line, text});
  }

  log_function function_;
  std::array<char, ZOT_ERR_STR_SIZE> last_error_{};
};

// Owns the sink: a handle logs until it is freed, also when another handle is assigned to it.
struct handle_freer {
  void operator()(zot_ctx *handle) const noexcept { static_cast<void>(zot_conf_free(handle)); }

  std::unique_ptr<log_sink> sink;
};
using handle_owner = std::unique_ptr<zot_ctx, handle_freer>;

// Passes no handle, so that a list that outlives its handle is released too.
struct list_freer {
  void operator()(zot_list *list) const noexcept {
    static_cast<void>(zot_conf_free_ret_data(nullptr, &list));
  }
};
using list_owner = std::unique_ptr<zot_list, list_freer>;

}  // namespace detail

/* --------------------------------------------------------------------------------- entries */

/**
 * One entry of a configuration: a view that is cheap to copy. It is valid as long as the range it
 * belongs to. Its bytes belong to the handle and are valid until the next get, commit or rollback,
 * or until the handle is destroyed.
 */
class entry {
 public:
  /** A view of the C form, which is not NULL. */
  explicit entry(const zot_ret_data *data) noexcept : data_(data) {}

  /** Name of the object within its category. */
  [[nodiscard]] std::string_view key() const noexcept { return data_->key; }

  /** Its category. */
  [[nodiscard]] zot_category category() const noexcept {
    return static_cast<zot_category>(data_->category);
  }

  /** The name of its category, static. */
  [[nodiscard]] std::string_view category_name() const noexcept { return name_of(category()); }

  /** Its change: one value; change::full when the get requested that. */
  [[nodiscard]] v1::change change() const noexcept { return static_cast<v1::change>(data_->stat); }

  /** Its bytes, not NUL-terminated; empty for a deleted entry. */
  [[nodiscard]] std::span<const std::byte> bytes() const noexcept {
    return {static_cast<const std::byte *>(data_->data), size()};
  }

  /** Its bytes as text, not NUL-terminated; any byte value may occur. */
  [[nodiscard]] std::string_view text() const noexcept {
    return {static_cast<const char *>(data_->data), size()};
  }

  /** The C form. */
  [[nodiscard]] const zot_ret_data *c_entry() const noexcept { return data_; }

 private:
  [[nodiscard]] std::size_t size() const noexcept {
    return data_->data != nullptr ? data_->size : 0;
  }

  const zot_ret_data *data_;
};

/**
 * The result of one get: its status, and a forward range of zotconf::entry, ordered by category and
 * key. Released at the end of its scope, which should end before that of the handle.
 */
class entries {
 public:
  /** Position in the range. */
  class iterator {
   public:
    using iterator_concept = std::forward_iterator_tag; /**< multi-pass */
    using iterator_category = std::input_iterator_tag;  /**< dereferencing creates a view */
    using value_type = entry;                           /**< the view */
    using difference_type = std::ptrdiff_t;             /**< required by the concept */
    using reference = entry;                            /**< the view */
    using pointer = void;                               /**< there is none */

    /** No position. */
    iterator() noexcept = default;
    /** The position of a node of the C form. */
    explicit iterator(const zot_list *node) noexcept : node_(node) {}

    /** The entry at this position. */
    [[nodiscard]] entry operator*() const noexcept {
      return entry(reinterpret_cast<const zot_ret_data *>(node_));
    }
    /** Moves to the next entry. */
    iterator &operator++() noexcept {
      node_ = node_->next;
      return *this;
    }
    /** Moves to the next entry. @return the old position. */
    iterator operator++(int) noexcept {  // NOLINT(cert-dcl21-cpp): a forward iterator needs it so
      const iterator before = *this;
      ++*this;
      return before;
    }
    /** Whether both are at the same position. */
    friend bool operator==(const iterator &left, const iterator &right) noexcept = default;

   private:
    const zot_list *node_ = nullptr;
  };

  /** Takes ownership of a list of the C form, which may be NULL, and stores its status. */
  entries(zot_list *list, status result) noexcept : list_(list), result_(std::move(result)) {}

  /**
   * The status of the get. An error may come with entries: #ZOT_ERR_SAME_AS_CORRUPTED returns those
   * in force.
   */
  [[nodiscard]] const status &result() const noexcept { return result_; }

  /** The first entry. */
  [[nodiscard]] iterator begin() const noexcept {
    return iterator(list_ != nullptr ? list_->next : nullptr);
  }
  /** The position after the last entry. */
  [[nodiscard]] iterator end() const noexcept { return iterator(list_.get()); }

  /** Whether there is no entry. */
  [[nodiscard]] bool empty() const noexcept { return begin() == end(); }

 private:
  detail::list_owner list_;
  status result_;
};

/* ------------------------------------------------------------------------------- transfers */

/**
 * Called at least about once a second with the number of body bytes received so far; a result of
 * false ends the transfer. It runs on the thread of the transferring call, must return soon, must
 * not use the handle and must not throw: an exception that leaves it terminates the process.
 */
using transfer_function = std::function<bool(std::uint64_t received)>;

/**
 * Watches the transfers of the thread that creates it, until the end of its scope; see
 * zot_util_watch_transfers(). A thread has one watch at a time; its destructor leaves the thread
 * unwatched.
 */
class transfer_watch {
 public:
  /** Starts watching; an empty function watches nothing. */
  explicit transfer_watch(transfer_function function) : function_(std::move(function)) {
    zot_util_watch_transfers(function_ ? deliver : nullptr, this);
  }
  transfer_watch(const transfer_watch &) = delete;
  transfer_watch &operator=(const transfer_watch &) = delete;
  /** Stops watching; must run on the thread that created the watch. */
  ~transfer_watch() { zot_util_watch_transfers(nullptr, nullptr); }

 private:
  static int deliver(void *watch, std::uint64_t received) noexcept {
    return static_cast<transfer_watch *>(watch)->function_(received) ? 0 : 1;
  }

  transfer_function function_;
};

/* ---------------------------------------------------------------------------------- handle */

/** The library's handle: one managed element and its cache. */
class handle {
 public:
  /**
   * Creates a handle; see zot_conf_init_args() for the environment variables and the accepted
   * texts. Creates the directories and loads nothing.
   *
   * @param from identity, timeouts and log
   * @param[out] reason on failure receives the last error that was logged, truncated to 511 bytes,
   *             or "no handle" when the log settings suppress it; may be NULL
   * @return the handle; std::nullopt on failure.
   */
  [[nodiscard]] static std::optional<handle> create(options from, std::string *reason = nullptr) {
    auto sink = std::make_unique<detail::log_sink>(std::move(from.log.function));
    zot_parm_all parm{};
    zot_util_init_conf_parm(&parm);
    parm.timeout = from.timeout;
    parm.timeout_gpb = from.timeout_gpb;
    parm.log_ctl.level = from.log.level;
    parm.log_ctl.facility = from.log.topics;
    parm.log_ctl.option = from.log.prefix;
    parm.log_ctl.dst = ZOT_LOG_DST_CB_FUNC;
    static_cast<void>(
        zot_util_set_log_ctl_dst_cb_func(&parm.log_ctl, detail::log_sink::deliver, sink.get()));
    zot_ctx *const made =
        zot_conf_init_args(from.subsystem.c_str(), from.index.c_str(), from.index.size(), parm);
    if (made != nullptr) {
      return handle(detail::handle_owner(made, {std::move(sink)}));
    }
    if (reason != nullptr) {
      const std::string_view text = sink->last_error();
      *reason = text.empty() ? "no handle" : text.substr(0, text.find_last_not_of('\n') + 1);
    }
    return std::nullopt;
  }

  /**
   * Looks for a new configuration; see zot_conf_get(). Blocks while it downloads. Transfers of
   * several handles must not overlap. The first get of a new element logs one line at error level
   * that does not mean a failure.
   *
   * @param categories categories to return
   * @param changes    changes to return, one or several of #zotconf::change
   * @return the entries with the status of the call; most errors return no entries.
   */
  [[nodiscard]] entries get(const category_set &categories, change changes) {
    zot_list *list = nullptr;
    const int code = zot_conf_get(context_.get(), categories.c_set(),
                                  static_cast<std::uint32_t>(changes), &list);
    detail::list_owner owner(list);
    status result = status_of(code);
    return {owner.release(), std::move(result)};
  }

  /** Accepts the configuration that the last get fetched; statuses as zot_conf_commit(). */
  status commit() { return status_of(zot_conf_commit(context_.get())); }

  /** Rejects the configuration that the last get fetched; statuses as zot_conf_roll_back(). */
  status roll_back() { return status_of(zot_conf_roll_back(context_.get())); }

  /** Whether a new configuration waits for a commit or rollback. */
  [[nodiscard]] bool is_new() const noexcept { return zot_util_is_new_conf(context_.get()); }

  /**
   * Reads the metadata of a configuration.
   * @return the metadata; std::nullopt when there is no such configuration, see last_status().
   */
  [[nodiscard]] std::optional<metadata> metadata_of(generation which) {
    zot_k_meta meta{};
    if (zot_util_get_k_meta(context_.get(), &meta, static_cast<int>(which)) != ZOT_OK) {
      return std::nullopt;
    }
    return metadata{meta.firmware_version, meta.config_id, meta.cluster_id};
  }

  /** The status of the last call on this handle. */
  [[nodiscard]] status last_status() const {
    return status_of(context_ != nullptr ? zot_util_get_err(context_.get())
                                         : static_cast<int>(ZOT_ERR_NULL_INPUT));
  }

  /** The element's index as passed at creation, a view into the handle. */
  [[nodiscard]] std::string_view index() const noexcept {
    return context_ != nullptr ? zot_util_get_sub_idx(context_.get()) : "";
  }

  /** Statistics of the current cycle so far; see zot_util_get_conf_stat(). */
  [[nodiscard]] zot_core_stat statistics() const noexcept {
    zot_core_stat result{};
    static_cast<void>(zot_util_get_conf_stat(context_.get(), &result));
    return result;
  }

  /** Seconds for K and checksum; 0: no limit, or a moved-from handle. */
  [[nodiscard]] std::uint32_t timeout() const { return parameter(ZOT_PARM_TIMEOUT); }
  /** Sets the seconds for K and checksum. @return as zot_parm_set(). */
  status set_timeout(std::uint32_t seconds) { return set(ZOT_PARM_TIMEOUT, seconds); }

  /** Seconds for GPB files; 0: no limit, or a moved-from handle. */
  [[nodiscard]] std::uint32_t timeout_gpb() const { return parameter(ZOT_PARM_TIMEOUT_GPB); }
  /** Sets the seconds for GPB files. @return as zot_parm_set(). */
  status set_timeout_gpb(std::uint32_t seconds) { return set(ZOT_PARM_TIMEOUT_GPB, seconds); }

  /** Highest level that is logged; 0 for a moved-from handle. */
  [[nodiscard]] std::uint32_t log_level() const { return parameter(ZOT_PARM_LOG_LEVEL); }
  /** Sets the highest level that is logged. @return as zot_parm_set(). */
  status set_log_level(std::uint32_t level) { return set(ZOT_PARM_LOG_LEVEL, level); }

  /**
   * The C handle, still owned by this object, for calls that this layer does not wrap. NULL for a
   * moved-from handle. Do not change its log callback.
   */
  [[nodiscard]] zot_ctx *c_handle() const noexcept { return context_.get(); }

 private:
  explicit handle(detail::handle_owner context) noexcept : context_(std::move(context)) {}

  // The handle's text belongs to this call if the handle has the same code.
  [[nodiscard]] status status_of(int code) const {
    if (context_ == nullptr || code == ZOT_OK || zot_util_get_err(context_.get()) != code) {
      return status(code);
    }
    return {code, zot_util_get_err_str(context_.get())};
  }

  [[nodiscard]] std::uint32_t parameter(zot_parm_id id) const {
    std::uint32_t value = 0;
    static_cast<void>(zot_parm_get(context_.get(), id, &value, sizeof value));
    return value;
  }

  status set(zot_parm_id id, std::uint32_t value) {
    return status_of(zot_parm_set(context_.get(), id, &value, sizeof value));
  }

  detail::handle_owner context_;
};

}  // namespace v1
}  // namespace zotconf

#endif  // C++20
#endif  // ZOT_CONF_HPP
