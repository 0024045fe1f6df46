/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file zot_conf_ext.h
 * @brief The part of the interface for adapters, tools and tests, in addition to zot_conf.h.
 *
 * zot_conf.h includes this header unless `ZOT_CONF_CLIENT` is defined. It declares the fields of
 * the handle and of its records, the zot_priv_… operations, the operations of the access-point
 * adapter, and the helpers that need no handle. The conventions of zot_conf.h apply here too. K is
 * the knowledge file (the manifest); GPB files are the configuration files that K lists.
 *
 * Some calls have plain names, such as read_file(). A program that defines a function with such a
 * name cannot include this header. It still links with the library, shared or static: the plain
 * names are weak symbols, and the library calls its own functions by other names.
 */
#ifndef ZOT_CONF_EXT_H
#define ZOT_CONF_EXT_H

#include <assert.h>

#include "zot_conf.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

struct cJSON;
struct stat;

/* ------------------------------------------------------------------------------- constants */

/** Cache slots of a handle. */
enum {
  ZOT_SLOT_CURRENT = 0,   /**< the configuration in force */
  ZOT_SLOT_LAST = 1,      /**< the previous one; after a get without update, the one in force */
  ZOT_SLOT_TMP = 2,       /**< fetched, neither committed nor rolled back */
  ZOT_SLOT_CORRUPTED = 3, /**< rolled back */
  ZOT_SLOT_COUNT = 4      /**< number of slots */
};

/** Load flags (zot_ctx::load_flags): which start-up loader has run. */
enum {
  ZOT_LOADED_CONF = 0x02,     /**< current K */
  ZOT_LOADED_PREV_K = 0x04,   /**< last K */
  ZOT_LOADED_TMP_K = 0x08,    /**< temporary K */
  ZOT_LOADED_FAIL_K = 0x10,   /**< corrupted K */
  ZOT_LOADED_CONF_GPB = 0x20, /**< current GPB files */
  ZOT_LOADED_RET_LIST = 0x80  /**< returned list */
};

/** Flag of the K readers: the checksum file may be absent, which is only logged. */
enum {
  ZOT_READ_K_OPTIONAL = 2 /**< the file may be absent */
};

/** Limits besides those of zot_conf.h. A …_LEN excludes the terminator, a …_SIZE includes it. */
enum {
  ZOT_CHECKSUM_LEN = 64,    /**< SHA-256 in hexadecimal */
  ZOT_LOG_PREFIX_SIZE = 512 /**< prefix buffer of a log line */
};

/* ----------------------------------------------------------------------------------- types */

/** Compares two nodes: returns a value above zero when @p a sorts after @p b. The sort may pass the
 *  same node as both. @p priv is the argument of zot_list_sort(). */
typedef int (*zot_list_cmp)(void *priv, zot_list *a, zot_list *b);

/** State of one log: the settings in force, the message in progress, the open file. */
struct zot_log_ctx {
  zot_log_ctl *ctl;  /**< settings in force, borrowed */
  zot_log_site site; /**< the message in progress */
  FILE *path_fp;     /**< stream of #ZOT_LOG_DST_PATH, open after the first message */
};

/** Parameter record of a handle. */
typedef struct zot_parm {
  zot_ctx *handle;         /**< the handle that owns the record */
  zot_parm_all all;        /**< parameters that creation takes */
  uint32_t ret_proto_type; /**< #ZOT_PARM_RETURN_PROTO_TYPE */
} zot_parm;

/**
 * One knowledge file (K) in memory. The record owns all members except gpbs. It shares json with
 * other records of the same text: do not change it. zot_priv_free_k() releases it.
 */
typedef struct zot_k {
  char *path; /**< path of the file */
  char
      *data; /**< its bytes; terminated when read or fetched, not when copied by zot_priv_k_cpy() */
  uint32_t data_len;                   /**< length of data; 0: the record has no K */
  char checksum[ZOT_CHECKSUM_LEN + 1]; /**< SHA-256 of data; empty for a K just fetched */
  zot_k_meta meta;                     /**< metadata in K */
  char *root;                          /**< directory of this K's files */
  struct cJSON *json;                  /**< data, parsed; see parsed */
  struct cJSON *gpbs;                  /**< the "gpbs" array inside json */
  /** Reference-counted owner of json, shared by all copies of this K; the last copy releases
   *  json. A shared json is read-only: do not change it, free it or pass it to another record.
   *  NULL: json, if any, belongs to this record alone, which frees it with cJSON_Delete(). */
  struct zot_parsed_k *parsed;
} zot_k;

/** Verified bytes of a GPB file. Only the library creates them. */
typedef struct zot_verified zot_verified;

/** One GPB file of a configuration. The record owns its path; see content for its ownership. Do
 *  not copy a record by assignment, because the shared bytes are reference-counted: use
 *  zot_priv_gpb_list_cpy(). */
typedef struct zot_gpb {
  char *path; /**< /category/key/version */
  /** The file's bytes, not NUL-terminated. If it points into verified, the bytes are read-only.
   *  Any other buffer belongs to the record, comes from malloc(), counts as not verified, and is
   *  never returned to a client. */
  char *content;
  uint32_t size;                       /**< bytes, from K */
  char checksum[ZOT_CHECKSUM_LEN + 1]; /**< SHA-256, from K */
  uint64_t version;                    /**< third part of the path */
  int32_t category;                    /**< zot_category, first part of the path */
  uint32_t stat;                       /**< ZOT_STAT_… */
  uint32_t key_len;                    /**< bytes of key */
  char key[ZOT_KEY_LEN + 1];           /**< second part of the path, truncated to the buffer */
  zot_list node;                       /**< links the entry into its list */
  /** The bytes that content points into, shared by all records of one file; NULL: not verified. */
  zot_verified *verified;
} zot_gpb;

