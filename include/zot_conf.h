/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file zot_conf.h
 * @brief Configuration cache for managed network elements: the interface for clients of libzotconf.
 *
 * A configuration consists of K (the knowledge file, a manifest) and the GPB files (the
 * configuration files) that K lists. A service process creates one handle and runs cycles.
 * zot_conf_get() fetches the configuration that the controller published, verifies it, and returns
 * what changed. The process applies the changes, then calls zot_conf_commit() or
 * zot_conf_roll_back(). zot_conf_free_ret_data() releases the returned list.
 *
 * zot_conf_ext.h declares the rest: the fields of the handle, and the calls for sub-system
 * adapters, tools and tests. This header includes it unless `ZOT_CONF_CLIENT` is defined. A client
 * defines that macro before the include. The handle is then an incomplete type, and no plain name
 * such as `read_file` is declared, so the client may use these names for functions of its own. The
 * library never calls a function of the client by such a name. List your own static libraries
 * before `-lzotconf` when you link.
 *
 * These conventions apply unless a declaration says otherwise:
 *
 *  1. Ownership. The caller owns a handle from zot_conf_init() to zot_conf_free(), and a returned
 *     list until zot_conf_free_ret_data(). The handle owns the bytes that an entry points to.
 *     Records are allocated with calloc() and released with free().
 *  2. Status. A call that takes a handle returns a #zot_status. 0 is success. A positive value is
 *     a result that is not an error. A negative value is an error. The handle keeps the last status
 *     and its text (zot_util_get_err(), zot_util_get_err_str()) until the next call.
 *     A call that takes no handle returns 0 or -1, with `errno` from the failing system call.
 *  3. Threads. The library starts no thread and takes no process-wide lock. One thread at a time
 *     may use a handle. Several threads may use several handles, as long as no two transfers or
 *     shell commands run at the same time. Transfers and commands block.
 *  4. Processes. Several handles, in one process or in several, may use the same directories. A
 *     call that uses them holds flock() on both until it returns. If another process or handle has
 *     them locked, it waits up to #ZOT_PARM_TIMEOUT, then fails with #ZOT_ERR_TIMEOUT. A command
 * that outlives its process, or for which waiting failed, keeps the locks until it ends. So does a
 *     child that another thread forked during a call, if the process is killed during that call.
 *  5. Strings are NUL-terminated and copied; a declaration says so when it keeps a reference
 *     instead. Sizes are bytes. A buffer size includes the terminator. Paths: at most 4095 bytes.
 *  6. Null. A call with a NULL handle returns #ZOT_ERR_NULL_INPUT and records nothing.
 *  7. Zero-fill every record that you pass, so that members added later read as absent.
 *  8. Language. Standard C11 or C++11, and one extension of GCC and clang, the visibility pragma;
 *     zot_conf_ext.h also uses their attributes.
 */
#ifndef ZOT_CONF_H
#define ZOT_CONF_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* ------------------------------------------------------------------------------- constants */

/** Major interface version: increases when programs must be changed or rebuilt. */
#define ZOT_CONF_VERSION_MAJOR 1
/** Minor interface version: increases when something is added. */
#define ZOT_CONF_VERSION_MINOR 1
/** Patch level: increases when only behaviour is corrected. */
#define ZOT_CONF_VERSION_PATCH 0

/** Every status: name, number, and the text recorded when a call supplies none (NULL: no text). */
#define ZOT_STATUS_MAP(X)                                          \
  X(ZOT_ERR_TIMEOUT, -11, "Operation timeout")                     \
  X(ZOT_ERR_NULL_INPUT, -9, "NULL input")                          \
  X(ZOT_ERR_WRONG_INPUT, -5, "Wrong input value")                  \
  X(ZOT_ERR_CORRUPTED, -8, "Configuration file corrupted")         \
  X(ZOT_ERR_RET_TOO_BIG, -7, "Return size too big")                \
  X(ZOT_ERR_REMOTE_UNAVAIL, -6, "Remote Service is not available") \
  X(ZOT_ERR_UNKNOWN_OPT, -4, "Unknown options")                    \
  X(ZOT_ERR_NOMEM, -3, "Out of memory")                            \
  X(ZOT_NO_UPDATE, 2, "No update file")                            \
  X(ZOT_ERR_GENERIC, -1, "Generic error")                          \
  X(ZOT_OK, 0, "Success")                                          \
  X(ZOT_ERR_OUT_OF_RANGE, -10, NULL)                               \
  X(ZOT_ERR_NO_CACHE, -12, NULL)                                   \
  X(ZOT_ERR_SAME_AS_CORRUPTED, -13, NULL)                          \
  X(ZOT_ERR_NOT_READY, -14, NULL)                                  \
  X(ZOT_ERR_NO_FILE, -15, NULL)                                    \
  X(ZOT_ERR_NOT_FOUND, -16, NULL)