/** Result of zot_priv_cmp_gpb(). */
typedef struct zot_gpb_cmp {
  int result; /**< below, equal to or above zero */
  int kind;   /**< first difference: 0 none, 1 category, 2 key, 3 version */
} zot_gpb_cmp;

/** A file in memory. The owner releases data with free(). */
typedef struct zot_file_mem {
  char *data;    /**< the bytes, NUL-terminated */
  uint32_t size; /**< bytes at data, without the terminator */
} zot_file_mem;

/** Statistics of one transfer. */
typedef struct remote_file_stat {
  double total_time; /**< seconds */
  uint64_t bytes;    /**< body bytes received */
  int32_t http_code; /**< response code; single-file fetch only */
  int32_t file_time; /**< modification time, if the service sent it */
} remote_file_stat;

/** One file name of a set to fetch. */
typedef struct remote_file_name {
  zot_list node;            /**< links the name into its set */
  char name[ZOT_PATH_SIZE]; /**< name of the file at the service */
} remote_file_name;

/** Operations of a sub-system. A client may replace an entry before its first zot_conf_get(). */
typedef struct zot_sub_fns {
  /** Optional: commits the GPB files below @p tmp_gpb_root instead of the library. Returns #ZOT_OK;
   *  any other status, even a positive one, fails the commit and becomes its result. It must
   *  restore its own changes itself: undoing a commit restores the K files only. */
  int (*commit_gpb)(zot_ctx *handle, const char *tmp_gpb_root, zot_list *gpbs);
  /** Writes the persistent directory into @p buf; NULL or an empty text is a failure. */
  char *(*get_conf_root)(zot_ctx *handle, char *buf, size_t size);
  /** Writes the scratch directory into @p buf; NULL or an empty text is a failure. */
  char *(*get_tmp_root)(zot_ctx *handle, char *buf, size_t size);
  /** Fills the empty @p k with the published K, as zot_priv_get_new_k_by_host() does.
   *  Returns #ZOT_OK, #ZOT_NO_UPDATE, #ZOT_ERR_SAME_AS_CORRUPTED or an error. */
  int (*download_k)(zot_ctx *handle, zot_k *k);
  /** Downloads the files of @p gpbs into the scratch directory and verifies each.
   *  Returns #ZOT_OK or an error. 1 is reserved for files in the dev directory. */
  int (*download_gpb)(zot_ctx *handle, zot_k *k, zot_list *gpbs);
} zot_sub_fns;

/** One cache slot; two slots may hold the same records. */
typedef struct zot_slot {
  zot_k *k;       /**< NULL: the slot is empty */
  zot_list *gpbs; /**< node of a zero-filled zot_gpb head */
} zot_slot;

/** Identity in the form that adapters use. */
typedef struct zot_sub_data {
  char name[ZOT_SUB_NAME_LEN + 1]; /**< upper-case index */
  uint32_t len;                    /**< bytes of the index that an adapter uses */
} zot_sub_data;

/** Distinguishes a file from a later file of the same name. All zero: there is no such file. */
typedef struct zot_file_id {
  uint64_t device;      /**< device number of the file system */
  uint64_t inode;       /**< inode number */
  uint64_t seconds;     /**< time of the last status change (ctime): seconds */
  uint64_t nanoseconds; /**< and nanoseconds */
} zot_file_id;

/** Private state of the library between calls. Only the library reads it. */
typedef struct zot_own {
  char *conf_root;        /**< persistent directory of the last get with a new configuration */
  char *tmp_root;         /**< scratch directory of that get */
  zot_file_id fetched;    /**< the checksum file that this get left in the scratch directory */
  uint64_t verdicts;      /**< identifies the K in force and the K rolled back at that get */
  uint32_t marks_waiting; /**< 1: the marked list is of a configuration not yet decided */
  uint32_t commit_begun;  /**< 1: memory has the new configuration of an incomplete commit */
  uint32_t cache_doubts;  /**< bits: ways in which memory may differ from the persistent cache */
  uint32_t lock_depth;    /**< number of nested calls that hold the locks */
  int32_t lock_fd[2];     /**< descriptors of the locked directories plus one; 0: none */
  zot_file_id repeated;   /**< the K that a get without an update left in the scratch directory */
  char repeated_checksum[ZOT_CHECKSUM_LEN]; /**< the checksum of that K */
} zot_own;

/** The library handle. Adapters, tools and tests may use the fields; clients use the calls. */
struct zot_ctx {
  char subsys_id[ZOT_SUBSYS_ID_LEN + 1]; /**< "AP", "CP" or "DP" */
  char sub_idx[56];                      /**< index passed at creation */
  uint32_t sub_idx_len;                  /**< copy of zot_sub_data::len */
  zot_parm *parm;                        /**< parameters, owned */
  char err_str[ZOT_ERR_STR_SIZE];        /**< text of the last status */
  int32_t err;                           /**< last status */
  zot_sub_fns fns;                       /**< operations of the sub-system */
  zot_slot slot[ZOT_SLOT_COUNT];         /**< current, last, temporary, corrupted */
  zot_sub_data sub_data;                 /**< identity in the form that adapters use */
  uint32_t load_flags;                   /**< ZOT_LOADED_… */
  char tmp_root[ZOT_PATH_SIZE];          /**< scratch directory */
  char tmp_gpb_root[ZOT_PATH_SIZE];      /**< its directory of GPB files */
  char conf_root[ZOT_PATH_SIZE];         /**< persistent directory */
  char conf_k_root[ZOT_PATH_SIZE];       /**< its directory of K files */
  struct {
    zot_list *list;    /**< marked list behind every returned list */
    const char *root;  /**< directory of its files, owned elsewhere in the handle */
  } ret;               /**< source of the results of cached requests */
  zot_log_ctx log_ctx; /**< the handle's log */
  zot_core_stat stat;  /**< statistics of the last cycle */
  uint32_t dev_mode;   /**< 1: the configuration is read from a local directory */
  zot_own own;         /**< private to the library */
};

/* --------------------------------------------------------------- statistics and parameters */

/** Zeroes a statistics record. NULL does nothing. */
void zot_core_reset_stat(zot_core_stat *stat);

/** zot_parm_set() and zot_parm_get() without argument checks: no argument may be NULL. The setter
 *  or getter of the parameter records its status. */
int zot_priv_parm_set(zot_ctx *handle, int id, const void *val, size_t val_len);
/** @copydoc zot_priv_parm_set() */
int zot_priv_parm_get(zot_ctx *handle, int id, void *val, size_t val_len);

/* ------------------------------------------------------------------------------------- log */

/**
 * Writes a message when its level and topic are enabled.
 *
 * @param log_ctx log context; NULL writes nothing
 * @param level   ZOT_LOG_ERROR to ZOT_LOG_DEBUG
 * @param mask    ZOT_TOPIC_… bits
 * @param line    source line
 * @param func    function name
 * @param fmt     printf format; NULL or empty writes nothing. By convention it begins with "%s" for
 *                the prefix and ends with a newline.
 * @return 0, the destination's result, or -1 when memory was short and the text was truncated.
 */
int zot_log(zot_log_ctx *log_ctx, uint32_t level, uint32_t mask, long line, const char *func,
            const char *fmt, ...) __attribute__((format(printf, 6, 7)));

/** Writes the prefix that the log options select, truncated to @p size. @return @p buf. */
char *zot_log_get_prefix(const zot_log_ctx *log_ctx, const char *func, long line, char *buf,
                         size_t size);

/** Installs the default log control in a handle. @return #ZOT_OK; #ZOT_ERR_NULL_INPUT without a
 *  handle; #ZOT_ERR_WRONG_INPUT for a handle without parameters. */
int zot_log_init(zot_ctx *handle);

/** Closes the log file of a handle, if one is open. NULL does nothing. */
void zot_log_free(zot_ctx *handle);

/* ------------------------------------------------------------------------------------ list */

/** Initialises a head as an empty list. */
void zot_list_init(zot_list *head);

/** Inserts @p node at the front. */
void zot_list_add(zot_list *head, zot_list *node);

/** Inserts @p node at the end. */
void list_add_tail(zot_list *head, zot_list *node);

/** zot_list_add() with argument checks. @return 0; -1 when either is NULL. */
int zot_list_add_node(zot_list *head, zot_list *node);

/** list_add_tail() with argument checks. @return 0; -1 when either is NULL. */
int zot_list_add_node_tail(zot_list *head, zot_list *node);

/** Unlinks a node. Sets its links to 0x100100 and 0x200200, so that a later use faults. */
void list_del(zot_list *node);

/** Same as list_del(). */
void zot_list_remove(zot_list *node);

/**
 * Sorts a list in place: stable, without allocation, in n log n comparisons.
 * @param priv passed to @p cmp
 * @param head the list
 * @param cmp  the order; the sort sometimes passes the same node as both arguments
 */
void zot_list_sort(void *priv, zot_list *head, zot_list_cmp cmp);

/* ---------------------------------------------------------------------------------- status */

/**
 * Records a status: code, text and, unless @p func is empty or @p line is 0, a log line (debug for
 * success, error for negative codes, information for positive ones).
 *
 * @param handle the handle; with NULL it aborts (programming error)
 * @param code   a #zot_status
 * @param func   function that records
 * @param line   source line
 * @param fmt    printf format of the text, truncated to 511 bytes; NULL or empty selects the code's
 *               own text, or "Generic Error" for a code without one
 * @return @p code
 */
int zot_priv_err_set_err_str2(zot_ctx *handle, int code, const char *func, long line,
                              const char *fmt, ...) __attribute__((format(printf, 5, 6)));

/** zot_priv_err_set_err_str2() without a format. */
int zot_priv_err_set_err2(zot_ctx *handle, int code, const char *func, long line);

/** Stores a code without text or log line. A NULL handle stores nothing. @return @p code. */
int zot_priv_err_set_errno(zot_ctx *handle, int code);

/** The stored code; #ZOT_ERR_WRONG_INPUT without a handle. */
int zot_priv_err_get_errno(const zot_ctx *handle);

/** The text of a code, static; NULL when it has none. */
const char *zot_priv_err_get_map_str(int code);

/** The text of the handle's last status. @p handle is not NULL. */
const char *zot_priv_err_get_err_str(const zot_ctx *handle);

/* ----------------------------------------------------- operations: records and cache slots */

/** K or GPB list of a slot, still owned by the slot; NULL for a NULL handle or an index above 3. */
zot_k *zot_priv_get_k(const zot_ctx *handle, uint32_t slot);
/** @copydoc zot_priv_get_k() */
zot_list *zot_priv_get_gpb(const zot_ctx *handle, uint32_t slot);

/** Puts a K or GPB list into a slot. Frees nothing. Does nothing for a NULL handle or an index
 *  above 3. */
void zot_priv_set_k(zot_ctx *handle, uint32_t slot, zot_k *k);
/** @copydoc zot_priv_set_k() */
void zot_priv_set_gpb(zot_ctx *handle, uint32_t slot, zot_list *gpbs);

/** Name of a slot in log lines, static; empty above 3. */
const char *zot_priv_slot_name(uint32_t slot);

/**
 * Empties a slot. Frees its record, unless the record is @p keep or another slot refers to it too.
 * Does nothing for an empty slot or an index above 3.
 * @param keep a record that is still in use elsewhere, or NULL
 */