/**
 * Status codes.
 *
 * | name | number | when |
 * |---|---|---|
 * | ZOT_OK | 0 | the call succeeded |
 * | ZOT_NO_UPDATE | 2 | the published configuration is already in force; not an error |
 * | ZOT_ERR_GENERIC | -1 | a file or process operation failed; the text names it |
 * | ZOT_ERR_NOMEM | -3 | an allocation failed |
 * | ZOT_ERR_UNKNOWN_OPT | -4 | an option, parameter or mark is outside its range |
 * | ZOT_ERR_WRONG_INPUT | -5 | an argument is invalid |
 * | ZOT_ERR_REMOTE_UNAVAIL | -6 | no answer, an incomplete answer, or the GPB files were refused |
 * | ZOT_ERR_RET_TOO_BIG | -7 | reserved |
 * | ZOT_ERR_CORRUPTED | -8 | a file differs from what was announced |
 * | ZOT_ERR_NULL_INPUT | -9 | an argument is missing |
 * | ZOT_ERR_OUT_OF_RANGE | -10 | the sub-system index is longer than an adapter accepts |
 * | ZOT_ERR_TIMEOUT | -11 | a transfer exceeded its time limit, or a directory stayed locked |
 * | ZOT_ERR_NO_CACHE | -12 | the cache has nothing to return |
 * | ZOT_ERR_SAME_AS_CORRUPTED | -13 | the service still offers the K that was rolled back |
 * | ZOT_ERR_NOT_READY | -14 | zot_conf_get() must be called first |
 * | ZOT_ERR_NO_FILE | -15 | no K of that kind is saved |
 * | ZOT_ERR_NOT_FOUND | -16 | the service does not know the file (404) |
 */
typedef enum zot_status {
#define ZOT_STATUS_ENUM(name, code, text) name = (code),
  ZOT_STATUS_MAP(ZOT_STATUS_ENUM)
#undef ZOT_STATUS_ENUM
} zot_status;

/** Change bits of an entry, and request bits of zot_conf_get(). */
enum {
  ZOT_STAT_UNCHANGED = 0x02, /**< in both configurations, same version */
  ZOT_STAT_DELETED = 0x04,   /**< only in the configuration in force */
  ZOT_STAT_ADDED = 0x08,     /**< only in the new configuration */
  ZOT_STAT_MODIFIED = 0x10,  /**< in both, different version or different cluster */
  ZOT_STAT_FULL = 0x20,  /**< request: every entry that is not deleted, whatever the other change
                            bits are; the returned entries have this value as their stat */
  ZOT_STAT_CACHED = 0x40 /**< request: return the cached entries, whatever their change, and do not
                            check for an update; all other bits are ignored */
};

/** Which K zot_util_get_k_meta() reads. */
enum {
  ZOT_K_NEW = 0,     /**< the K that the last get fetched, also after its rollback */
  ZOT_K_CURRENT = 1, /**< the K in force */
  ZOT_K_LAST = 2     /**< the previous K; after a get without update, the K in force */
};

/** Cycle state bits (zot_core_stat::state). zot_util_is_new_conf() evaluates them. */
enum {
  ZOT_CYCLE_NEW_CONF = 0x04,       /**< the last get fetched a new configuration */
  ZOT_CYCLE_SAME_K = 0x08,         /**< the last get found nothing new */
  ZOT_CYCLE_DONE_ROLL_BACK = 0x10, /**< this cycle was rolled back */
  ZOT_CYCLE_DONE_COMMIT = 0x20     /**< this cycle was committed */
};

/** Log levels. */
enum {
  ZOT_LOG_ERROR = 0, /**< an operation failed */
  ZOT_LOG_WARN = 1,  /**< an unexpected condition; the call continues */
  ZOT_LOG_INFO = 2,  /**< the steps of a call */
  ZOT_LOG_DEBUG = 3  /**< paths, sizes, addresses, commands */
};

/** Log destinations. */
enum {
  ZOT_LOG_DST_SYSLOG = 0, /**< syslog */
  ZOT_LOG_DST_STDOUT = 1, /**< standard output */
  ZOT_LOG_DST_STDERR = 2, /**< standard error */
  ZOT_LOG_DST_FP = 3,     /**< a stream that the caller supplies */
  ZOT_LOG_DST_PATH = 4,   /**< a file, opened for appending at the first message */
  ZOT_LOG_DST_CB_FUNC = 5 /**< a callback */
};

/** Log prefix options. */
enum {
  ZOT_LOG_OPT_FUNC = 1, /**< the function name */
  ZOT_LOG_OPT_LINE = 2  /**< the source line */
};

/** Log topics; a message may carry several. */
enum {
  ZOT_TOPIC_GENERAL = 0x01,  /**< messages without another topic */
  ZOT_TOPIC_FILE = 0x02,     /**< files and directories */
  ZOT_TOPIC_TRANSFER = 0x04, /**< HTTP transfers */
  ZOT_TOPIC_K = 0x08,        /**< knowledge files */
  ZOT_TOPIC_GPB = 0x10,      /**< GPB files */
  ZOT_TOPIC_RELEASE = 0x40,  /**< release of memory */
  ZOT_TOPIC_DETAIL = 0x80,   /**< one message per list entry; off by default */
  ZOT_TOPIC_DEFAULT = 0x7f   /**< every topic except ZOT_TOPIC_DETAIL */
};