void zot_priv_free_k_ex_safe(zot_ctx *handle, uint32_t slot, zot_k *keep);
/** @copydoc zot_priv_free_k_ex_safe() */
void zot_priv_free_gpb_ex_safe(zot_ctx *handle, uint32_t slot, zot_list *keep);

/** Frees the data that a K owns, but not the record; the metadata stays. @return #ZOT_OK;
 *  #ZOT_ERR_NULL_INPUT without handle or record; #ZOT_ERR_WRONG_INPUT for a record with data_len 0,
 *  which stays unchanged. */
int zot_priv_free_k(zot_ctx *handle, zot_k *k);

/** The in-memory part of a commit: the new records become current, the old current ones become
 *  last, and the old last ones are released. @return #ZOT_OK or #ZOT_ERR_NULL_INPUT. */
int zot_priv_update_cached_mem(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs);

/** Replaces a K's path or root directory with a copy of at most 4096 bytes. @return the copy, owned
 *  by the K; NULL without memory, K or text: the old text is then lost. */
char *zot_priv_k_set_path(zot_k *k, const char *path);
/** @copydoc zot_priv_k_set_path() */
char *zot_priv_k_set_root(zot_k *k, const char *root);

/** Copies path, data and checksum into an empty record; from a source with data_len 0, only the
 *  path. @return #ZOT_OK; #ZOT_ERR_WRONG_INPUT when a record is missing or both are the same;
 *  #ZOT_ERR_NOMEM, with nothing copied. */
int zot_priv_k_cpy(const zot_k *src, zot_k *dst);

/** Compares the bytes of two K. @return 0 equal; 1 different; -1 when either is NULL. */
int zot_priv_cmp_k(const zot_k *a, const zot_k *b);

/** Allocates a GPB entry; texts that are too long are truncated. @return the entry, owned by the
 *  caller; NULL without memory. */
zot_gpb *zot_priv_gpb_new(const char *path, uint32_t size, int32_t category, const char *checksum,
                          const char *key, uint64_t version);

/** Frees an entry with its path and content (but not content of size 0).
 *  @return #ZOT_OK or #ZOT_ERR_NULL_INPUT; the status is not recorded. */
int zot_priv_free_gpb(zot_ctx *handle, zot_gpb *gpb);

/** Frees every entry of a list and leaves the head empty. @return as zot_priv_free_gpb(). */
int zot_priv_free_gpb_list(zot_ctx *handle, zot_list *gpbs);

/** Frees the handle's marked list with its head. */
void zot_priv_free_ret_gpb_list(zot_ctx *handle);

/* ------------------------------------------------------- operations: content of a K, diff */

/**
 * Checks the JSON text of a K and fills its metadata, json and gpbs.
 * @param k a record whose data is the terminated text
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for an empty text;
 *         #ZOT_ERR_CORRUPTED for a text that is not a valid K.
 */
int zot_priv_chk_vail_k_cont(zot_ctx *handle, zot_k *k);

/**
 * Builds the sorted GPB list of a checked K. Skips, with a warning, elements of an unknown category
 * and elements whose path does not have the form /category/key/version.
 * @param gpbs an empty list; stays empty on failure
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for a K that was not checked;
 *         #ZOT_ERR_CORRUPTED for a bad element or two versions of one object; #ZOT_ERR_NOMEM.
 */
int zot_priv_get_gpb_list_via_k_json(zot_ctx *handle, zot_k *k, zot_list *gpbs);

/** Compares two entries by category, key and version. @p out may be NULL. @return the result. */
int zot_priv_cmp_gpb(const zot_gpb *a, const zot_gpb *b, zot_gpb_cmp *out);

/** Rejects a sorted list that contains two versions of one object. @return #ZOT_OK or
 *  #ZOT_ERR_CORRUPTED. */
int zot_priv_chk_dup_gpb(zot_ctx *handle, zot_list *gpbs);

/** Copies an entry without its content. @return #ZOT_OK; #ZOT_ERR_NULL_INPUT when one is missing or
 *  both are the same; #ZOT_ERR_WRONG_INPUT for a source without path; #ZOT_ERR_NOMEM. */
int zot_priv_gpb_list_cpy(zot_ctx *handle, zot_gpb *dst, const zot_gpb *src);

/**
 * Merges two sorted lists into a list of copies, each marked with its change.
 * @param cur_k,new_k the K of each list. If their clusters differ, or one K is missing, equal
 *                    entries are marked modified. If both are missing, nothing is built.
 * @param out         an empty list; stays empty on failure
 * @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, #ZOT_ERR_NOMEM; #ZOT_ERR_WRONG_INPUT for an entry without
 *         path.
 */
int zot_priv_build_full_diff_gpb_list(zot_ctx *handle, zot_k *cur_k, zot_k *new_k, zot_list *cur,
                                      zot_list *new_gpbs, zot_list *out);

/** Builds the marked list of a new configuration compared with the current slot. @p root is not
 *  used. @return a new list, owned by the caller; NULL on failure, with the status recorded. */
zot_list *zot_priv_build_ret_gpb_list(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs,
                                      const char *root);

/** Replaces the handle's marked list. Keeps a reference to @p root, which must live as long. On
 *  failure the old list stays. @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for an
 *  empty root; #ZOT_ERR_NOMEM. */
int zot_priv_update_cached_ret_gpb_list(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs,
                                        const char *root);

/**
 * Builds a returned list from a marked list. Verifies each file that it returns.
 * @param marked marked list
 * @param ret    an empty list; stays empty on failure
 * @param mask   request bits of zot_conf_get()
 * @param root   directory of the files
 * @param catset categories to return
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_NOMEM; #ZOT_ERR_CORRUPTED for a file that does not
 *         match K; #ZOT_ERR_UNKNOWN_OPT for an unknown mark; or as zot_priv_build_gpb_cont().
 */
int zot_priv_get_ret_data_via_gpb(zot_ctx *handle, zot_list *marked, zot_list *ret, uint32_t mask,
                                  const char *root, zot_catset catset);

/** zot_priv_get_ret_data_via_gpb() on the handle's own marked list. */
int zot_priv_fltr_ret_data(zot_ctx *handle, zot_list *ret, uint32_t mask, zot_catset catset);

/** Frees the entries of a returned list and leaves the head empty. NULL does nothing. */
void zot_priv_free_ret_data(zot_list *ret);

/* ------------------------------------------------------------ operations: verification, storage */

/**
 * Checks a file's size and SHA-256.
 * @param file     path
 * @param size     expected bytes
 * @param checksum expected digest, 64 lower-case hexadecimal digits
 * @param[out] out receives @p size bytes when the file passes; may be NULL
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT for a missing or empty text; #ZOT_ERR_CORRUPTED for a file
 *         that is absent, empty, unreadable or different.
 */
int zot_priv_verify_gpb(zot_ctx *handle, const char *file, int32_t size, const char *checksum,
                        void *out);

/** Checks an entry's file, ROOT/config/CATEGORY/KEY/VERSION, and fills the entry's content if it
 *  has a buffer. @return as zot_priv_verify_gpb(); #ZOT_ERR_WRONG_INPUT for an entry without path
 *  or size. */
int zot_priv_chk_vail_gpb(zot_ctx *handle, zot_gpb *gpb, const char *root);

/** zot_priv_chk_vail_gpb() that allocates the content buffer if there is none. @return as
 *  zot_priv_chk_vail_gpb(), or #ZOT_ERR_NOMEM. After a failure the buffer has no verified bytes. */
int zot_priv_build_gpb_cont(zot_ctx *handle, zot_gpb *gpb, const char *root);

/**
 * Reads a K and its checksum file, compares them and checks the content.
 * @param k     an empty record, not NULL; keeps the data that was read even if a later step fails
 * @param flags #ZOT_READ_K_OPTIONAL or 0
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for an empty path; #ZOT_ERR_NO_FILE
 *         when the checksum file is absent (not recorded with #ZOT_READ_K_OPTIONAL);
 *         #ZOT_ERR_CORRUPTED for any other defect.
 */
int zot_priv_verify_k_file(zot_ctx *handle, zot_k *k, const char *k_path, const char *checksum_path,
                           int flags);

/** zot_priv_verify_k_file() for two names below @p root. @return as zot_priv_verify_k_file(). */
int _zot_priv_read_k_f(zot_ctx *handle, zot_k *k, const char *root, const char *k_name,
                       const char *checksum_name, int flags);

/** Reader of one kind of K below a root directory. @return as zot_priv_verify_k_file(). */
typedef int (*zot_k_reader)(zot_ctx *handle, zot_k *k, const char *root, int flags);
/** Reads the K in force, "/knowledge/subsys.k". @return as zot_priv_verify_k_file(). */
int zot_priv_read_cur_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags);
/** Reads the previous K, "/knowledge/prev_subsys.k". @return as zot_priv_verify_k_file(). */
int zot_priv_read_prev_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags);
/** Reads the K that was rolled back, "/knowledge/corrupted.k". @return as
 *  zot_priv_verify_k_file(). */
int zot_priv_read_corrupted_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags);
/** Reads the K in the scratch directory, "subsys.k". @return as zot_priv_verify_k_file(). */
int zot_priv_read_tmp_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags);

/** zot_priv_read_cur_k_f() with flags 0. @return as zot_priv_verify_k_file(). */
int zot_priv_read_cur_k(zot_ctx *handle, zot_k *k, const char *root);
/** zot_priv_read_prev_k_f() with flags 0. @return as zot_priv_verify_k_file(). */
int zot_priv_read_prev_k(zot_ctx *handle, zot_k *k, const char *root);
/** zot_priv_read_corrupted_k_f() with flags 0. @return as zot_priv_verify_k_file(). */
int zot_priv_read_corrupted_k(zot_ctx *handle, zot_k *k, const char *root);
/** zot_priv_read_tmp_k_f() with flags 0. @return as zot_priv_verify_k_file(). */
int zot_priv_read_tmp_k(zot_ctx *handle, zot_k *k, const char *root);

/**
 * Fetches the published K into an empty record: first its checksum, then the K itself, unless the
 * corrupted or the current K has the same checksum.
 * @param new_k an empty record
 * @param host  host with optional port
 * @return #ZOT_OK; #ZOT_NO_UPDATE or #ZOT_ERR_SAME_AS_CORRUPTED, with a copy of the cached K in
 *         @p new_k; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_TIMEOUT, #ZOT_ERR_REMOTE_UNAVAIL or
 *         #ZOT_ERR_NOT_FOUND for a failed transfer; #ZOT_ERR_CORRUPTED; #ZOT_ERR_NOMEM;
 *         #ZOT_ERR_GENERIC for a file that could not be written, or another response.
 */
int zot_priv_get_new_k_by_host(zot_ctx *handle, zot_k *new_k, const char *host);

/** Downloads the K (@p kind 0) or its checksum (1) into the scratch directory and into memory.
 *  @param[out] out the bytes, freed by the caller with free()
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT without a handle; #ZOT_ERR_WRONG_INPUT for a missing @p out
 *  or @p host or another @p kind; or as zot_priv_fmt_get_k_curl_error(). */
int zot_priv_get_k_into_mem(zot_ctx *handle, const char *host, zot_file_mem *out, int kind);