/** Parameters of zot_parm_set() and zot_parm_get(). */
typedef enum zot_parm_id {
  ZOT_PARM_TIMEOUT = 1,     /**< uint32_t, seconds, one limit for each of: K, its checksum, a locked
                               directory; 0: no limit */
  ZOT_PARM_TIMEOUT_GPB = 2, /**< uint32_t, seconds for GPB files; for use by adapters, but the
                               access-point adapter sets no limit */
  ZOT_PARM_RETURN_PROTO_TYPE = 3,       /**< uint32_t, 0 or 1; stored, not used by the library */
  ZOT_PARM_LOG_DESTINATION = 4,         /**< uint32_t, ZOT_LOG_DST_… */
  ZOT_PARM_LOG_DESTINATION_FP = 5,      /**< set: the FILE * itself; get: a FILE ** */
  ZOT_PARM_LOG_DESTINATION_PATH = 6,    /**< the path as text */
  ZOT_PARM_LOG_DESTINATION_CB_FUNC = 7, /**< zot_log_cb_func */
  ZOT_PARM_LOG_LEVEL = 8,               /**< uint32_t, ZOT_LOG_ERROR to ZOT_LOG_DEBUG */
  ZOT_PARM_LOG_FACILITY = 9,            /**< uint32_t, ZOT_TOPIC_… bits, masked with 0x7f */
  ZOT_PARM_LOG_OPTION = 10,             /**< uint32_t, ZOT_LOG_OPT_… bits */
  ZOT_PARM_LOG_CTL = 11,                /**< zot_log_ctl */
  ZOT_PARM_ALL = 12                     /**< zot_parm_all */
} zot_parm_id;

/** Every category: constant, number and name. The numbers are part of the interface. */
/* clang-format off */
#define ZOT_CATEGORY_MAP(X) \
  X(ACCESS_LIST, 0, "AccessList") X(AP, 1, "Ap") X(AP_GROUP, 2, "ApGroup") X(ALARM, 3, "Alarm") \
  X(CLUSTER, 4, "Cluster") X(CERTIFICATE, 5, "Certificate") X(DP, 6, "Dp") \
  X(DP_GROUP, 7, "DpGroup") X(DHCP_POOL, 8, "DhcpPool") X(DHCP_SERVER, 9, "DhcpServer") \
  X(DNS_SERVER, 10, "DnsServer") X(ETHERNET_PORT, 11, "EthernetPort") \
  X(FIREWALL_POLICY, 12, "FirewallPolicy") X(LOCATION, 13, "Location") X(SYSTEM, 14, "System") \
  X(TENANT, 15, "Tenant") X(TUNNEL, 16, "Tunnel") X(USER, 17, "User") X(WLAN, 18, "Wlan") \
  X(WLAN_GROUP, 19, "WlanGroup") X(ZONE, 20, "Zone") X(AUTH_SERVER, 21, "AuthServer") \
  X(AUTH_POLICY, 22, "AuthPolicy") X(ACCOUNTING_SERVER, 23, "AccountingServer") \
  X(ADMINISTRATOR, 24, "Administrator") X(ADMIN_ROLE, 25, "AdminRole") \
  X(APPLICATION_RULE, 26, "ApplicationRule") X(BAND_STEERING, 27, "BandSteering") \
  X(BLOCKED_CLIENT, 28, "BlockedClient") X(BRIDGE, 29, "Bridge") X(CALENDAR, 30, "Calendar") \
  X(CHANNEL_PLAN, 31, "ChannelPlan") X(CLIENT_ISOLATION, 32, "ClientIsolation") \
  X(COUNTRY_CODE, 33, "CountryCode") X(DEVICE_POLICY, 34, "DevicePolicy") \
  X(DISCOVERY, 35, "Discovery") X(EVENT_FILTER, 36, "EventFilter") \
  X(FIRMWARE_PLAN, 37, "FirmwarePlan") X(GUEST_PASS, 38, "GuestPass") \
  X(GUEST_PORTAL, 39, "GuestPortal") X(IDENTITY_PROVIDER, 40, "IdentityProvider") \
  X(INTERFACE, 41, "Interface") X(IP_POOL, 42, "IpPool") X(KEY_STORE, 43, "KeyStore") \
  X(LICENSE, 44, "License") X(LINK_AGGREGATION, 45, "LinkAggregation") \
  X(LOAD_BALANCING, 46, "LoadBalancing") X(LOG_SERVER, 47, "LogServer") \
  X(MAC_FILTER, 48, "MacFilter") X(MESH, 49, "Mesh") X(MULTICAST, 50, "Multicast") \
  X(NAT_RULE, 51, "NatRule") X(ORB_CERT, 52, "OrbCert") X(NEIGHBOR, 53, "Neighbor") \
  X(NETWORK, 54, "Network") X(NTP_SERVER, 55, "NtpServer") \
  X(PARENTAL_CONTROL, 56, "ParentalControl") X(PORT_PROFILE, 57, "PortProfile") \
  X(POWER_POLICY, 58, "PowerPolicy") X(PRE_SHARED_KEY, 59, "PreSharedKey") X(PROXY, 60, "Proxy") \
  X(QOS_POLICY, 61, "QosPolicy") X(RADIO, 62, "Radio") X(RATE_LIMIT, 63, "RateLimit") \
  X(ROAMING, 64, "Roaming") X(ROGUE_POLICY, 65, "RoguePolicy") X(ROUTE, 66, "Route") \
  X(SCHEDULE, 67, "Schedule") X(SNMP_AGENT, 68, "SnmpAgent") X(SPANNING_TREE, 69, "SpanningTree") \
  X(SPECTRUM_SCAN, 70, "SpectrumScan") X(STATIC_HOST, 71, "StaticHost") \
  X(TELEMETRY, 72, "Telemetry") X(TRAFFIC_CLASS, 73, "TrafficClass") \
  X(TRUST_ANCHOR, 74, "TrustAnchor") X(URL_FILTER, 75, "UrlFilter") X(USER_GROUP, 76, "UserGroup") \
  X(VLAN, 77, "Vlan") X(VLAN_POOL, 78, "VlanPool") X(VPN, 79, "Vpn")