/** Converts a fetch result into a status and records it. @param stat statistics of that fetch.
 *  @return #ZOT_OK, #ZOT_ERR_TIMEOUT, #ZOT_ERR_REMOTE_UNAVAIL, #ZOT_ERR_NOT_FOUND or
 *  #ZOT_ERR_GENERIC. */
int zot_priv_fmt_get_k_curl_error(zot_ctx *handle, int fetch_result, remote_file_stat stat,
                                  const char *url, const char *label, uint32_t timeout);

/** Compares a downloaded checksum with that of a K. @return 0 equal; 1 different; -1 missing
 *  argument. */
int zot_priv_is_chk_dup(zot_ctx *handle, const zot_file_mem *new_checksum, const zot_k *cached,
                        const char *label);

/** Makes @p new_k a copy of a cached K and writes its bytes into the scratch directory.
 *  @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, #ZOT_ERR_WRONG_INPUT, #ZOT_ERR_NOMEM or
 *  #ZOT_ERR_GENERIC. */
int zot_priv_hd_dup_k(zot_ctx *handle, zot_k *cached, zot_k *new_k, const char *label);

/** Fills the temporary K from the dev directory or through the adapter. @return #ZOT_OK,
 *  #ZOT_ERR_NULL_INPUT, #ZOT_ERR_NOMEM, #ZOT_NO_UPDATE or an error of the adapter, or as
 *  zot_priv_verify_k_file(). */
int zot_priv_update_tmp_k(zot_ctx *handle, zot_k *tmp_k);

/** Verifies every file of a list below @p root and keeps the bytes; @p k is not used. On failure,
 *  frees the whole list. @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, or as zot_priv_build_gpb_cont(). */
int zot_priv_read_gpb(zot_ctx *handle, zot_k *k, zot_list *gpbs, const char *root);

/** Builds the list of the temporary K and gets its files. @return #ZOT_OK; 1 when they were read
 *  from the dev directory; the status of the adapter; #ZOT_ERR_NULL_INPUT without its download; or
 *  as zot_priv_get_gpb_list_via_k_json() or as zot_priv_read_gpb(). */
int zot_priv_update_tmp_gpb(zot_ctx *handle, zot_k *tmp_k, zot_list *gpbs);

/** Removes the deleted entries from a marked list and marks the others unchanged. */
void zot_priv_prune_deleted_gpb(zot_ctx *handle, zot_list *gpbs);

/** Commits the temporary K files. Afterwards @p tmp_k has the K as read back from the cache.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT or #ZOT_ERR_WRONG_INPUT for a K without root directory;
 *  #ZOT_ERR_GENERIC when a copy failed; #ZOT_ERR_NOMEM; or as zot_priv_verify_k_file(). */
int zot_priv_commit_k(zot_ctx *handle, zot_k *tmp_k);

/** Replaces the cached GPB files with those of the scratch directory. @return #ZOT_OK,
 *  #ZOT_ERR_NULL_INPUT, #ZOT_ERR_GENERIC, or the status of the adapter's own commit. */
int zot_priv_commit_gpb(zot_ctx *handle, zot_list *gpbs);

/** Copies the temporary K files over the last ones. @return #ZOT_OK, #ZOT_ERR_NULL_INPUT,
 *  #ZOT_ERR_WRONG_INPUT, #ZOT_ERR_GENERIC or #ZOT_ERR_NOMEM. */
int zot_priv_rotate_prev_k(zot_ctx *handle, zot_k *tmp_k);

/** fcopy_stat() that logs, adds to the handle's statistics and records failures for the caller.
 *  @return #ZOT_OK, #ZOT_ERR_GENERIC, or #ZOT_ERR_NULL_INPUT without a handle. */
int zot_priv_fcopy(zot_ctx *handle, const char *src, const char *dst, const char *func, long line);

/** Runs a shell command, logs it and records failures for the caller, @p func and @p line. A
 *  command that ran and failed is not an error of this call.
 *  @param[out] code exit status, or the raw status of a command that a signal ended; may be NULL
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT without a command; #ZOT_ERR_GENERIC
 *  when no exit status is available. */
int _zot_priv_system(zot_ctx *handle, const char *cmd, int *code, const char *func, long line);

/* ----------------------------------------------------------------- operations: cycle control */

/** The update check of zot_conf_get(). @return #ZOT_OK for a new configuration, #ZOT_NO_UPDATE,
 *  #ZOT_ERR_SAME_AS_CORRUPTED (not recorded), #ZOT_ERR_NULL_INPUT, or the error of the step that
 *  failed. */
int zot_priv_chk_update(zot_ctx *handle);

/** Sets the slots current, last and temporary to the configuration in force. @return #ZOT_OK, or as
 *  zot_priv_rotate_prev_k(). */
int zot_priv_handle_no_update(zot_ctx *handle);

/** Implements zot_conf_commit(). @return as zot_conf_commit(). */
int zot_priv_commit_conf(zot_ctx *handle);
/** Implements zot_conf_roll_back(). @return as zot_conf_roll_back(). */
int zot_priv_commit_fail_k(zot_ctx *handle);

/** Marks the cycle as committed. */
void zot_done_commit(zot_ctx *handle);
/** Marks the cycle as rolled back. */
void zot_done_roll_back(zot_ctx *handle);

/** Sub-system set-up of a new handle: identity, operations, directories. @return #ZOT_OK or the
 *  first failure, as zot_sub_init_data() or as zot_priv_reload_sys_paths(). */
int zot_priv_init_sub_sys(zot_ctx *handle);

/** Copies the index in upper case. @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, #ZOT_ERR_OUT_OF_RANGE.
 */
int zot_sub_init_data(zot_ctx *handle);

/** Installs the access-point operations. @return #ZOT_OK or #ZOT_ERR_NULL_INPUT. */
int zot_sub_init_fns(zot_ctx *handle);