/* clang-format on */

/** Configuration categories: ZOT_CAT_AP, ZOT_CAT_WLAN and so on. */
typedef enum zot_category {
#define ZOT_CATEGORY_ENUM(constant, value, name) ZOT_CAT_##constant = (value),
  ZOT_CATEGORY_MAP(ZOT_CATEGORY_ENUM)
#undef ZOT_CATEGORY_ENUM
      ZOT_CAT_COUNT /**< number of categories */
} zot_category;

/** Limits. A …_LEN excludes the terminator, a …_SIZE includes it. */
enum {
  ZOT_SUBSYS_ID_LEN = 63, /**< sub-system ID */
  ZOT_SUB_IDX_LEN = 52,   /**< sub-system index that the handle keeps */
  ZOT_SUB_NAME_LEN = 17,  /**< sub-system index that an adapter uses */
  ZOT_ERR_STR_SIZE = 512, /**< text of a status */
  ZOT_PATH_SIZE = 4096,   /**< a path */
  ZOT_KEY_LEN = 52,       /**< key of a GPB entry */
  ZOT_UUID_LEN = 36,      /**< cluster ID and config ID */
  ZOT_FIRMWARE_LEN = 511, /**< firmware version */
  ZOT_REMOTE_PORT = 8087  /**< port of the service unless the environment names another */
};

/* ----------------------------------------------------------------------------------- types */

/** Node or head of a circular, doubly linked list. Each record in a list contains a node. */
typedef struct zot_list {
  struct zot_list *next; /**< the next node; in a head: the first node */
  struct zot_list *prev; /**< the previous node; in a head: the last node */
} zot_list;

/** Set of categories: category c is bit c % 32 of word[c / 32]. */
typedef struct zot_catset {
  uint32_t word[32]; /**< 1024 bits; the first 80 stand for categories */
} zot_catset;

struct zot_ctx;
/** The library handle. */
typedef struct zot_ctx zot_ctx;
struct zot_log_ctx;
/** The log of a handle, as passed to a log callback. */
typedef struct zot_log_ctx zot_log_ctx;

/** Origin, level and topics of a message. */
typedef struct zot_log_site {
  uint32_t level;   /**< ZOT_LOG_ERROR to ZOT_LOG_DEBUG */
  uint32_t mask;    /**< ZOT_TOPIC_… bits */
  long line;        /**< source line */
  const char *func; /**< function name, static */
} zot_log_site;

/** Log callback. @p line is the formatted message with its prefix, valid during the callback. The
 *  result is ignored. It runs on the thread of the logging call and must not use the handle. */
typedef int zot_log_cb(zot_log_ctx *log_ctx, void *arg, const char *line);

/** Log settings. zot_util_init_log_ctl() fills in the defaults. */
typedef struct zot_log_ctl {
  uint32_t facility; /**< topics to write, ZOT_TOPIC_… bits */
  uint32_t option;   /**< ZOT_LOG_OPT_… bits of the prefix */
  uint32_t level;    /**< highest level written */
  uint32_t dst;      /**< ZOT_LOG_DST_… */
  FILE *fp;          /**< stream for ZOT_LOG_DST_FP, borrowed */
  const char *path;  /**< file for ZOT_LOG_DST_PATH; a handle keeps its own copy */
  zot_log_cb *cb;    /**< function for ZOT_LOG_DST_CB_FUNC */
  void *cb_arg;      /**< passed to cb, borrowed */
} zot_log_ctl;

/** Transfer callback, see zot_util_watch_transfers(). @p arg is the pointer that was set with the
 *  callback. @p received is the number of body bytes of the current transfer so far, 0 at first.
 *  @return 0 to continue; any other value ends the transfer. */
typedef int (*zot_transfer_cb)(void *arg, uint64_t received);

/** Value of #ZOT_PARM_LOG_DESTINATION_CB_FUNC. */
typedef struct zot_log_cb_func {
  zot_log_cb *cb; /**< the function */
  void *cb_arg;   /**< passed to it, borrowed */
} zot_log_cb_func;

/** Every parameter that the creation of a handle takes. */
typedef struct zot_parm_all {
  uint32_t timeout;     /**< seconds for K, checksum and a locked directory; 0: no limit */
  uint32_t timeout_gpb; /**< seconds for GPB files; see #ZOT_PARM_TIMEOUT_GPB */
  zot_log_ctl log_ctl;  /**< which messages are written, and where */
} zot_parm_all;

/** Statistics of one cycle. Every update check resets them to zero first. */
typedef struct zot_core_stat {
  uint32_t state;         /**< ZOT_CYCLE_… bits */
  uint32_t reserved;      /**< 0 */
  uint64_t bytes_written; /**< bytes of downloads, and bytes written by copies */
  uint64_t bytes_read;    /**< bytes of cached files, and bytes read by copies */
} zot_core_stat;

/** Metadata of a K. */
typedef struct zot_k_meta {
  char firmware_version[ZOT_FIRMWARE_LEN + 1]; /**< empty when K has none */
  char config_id[ZOT_UUID_LEN + 1];            /**< empty when K has none */
  char cluster_id[ZOT_UUID_LEN + 1];           /**< every K has one */
} zot_k_meta;

/** One entry of a returned list. The node comes first, so it has the address of the entry. */
typedef struct zot_ret_data {
  zot_list node;             /**< links the entry into the returned list */
  char key[ZOT_KEY_LEN + 1]; /**< name of the object within its category */
  int32_t category;          /**< zot_category; zot_util_cat2str() gives its name */
  uint32_t stat;             /**< one ZOT_STAT_… bit */
  const void *data;          /**< the bytes of the file, not NUL-terminated; the handle owns them;
                                NULL when deleted */
  uint32_t size;             /**< number of bytes at data */
} zot_ret_data;

#ifdef __cplusplus
#define ZOT_STATIC_ASSERT_ static_assert
#else
#define ZOT_STATIC_ASSERT_ _Static_assert
#endif
ZOT_STATIC_ASSERT_(sizeof(zot_core_stat) == 24, "statistics are 24 bytes");
ZOT_STATIC_ASSERT_(sizeof(zot_k_meta) == 586, "K metadata is 586 bytes");
ZOT_STATIC_ASSERT_(sizeof(void *) != 4 || sizeof(zot_log_ctl) == 32, "log control is 32 bytes");
ZOT_STATIC_ASSERT_(sizeof(void *) != 4 || sizeof(zot_parm_all) == 40, "parameters are 40 bytes");
#undef ZOT_STATIC_ASSERT_

/* ----------------------------------------------------------------------------------- cycle */

/**
 * Creates a handle.
 *
 * Applies the log settings of @p parm first, so that start-up messages use them too. Then computes
 * the two directories from the environment and creates them. Loads nothing from the cache. If an
 * earlier process ended in the middle of a commit, the call restores the configuration from before
 * that commit, unless another process has the cache locked.
 *
 * The call and every later get read these environment variables. An empty variable counts as unset:
 *
 * | variable | effect | unset |
 * |---|---|---|
 * | ZOT_PREFIX_CONF_ROOT | persistent cache: this prefix plus "/writable/zot/" | no prefix |
 * | ZOT_PREFIX_TMP_ROOT | scratch directory: this prefix plus "/tmp/zot" | no prefix |
 * | ZOT_REMOTE_PORT | port of the service on 127.0.0.1; a number below 1 counts as unset | 8087 |
 * | ZOT_DEV_PATH | dev mode for the life of the handle: read K here, fetch nothing | off |
 *
 * The call refuses a directory name with characters that a shell interprets.
 *
 * Of @p subsys_id and @p sub_idx, only the lengths are checked. The access-point adapter puts both
 * into its URLs without escaping, so use only letters, digits and any of "-._:".
 *
 * @param subsys_id "AP", "CP" or "DP"; any text of at most 63 bytes is accepted. NULL means "AP".
 * @param sub_idx   index of the element, such as the MAC address of an access point. Copied up to a
 *                  NUL; NULL means an empty index. Adapters use its first 17 bytes, in upper case.
 * @param id_len    bytes of @p sub_idx to use, at most 52
 * @param parm      parameters; zot_util_init_conf_parm() fills in the defaults. The path of the log
 *                  control is copied; its stream and callback argument are borrowed.
 * @return the handle, which the caller owns until zot_conf_free(); NULL on failure, with the reason
 *         in the log.
 */
zot_ctx *zot_conf_init_args(const char *subsys_id, const char *sub_idx, size_t id_len,
                            zot_parm_all parm);

/** zot_conf_init_args() with the default parameters. */
zot_ctx *zot_conf_init2(const char *subsys_id, const char *sub_idx, size_t id_len);

/** zot_conf_init2() for an access point. */
zot_ctx *zot_conf_init(const char *sub_idx, size_t id_len);