/** Sets the default timeouts, 5 and 30 seconds. @return #ZOT_OK or #ZOT_ERR_NULL_INPUT. */
int zot_sub_init_parm(zot_parm_all *parm);

/** Writes the persistent directory into @p buf: ZOT_DEV_PATH, which turns dev mode on for the rest
 *  of the handle's life, or ZOT_PREFIX_CONF_ROOT plus "/writable/zot/". @return @p buf; NULL
 *  without handle or buffer. */
char *zot_sub_get_conf_root(zot_ctx *handle, char *buf, size_t size);

/** Writes the scratch directory into @p buf: ZOT_PREFIX_TMP_ROOT plus "/tmp/zot". @return @p buf;
 *  NULL without handle or buffer. */
char *zot_sub_get_tmp_root(zot_ctx *handle, char *buf, size_t size);

/** Port of the service: ZOT_REMOTE_PORT, or 8087 when it is unset or below 1. */
uint32_t zot_sub_get_remote_port(void);

/** Computes the four directories from the environment and creates them.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for a directory with characters that
 *  a shell would interpret; #ZOT_ERR_GENERIC. */
int zot_priv_reload_sys_paths(zot_ctx *handle);

/** Creates a directory if it does not exist. @param label its name in messages. @return #ZOT_OK,
 *  #ZOT_ERR_WRONG_INPUT without a path, #ZOT_ERR_NULL_INPUT without a handle, #ZOT_ERR_GENERIC. */
int zot_priv_chk_n_mkdir(zot_ctx *handle, const char *path, const char *label);

/** The access-point adapter: fetches K from the service on the loopback host.
 *  @return as zot_priv_get_new_k_by_host(). */
int ap_download_k(zot_ctx *handle, zot_k *k);

/** The access-point adapter: fetches all GPB files as one archive, unpacks and verifies them.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for an entry without path or size;
 *  #ZOT_ERR_TIMEOUT; #ZOT_ERR_REMOTE_UNAVAIL; #ZOT_ERR_CORRUPTED for an archive that cannot be
 *  unpacked, that contains anything except directories and regular files below "config", or whose
 *  files do not match K; #ZOT_ERR_NOMEM; #ZOT_ERR_GENERIC. */
int ap_download_gpb(zot_ctx *handle, zot_k *k, zot_list *gpbs);

/** Start-up loader of the current slot, with its files. Each loader runs once per handle, whether
 * it succeeds or not. @return #ZOT_OK, also when nothing is left to do; #ZOT_ERR_NULL_INPUT;
 *  #ZOT_ERR_NOMEM; #ZOT_ERR_NO_FILE; #ZOT_ERR_CORRUPTED; #ZOT_ERR_WRONG_INPUT for a K with a file
 * of size 0. */
int zot_priv_init_load_conf(zot_ctx *handle);
/** Start-up loader of the last slot, without files. @return #ZOT_OK, also when nothing is left to
 * do; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_NOMEM; #ZOT_ERR_NO_FILE; #ZOT_ERR_CORRUPTED. */
int zot_priv_init_load_prev_k(zot_ctx *handle);
/** Start-up loader of the K of the temporary slot. @return #ZOT_OK, also when nothing is left to
 * do; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_NOMEM; or as zot_priv_verify_k_file(). */
int zot_priv_init_load_tmp_k(zot_ctx *handle);
/** Start-up loader of the K of the corrupted slot. @return as zot_priv_init_load_prev_k(). */
int zot_priv_init_load_fail_k(zot_ctx *handle);
/** Builds the marked list from the cache. Runs once per handle, whether it succeeds or not.
 *  @return #ZOT_OK, also when nothing is left to do; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_NOMEM. */
int zot_priv_init_load_ret_gpb_list(zot_ctx *handle);

/** Loads one K through a reader. @param[out] target receives the record, unchanged on failure.
 *  @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, #ZOT_ERR_NOMEM, or the status of the reader, as
 *  zot_priv_verify_k_file(). */
int __zot_priv_init_load_k_f(zot_ctx *handle, zot_k_reader reader, zot_k **target, const char *root,
                             int flags);

/** __zot_priv_init_load_k_f() for optional files. With flags 0 it aborts (programming error). */
int _zot_priv_init_load_k_f(zot_ctx *handle, zot_k_reader reader, zot_k **target, const char *root,
                            int flags);

/* --------------------------------------------------------------------------------- helpers */

/** Removes a path recursively through the shell. @return 0 when removed or absent; -1 when refused
 *  (no path, the root directory under any name, a path that a shell would interpret (EINVAL), a
 *  path that is too long) or when the call failed; otherwise the raw status of the command. */
int rm_rf(const char *path);

/* Where times have 32 bits, the library would write beyond the record of a program that is built
 * without these. */
#if defined(__GLIBC__) && defined(__TIMESIZE) && __TIMESIZE == 32 && \
    (!defined(_TIME_BITS) || _TIME_BITS != 64)
__attribute__((error("needs -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")))
#endif
/** Type of a path, or of a descriptor when @p fd is not negative. Does not follow symbolic links.
 *  @param[out] st may be NULL. On 32 bits with glibc it is the struct stat of a program that sets
 *  _FILE_OFFSET_BITS and _TIME_BITS to 64.
 *  @return 1 regular file; 2 directory; 3 other; -1 no path and no descriptor; -3 empty path or
 *  no such file; -4 any other failure. */
int get_file_type(const char *path, struct stat *st, int fd);

/** fcopy_stat() without counters. */
int fcopy(const char *src, const char *dst);

/** Copies a file byte by byte with its mode bits. Replaces an existing destination with a new file
 *  and never writes into the old one.
 *  @param[out] rd,wr bytes read and written; may be NULL
 *  @return 0; -1 on failure, also when both are the same file; a partial destination stays. */