/**
 * Looks for a new configuration and returns the entries that the caller asks for.
 *
 * The entries belong to the configuration in force, or to the new one that this get fetched. A get
 * first completes a failed commit of this handle. If that fails again, the get undoes the commit,
 * and the configuration counts as new again. A get changes the configuration in force in no other
 * way. It discards an earlier new configuration that was neither committed nor rolled back.
 *
 * Blocks while it downloads. The transfer of the GPB files has no time limit. Transfers of several
 * handles must not overlap: run only one get at a time in a process. The result is #ZOT_OK with and
 * without an update. zot_util_is_new_conf() returns whether a new configuration waits for a commit
 * or rollback. The stat of each entry is its change.
 *
 * While the cache has no K, as on a new element, a get logs one line at error level that ends in
 * "[zot_priv_verify_k_file]: No such file or directory". This is not a failure.
 *
 * @param catset         categories to return
 * @param conf_stat_mask which changes to return: ZOT_STAT_… bits, not 0
 * @param[out] ret       the returned list, which the caller owns until zot_conf_free_ret_data().
 *                       NULL when the call fails; unchanged when @p handle is NULL. The handle owns
 *                       the bytes of the entries. They stay valid until its next get, commit,
 *                       rollback or free, and are not NUL-terminated.
 * @return
 *  - #ZOT_OK: @p ret has the entries, possibly none.
 *  - #ZOT_ERR_SAME_AS_CORRUPTED: the service still offers the K that was rolled back. @p ret has
 *    the entries of the configuration in force, or none if there is none, and must be freed. If
 *    another process committed since the last get, its configuration is returned with this status,
 *    and no later get reports it as new.
 *  - #ZOT_ERR_NULL_INPUT: no handle or no @p ret (nothing is recorded), or K has no checksum for a
 *    file.
 *  - #ZOT_ERR_WRONG_INPUT: @p conf_stat_mask is 0, a directory name has characters that a shell
 *    interprets, or K has size 0 for a file.
 *  - #ZOT_ERR_NO_CACHE: #ZOT_STAT_CACHED was requested, but no configuration is in force or new, or
 *    it has no entry in @p catset.
 *  - #ZOT_ERR_TIMEOUT: the service timed out, or a directory stayed locked.
 *  - #ZOT_ERR_REMOTE_UNAVAIL, #ZOT_ERR_NOT_FOUND: the service did not answer, or does not know this
 *    element.
 *  - #ZOT_ERR_CORRUPTED: a K, a checksum or a GPB file differs from what was announced, or the
 *    scratch directory was created anew during the call.
 *  - #ZOT_ERR_NO_FILE: dev mode is on, and its directory has no checksum file of K.
 *  - #ZOT_ERR_NOMEM, #ZOT_ERR_GENERIC: an operation on memory, files or processes failed, or the
 *    service answered the request for K or its checksum with a response other than 200 and 404.
 */
int zot_conf_get(zot_ctx *handle, zot_catset catset, uint32_t conf_stat_mask, zot_list **ret);

/** Iterates over a returned list, which may be NULL: `ZOT_FOR_EACH_RET_DATA(entry, list) { … }`.
 *  Declares @p entry, a `const zot_ret_data *`. @p list is evaluated several times. */
#define ZOT_FOR_EACH_RET_DATA(entry, list)                                                 \
  for (const zot_ret_data *entry = (const zot_ret_data *)((list) ? (list)->next : (list)); \
       (const zot_list *)entry != (list); entry = (const zot_ret_data *)entry->node.next)

/**
 * Accepts the configuration that the last get fetched. It becomes the current one, in memory and in
 * the persistent cache; the previous one becomes the last one. The cache is on the storage medium
 * before the call returns #ZOT_OK. The call uses the directories of that get, even if the
 * environment has changed since.
 *
 * At every moment, the cache has either the complete old or the complete new configuration. After a
 * kill or a power failure, the next process finds the old one unless the commit was complete. With
 * an adapter's own commit_gpb, this applies to the K files only. If the medium has no space for
 * the old and the new files together, the call removes the old ones first and logs a warning. If
 * it has no space for the new files at all, nothing changes.
 *
 * @return
 *  - #ZOT_OK: committed, or this cycle was already committed or rolled back, or dev mode is on.
 *  - #ZOT_NO_UPDATE: the last get found nothing new.
 *  - #ZOT_ERR_NOT_READY: no zot_conf_get() has succeeded before.
 *  - #ZOT_ERR_WRONG_INPUT, #ZOT_ERR_NULL_INPUT: no temporary configuration; no handle.
 *  - #ZOT_ERR_TIMEOUT: another process kept a directory locked. Nothing changed.
 *  - #ZOT_ERR_CORRUPTED: a get of another handle replaced the files in the scratch directory.
 *    Nothing changed; the next get fetches this configuration again.
 *  - #ZOT_ERR_CORRUPTED: since the get, some process committed another configuration or rolled one
 *    back. Nothing changed; the next get returns the configuration that is in force now.
 *  - #ZOT_ERR_GENERIC: not enough space. Nothing changed; the text has the sizes.
 *  - #ZOT_ERR_GENERIC, #ZOT_ERR_NOMEM, #ZOT_ERR_CORRUPTED, #ZOT_ERR_NO_FILE, or the status of an
 *    adapter's own commit: a file operation failed. The new configuration is current in memory.
 *    Call again in the same cycle to write all files again. Otherwise zot_conf_get() completes or
 *    undoes the commit, and zot_conf_roll_back() or another process undoes it.
 */
int zot_conf_commit(zot_ctx *handle);

/**
 * Rejects the configuration that the last get fetched. The configuration in force stays. The new K
 * is saved as corrupted: zot_conf_get() returns #ZOT_ERR_SAME_AS_CORRUPTED while the service still
 * offers it. The last K is removed from memory and from the cache, so #ZOT_K_LAST finds none. If a
 * commit of this cycle failed, the call undoes it first. The cache is on the storage medium before
 * the call returns #ZOT_OK.
 *
 * @return
 *  - #ZOT_OK: rolled back, or this cycle was already committed or rolled back, or dev mode is on.
 *  - #ZOT_NO_UPDATE: the last get found nothing new, or this K is already saved as corrupted.
 *  - #ZOT_ERR_NOT_READY: no zot_conf_get() has succeeded before.
 *  - #ZOT_ERR_NULL_INPUT: no handle, or no temporary K.
 *  - #ZOT_ERR_TIMEOUT: another process kept a directory locked. Nothing changed.
 *  - #ZOT_ERR_CORRUPTED: a get of another handle replaced the files in the scratch directory, or
 *    this configuration is already in force: nothing changed. Or a copy differs from the original.
 *  - #ZOT_ERR_GENERIC, #ZOT_ERR_NOMEM, #ZOT_ERR_NO_FILE: a file operation failed. The call may be
 *    repeated.
 */
int zot_conf_roll_back(zot_ctx *handle);

/**
 * Frees a returned list with its entries. The handle keeps the bytes. Success records nothing, so
 * the last status of the handle stays. A NULL list, as after a failed get, is an error that
 * replaces the status and text of that get: call this function only with a list.
 *
 * @param handle   the handle that returned the list; with NULL the list is freed without a log line
 * @param[in,out] ret the list; set to NULL
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT, recorded, when @p ret or the list is NULL. When both @p ret
 *         and the handle are NULL, it aborts (programming error).
 */
int zot_conf_free_ret_data(zot_ctx *handle, zot_list **ret);

/** Releases a handle and all that it owns. Free the returned lists first.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT without a handle. */
int zot_conf_free(zot_ctx *handle);

/* --------------------------------------------------------------------------------- utility */

/** The last status of the handle. @return the status; #ZOT_ERR_WRONG_INPUT without a handle. */
int zot_util_get_err(const zot_ctx *handle);

/** The text of the last status, at most 511 bytes, until the next call. @p handle is not NULL. */
const char *zot_util_get_err_str(const zot_ctx *handle);

/** The sub-system index as given at creation. @p handle is not NULL. */
const char *zot_util_get_sub_idx(const zot_ctx *handle);

/** Whether a status is an error, that is, negative. */
bool zot_util_is_err(int code);

/** Name of a category, static; NULL for a value that is not a category. */
const char *zot_util_cat2str(int32_t category);

/** Whether a new configuration waits for zot_conf_commit() or zot_conf_roll_back(): from its get
 *  until one of them succeeds or a later get discards it. Dev mode has neither, so the result
 *  stays true there. Reads only the memory of the handle: only the commit detects what another
 *  process decided meanwhile. Records nothing. @return false without a handle. */
bool zot_util_is_new_conf(const zot_ctx *handle);

/** Copies the statistics of the current cycle: state and bytes, zero before the first get. Records
 *  nothing. Like any call, it must run on the thread that uses the handle.
 *  @param[out] stat the copy, unchanged on failure
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT without @p handle or @p stat. */
int zot_util_get_conf_stat(const zot_ctx *handle, zot_core_stat *stat);

/**
 * Copies the metadata of a K.
 *
 * @param[out] dst the copy
 * @param which    #ZOT_K_NEW, or #ZOT_K_CURRENT or #ZOT_K_LAST from the cache
 * @return #ZOT_OK, or
 *  - #ZOT_ERR_NULL_INPUT: no @p dst or no handle. Without both, it aborts (programming error).
 *  - #ZOT_ERR_WRONG_INPUT: another value of @p which.
 *  - #ZOT_ERR_NOT_READY: #ZOT_K_NEW before a completed zot_conf_get().
 *  - #ZOT_ERR_NO_CACHE: there is no such K.
 *  - #ZOT_ERR_TIMEOUT: another process kept a directory locked.
 *  - #ZOT_ERR_GENERIC: @p dst is the metadata of that K itself.
 */
int zot_util_get_k_meta(zot_ctx *handle, zot_k_meta *dst, int which);

/** Fills in the default parameters: 5 and 30 seconds, and the log control of
 *  zot_util_init_log_ctl(). NULL does nothing. */