int fcopy_stat(const char *src, const char *dst, uint64_t *rd, uint64_t *wr);

/** Creates a directory with its parents. @return 0, also when it exists; -1 on failure. */
int mkdir_r(const char *path);

/** Makes a path a directory: creates it, or replaces an existing non-directory. @return 0; -1 on
 *  failure, also for an empty path and "/". */
int chk_and_mkdir(const char *path);

/** Reads the first line, at most 511 bytes, without its newline.
 *  @param len maximum number of bytes to copy; a longer line leaves @p buf unterminated
 *  @return @p buf; NULL when there is no line. */
char *read_line(const char *path, char *buf, size_t len);

/** Reads a whole file. @param[out] size bytes, set as soon as the size is known. @return a
 *  terminated buffer, which the caller frees with free(); NULL on failure and for an empty file. */
char *read_file(const char *path, uint32_t *size);

/** Maps a whole file read-only. @param[out] len bytes; 0 on failure. @return the mapping, released
 *  with free_file_mmap(); NULL on failure and for an empty file. */
char *read_file_mmap(const char *path, uint32_t *len);

/** Unmaps a mapping of read_file_mmap(). @return 0; -1 without address or length, or on failure. */
int free_file_mmap(void *addr, uint32_t len);

/** Writes a whole file, which is created or truncated. @return 0; -1 on failure. A size of 0
 *  produces an empty file and returns -1. */
int write_file(const char *path, const void *buf, size_t size);

/** Converts a string to upper case in place. @return @p s. */
char *str2upper(char *s);

/** Prints a JSON tree to standard output; a development aid. */
void print_cjson(const struct cJSON *tree);

/** Runs a shell command with the default action for SIGCHLD, so that the exit status is not lost in
 *  a process that ignores the signal. @return the raw status of system(). */
int cmd_helper_system(const char *cmd);

/** Converts a 32-byte digest to 64 lower-case hexadecimal digits. @param size at least 65.
 *  @return @p out; NULL when @p size is below 65. */
char *sha256_hash_str(const void *digest, char *out, uint32_t size);

/** SHA-256 of a buffer as text. @return 0; -1 without data, for data whose first byte is zero, for
 *  @p size below 65, or when libcrypto fails. */
int calc_sha256(const void *data, uint32_t len, char *out, uint32_t size);

/** Compares a buffer's SHA-256 with the first 64 characters of @p want. @return 0 when equal;
 *  another value when different; -1 also on failure. */
int cmp_file_sha256(const void *data, uint32_t len, const char *want);

/**
 * Fetches one file by HTTP GET. The body goes to PATH.tmp, which is renamed on success and
 * stays on failure.
 * @param url      http or https
 * @param path     destination
 * @param[out] mem receives the file too; the caller frees its data. May be NULL. Unchanged unless
 *                 the whole file was received and renamed, so zero-fill it before the call. If the
 *                 file cannot be read back, its data is NULL and the call returns -1.
 * @param timeout  seconds for the whole transfer; 0: no limit
 * @param[out] stat may be NULL
 * @return 0; -1 for a missing argument, a file error or a response other than 200; a positive
 *         libcurl code when the transfer failed.
 */
int get_remote_file_stat(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout,
                         remote_file_stat *stat);

/** get_remote_file_stat() without statistics. @p mem may stay unchanged, as there. */
int get_remote_file(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout);

/**
 * Fetches an archive of named files by HTTP POST of {"files": […]}, directly into @p path, without
 * a time limit.
 * @param names list of #remote_file_name; empty names are skipped
 * @param spare not used
 * @param[out] stat time, bytes and file time; may be NULL
 * @return as get_remote_file_stat(); also 0, with nothing transferred, when @p path cannot be
 *         opened.
 */
int get_remote_file_set_stat(const char *url, const char *path, const zot_list *names,
                             uint32_t spare, remote_file_stat *stat);

/** get_remote_file_set_stat() without statistics. */
int get_remote_file_set(const char *url, const char *path, const zot_list *names, uint32_t spare);

/** Name of a sub-system (0 "AP", 1 "CP", 2 "DP"), static; NULL for any other value. */
const char *get_subsys_str_by_enum(int32_t subsys);

/** Name of a category, static; NULL for any other value. */
const char *get_cat_str_by_gpb_cat(int32_t category);

/** Category of a name, case-sensitive. @return 0; 1 unknown name; -1 missing argument. */
int get_gpb_cat_by_cat_str(const char *name, int32_t *category);

/** Splits /category/key/version into buffers; truncates longer texts. @return @p cat; NULL when an
 *  argument is missing or the path does not have three components. */
char *get_gpb_meta_str(const char *path, char *cat, size_t cat_size, char *key, size_t key_size,
                       uint64_t *version);

/** get_gpb_meta_str() that also looks up the category. @return 0; 1 unknown category, with the rest
 *  filled in; -1 missing argument or bad path. */
int get_gpb_meta_by_path(const char *path, int32_t *category, char *key, size_t key_size,
                         uint64_t *version, char *cat, size_t cat_size);

/**
 * Reads a member of a JSON object. The member name is case-insensitive.
 * @param type cJSON's bit: 1 false, 2 true, 8 number (as int32_t, truncated, saturated), 16 string
 * @param[out] out int32_t, or a buffer of @p size bytes for a string
 * @return 0; 1 unsupported type; -1 missing argument, member absent, of another type, or too long.
 */
int get_json_item(const struct cJSON *object, const char *name, int type, void *out, size_t size);

/** Three-way comparison: -1, 0 or 1. */
int cmp_int(int32_t a, int32_t b);
/** @copydoc cmp_int() */
int cmp_uint64(uint64_t a, uint64_t b);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* ZOT_CONF_EXT_H */