void zot_util_init_conf_parm(zot_parm_all *parm);

/** Fills in the default log control: topics 0x7f, function names, errors and warnings, standard
 *  error. NULL does nothing. */
void zot_util_init_log_ctl(zot_log_ctl *ctl);

/** Directs a log control to a stream, which it borrows. @return 0; -1 when either is NULL. */
int zot_util_set_log_ctl_dst_fp(zot_log_ctl *ctl, FILE *stream);

/** Directs a log control to a file. Stores the pointer; zot_parm_set() and creation copy the text.
 *  @return 0; -1, with nothing changed, when either is NULL or the path is empty. */
int zot_util_set_log_ctl_dst_path(zot_log_ctl *ctl, const char *path);

/** Directs a log control to a callback. @return 0; -1 when @p ctl or @p cb is NULL. */
int zot_util_set_log_ctl_dst_cb_func(zot_log_ctl *ctl, zot_log_cb *cb, void *cb_arg);

/** In a log callback: level, topics, line and function of the message. Empty for a NULL context. */
zot_log_site zot_util_log_cb_func_get_conf_stat(const zot_log_ctx *log_ctx);

/**
 * Watches the later transfers of the calling thread, on any handle. The library calls the callback
 * when data arrives, and about once a second otherwise, starting with the first attempt to connect.
 * The callback can kick a watchdog, enforce a deadline, or end the transfer for a shutdown. Nothing
 * else ends a stalled download of GPB files, which has no time limit.
 *
 * The callback runs on the thread of the transfer, inside the call. It must return soon and must
 * not use the handle. It may call this function: NULL leaves the rest of the transfer unwatched.
 * Each thread has its own callback, until the thread ends. The commands that unpack and copy files
 * are not watched. Resolving a host name may delay the callback; an access point resolves none.
 *
 * A transfer that the callback ends fails like a broken connection: zot_conf_get() returns
 * #ZOT_ERR_REMOTE_UNAVAIL, the configuration in force stays, and the next get starts again. The
 * transfer helpers of zot_conf_ext.h return CURLE_ABORTED_BY_CALLBACK of libcurl.
 *
 * @param cb  the callback, which replaces an earlier one of this thread; NULL: none
 * @param arg passed to the callback, borrowed until another callback is set
 */
void zot_util_watch_transfers(zot_transfer_cb cb, void *arg);

/** Adds all 80 categories to a set. @return #ZOT_OK; #ZOT_ERR_NULL_INPUT without a set. */
int zot_catset_set_all(zot_catset *catset);

/** Adds a category to a set. @return #ZOT_OK; #ZOT_ERR_NULL_INPUT without a set;
 *  #ZOT_ERR_WRONG_INPUT for a value that is not a category. */
int zot_catset_add(zot_catset *catset, int32_t category);

/** Whether a set contains a category; false for a NULL set and a value that is not a category. */
bool zot_catset_has(const zot_catset *catset, int32_t category);

/* ------------------------------------------------------------------------------ parameters */

/**
 * Changes a parameter.
 *
 * @param id      a #zot_parm_id
 * @param val     the value, of the type listed with the id. For #ZOT_PARM_LOG_DESTINATION_FP it is
 *                the stream itself. For #ZOT_PARM_LOG_DESTINATION_PATH it is the text, copied.
 * @param val_len bytes at @p val; sizeof(FILE *) for #ZOT_PARM_LOG_DESTINATION_FP. Parameters 2, 3,
 *                4, 8 and 10 accept a shorter value, copied to the start of a zeroed word.
 * @return #ZOT_OK, or
 *  - #ZOT_ERR_NULL_INPUT: no handle, no @p val, or a log control without its stream, path or
 *    callback.
 *  - #ZOT_ERR_WRONG_INPUT: @p val_len is 0 or too short, an empty path, no callback, or a handle
 *    without parameters.
 *  - #ZOT_ERR_UNKNOWN_OPT: unknown id, or a value outside its range; #ZOT_ERR_NOMEM.
 */
int zot_parm_set(zot_ctx *handle, int id, const void *val, size_t val_len);

/** Reads a parameter. @param[out] val the value. A log control borrows the path from the handle.
 *  @param val_len bytes at @p val; a path needs its length plus one. An unset path copies nothing.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT without handle or @p val; #ZOT_ERR_WRONG_INPUT when
 *  @p val_len is 0 or too short, or for a handle without parameters; #ZOT_ERR_UNKNOWN_OPT for an
 *  unknown id. */
int zot_parm_get(zot_ctx *handle, int id, void *val, size_t val_len);

/** Name of a parameter ("ZOT_PARM_TIMEOUT"), static; an empty text for an unknown id. */
const char *zot_util_parm2str(int id);

/* ------------------------------------------------------------------------------------ list */

/** Whether a list has no node. @p head is not NULL. */
bool zot_list_is_empty(const zot_list *head);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#ifndef ZOT_CONF_CLIENT
#include "zot_conf_ext.h"
#endif

#endif /* ZOT_CONF_H */
