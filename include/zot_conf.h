/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file zot_conf.h
 * @brief Configuration cache for managed network elements: the public interface of libzotconf.
 *
 * A service process creates one handle, then runs cycles: zot_conf_get() fetches and verifies the
 * configuration that the controller published and says what changed, the process applies it and
 * answers with zot_conf_commit() or zot_conf_roll_back(), and gives the returned list back with
 * zot_conf_free_ret_data().
 *
 * Conventions, which hold wherever a declaration says nothing else:
 *
 *  1. Ownership. The caller owns a handle from zot_conf_init() to zot_conf_free(), and a returned
 *     list until zot_conf_free_ret_data(). Bytes reached through a returned entry belong to the
 *     handle. Records come from calloc() and go back to free().
 *  2. Status. A call that takes a handle returns a #zot_status: 0 is success, a positive value is
 *     news and no error, a negative value is an error. The last status and its text stay in the
 *     handle (zot_util_get_err(), zot_util_get_err_str()) until the next call.
 *  3. Helpers without a handle return 0 or -1 and leave `errno` as the failing system call set it.
 *  4. Threads. The library starts no thread and takes no lock of the process. A handle belongs to
 *     one thread at a time; several handles may be used by several threads as long as no two
 *     transfers or shell commands run at the same moment. Transfers and commands block.
 *     Processes. Several handles, in one process or in several, may use the same directories: a
 *     call that touches them holds flock() on both until it returns. It waits for another one as
 *     long as #ZOT_PARM_TIMEOUT says (0: no limit), and then ends with #ZOT_ERR_TIMEOUT. A
 *     command that outlives its process, or that nobody could wait for, holds the locks until it
 *     ends. So does a child that another thread has forked during the call, when the process is
 *     killed before its call has ended.
 *  5. Strings are NUL-terminated and are copied; a text kept by reference is named as such. Sizes
 *     are bytes. A buffer size counts the terminator. Paths hold at most 4095 bytes.
 *  6. Null. A null handle is answered with #ZOT_ERR_NULL_INPUT and recorded nowhere. Exceptions
 *     are stated.
 *  7. Zero-fill every record that you hand in, so that fields added later read as absent.
 *  8. The calls named zot_priv_…, the adapter operations and the helpers are exported for
 *     sub-system adapters, tools and tests. A client needs the cycle, utility and parameter calls.
 */
#ifndef ZOT_CONF_H
#define ZOT_CONF_H

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

struct cJSON;
struct stat;

/* ------------------------------------------------------------------------------- constants */

/** Version of this interface: rises when a program has to be changed or rebuilt. */
#define ZOT_CONF_VERSION_MAJOR 1
/** Version of this interface: rises when something is added. */
#define ZOT_CONF_VERSION_MINOR 1
/** Version of this interface: rises when nothing but behaviour is mended. */
#define ZOT_CONF_VERSION_PATCH 0

/** Every status: name, number and the text recorded when a call gives none (NULL: it has none). */
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
 * | ZOT_OK | 0 | the call did what it says |
 * | ZOT_NO_UPDATE | 2 | the published configuration is the one in force; no error |
 * | ZOT_ERR_GENERIC | -1 | a file or process operation failed; the text names it |
 * | ZOT_ERR_NOMEM | -3 | an allocation failed |
 * | ZOT_ERR_UNKNOWN_OPT | -4 | an option, parameter or mark outside its range |
 * | ZOT_ERR_WRONG_INPUT | -5 | an argument that cannot be used |
 * | ZOT_ERR_REMOTE_UNAVAIL | -6 | the service did not answer, broke off, or refused the GPB files |
 * | ZOT_ERR_RET_TOO_BIG | -7 | reserved |
 * | ZOT_ERR_CORRUPTED | -8 | a file does not match what was announced for it |
 * | ZOT_ERR_NULL_INPUT | -9 | a missing argument |
 * | ZOT_ERR_OUT_OF_RANGE | -10 | the sub-system index is longer than an adapter takes |
 * | ZOT_ERR_TIMEOUT | -11 | a transfer passed its time limit, or a directory stayed locked |
 * | ZOT_ERR_NO_CACHE | -12 | nothing cached to return |
 * | ZOT_ERR_SAME_AS_CORRUPTED | -13 | the service still offers what was rolled back |
 * | ZOT_ERR_NOT_READY | -14 | zot_conf_get() has to come first |
 * | ZOT_ERR_NO_FILE | -15 | no saved K of that kind |
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
  ZOT_STAT_MODIFIED = 0x10,  /**< in both, other version or other cluster */
  ZOT_STAT_FULL = 0x20,  /**< request: every entry that is not deleted, whatever other change bits
                            say; also the stat of the entries so returned */
  ZOT_STAT_CACHED = 0x40 /**< request: no look for an update, return what is cached with any change;
                            all other bits are ignored */
};

/** Cache slots of a handle. */
enum {
  ZOT_SLOT_CURRENT = 0,   /**< the configuration in force */
  ZOT_SLOT_LAST = 1,      /**< the one before it; after a get without update, that one itself */
  ZOT_SLOT_TMP = 2,       /**< fetched, neither committed nor rolled back */
  ZOT_SLOT_CORRUPTED = 3, /**< rolled back */
  ZOT_SLOT_COUNT = 4      /**< number of slots */
};

/** Which K zot_util_get_k_meta() reads. */
enum {
  ZOT_K_NEW = 0,     /**< the fetched one, also after its roll-back */
  ZOT_K_CURRENT = 1, /**< the one in force */
  ZOT_K_LAST = 2     /**< the one before it; after a get without update, that one itself */
};

/** Cycle state bits (zot_core_stat::state). */
enum {
  ZOT_CYCLE_NEW_CONF = 0x04,       /**< a new configuration waits for the verdict */
  ZOT_CYCLE_SAME_K = 0x08,         /**< the last get brought nothing new */
  ZOT_CYCLE_DONE_ROLL_BACK = 0x10, /**< this cycle was rolled back */
  ZOT_CYCLE_DONE_COMMIT = 0x20     /**< this cycle was committed */
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

/** Flag of the K readers: an absent checksum file is expected and only logged. */
enum {
  ZOT_READ_K_OPTIONAL = 2 /**< the file may be absent */
};

/** Log levels. */
enum {
  ZOT_LOG_ERROR = 0, /**< the call fails */
  ZOT_LOG_WARN = 1,  /**< something is not as it should be, and the call goes on */
  ZOT_LOG_INFO = 2,  /**< the steps of a call */
  ZOT_LOG_DEBUG = 3  /**< paths, sizes, addresses, commands */
};

/** Log destinations. */
enum {
  ZOT_LOG_DST_SYSLOG = 0, /**< syslog */
  ZOT_LOG_DST_STDOUT = 1, /**< standard output */
  ZOT_LOG_DST_STDERR = 2, /**< standard error */
  ZOT_LOG_DST_FP = 3,     /**< a stream of the caller */
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
  ZOT_TOPIC_GENERAL = 0x01,  /**< what belongs to no other topic */
  ZOT_TOPIC_FILE = 0x02,     /**< files and directories */
  ZOT_TOPIC_TRANSFER = 0x04, /**< HTTP transfers */
  ZOT_TOPIC_K = 0x08,        /**< knowledge files */
  ZOT_TOPIC_GPB = 0x10,      /**< GPB files */
  ZOT_TOPIC_RELEASE = 0x40,  /**< release of memory */
  ZOT_TOPIC_DETAIL = 0x80,   /**< one message for each list entry; off by default */
  ZOT_TOPIC_DEFAULT = 0x7f   /**< every topic but the detail */
};

/** Parameters of zot_parm_set() and zot_parm_get(). */
typedef enum zot_parm_id {
  ZOT_PARM_TIMEOUT = 1, /**< uint32_t, seconds for K, for the checksum, and for a locked directory,
                           each; 0: no limit */
  ZOT_PARM_TIMEOUT_GPB = 2, /**< uint32_t, seconds for GPB files, for adapters; the access-point
                               adapter sets no limit */
  ZOT_PARM_RETURN_PROTO_TYPE = 3,    /**< uint32_t, 0 or 1; kept for the caller, nothing reads it */
  ZOT_PARM_LOG_DESTINATION = 4,      /**< uint32_t, ZOT_LOG_DST_… */
  ZOT_PARM_LOG_DESTINATION_FP = 5,   /**< set: the FILE * itself; get: a FILE ** */
  ZOT_PARM_LOG_DESTINATION_PATH = 6, /**< the path text */
  ZOT_PARM_LOG_DESTINATION_CB_FUNC = 7, /**< zot_log_cb_func */
  ZOT_PARM_LOG_LEVEL = 8,               /**< uint32_t, ZOT_LOG_ERROR to ZOT_LOG_DEBUG */
  ZOT_PARM_LOG_FACILITY = 9,            /**< uint32_t, ZOT_TOPIC_… bits, masked with 0x7f */
  ZOT_PARM_LOG_OPTION = 10,             /**< uint32_t, ZOT_LOG_OPT_… bits */
  ZOT_PARM_LOG_CTL = 11,                /**< zot_log_ctl */
  ZOT_PARM_ALL = 12                     /**< zot_parm_all */
} zot_parm_id;

/** Every category: constant, number and name. The numbers are part of the interface. */
#define ZOT_CATEGORY_MAP(X)                    \
  X(ACCESS_LIST, 0, "AccessList")              \
  X(AP, 1, "Ap")                               \
  X(AP_GROUP, 2, "ApGroup")                    \
  X(ALARM, 3, "Alarm")                         \
  X(CLUSTER, 4, "Cluster")                     \
  X(CERTIFICATE, 5, "Certificate")             \
  X(DP, 6, "Dp")                               \
  X(DP_GROUP, 7, "DpGroup")                    \
  X(DHCP_POOL, 8, "DhcpPool")                  \
  X(DHCP_SERVER, 9, "DhcpServer")              \
  X(DNS_SERVER, 10, "DnsServer")               \
  X(ETHERNET_PORT, 11, "EthernetPort")         \
  X(FIREWALL_POLICY, 12, "FirewallPolicy")     \
  X(LOCATION, 13, "Location")                  \
  X(SYSTEM, 14, "System")                      \
  X(TENANT, 15, "Tenant")                      \
  X(TUNNEL, 16, "Tunnel")                      \
  X(USER, 17, "User")                          \
  X(WLAN, 18, "Wlan")                          \
  X(WLAN_GROUP, 19, "WlanGroup")               \
  X(ZONE, 20, "Zone")                          \
  X(AUTH_SERVER, 21, "AuthServer")             \
  X(AUTH_POLICY, 22, "AuthPolicy")             \
  X(ACCOUNTING_SERVER, 23, "AccountingServer") \
  X(ADMINISTRATOR, 24, "Administrator")        \
  X(ADMIN_ROLE, 25, "AdminRole")               \
  X(APPLICATION_RULE, 26, "ApplicationRule")   \
  X(BAND_STEERING, 27, "BandSteering")         \
  X(BLOCKED_CLIENT, 28, "BlockedClient")       \
  X(BRIDGE, 29, "Bridge")                      \
  X(CALENDAR, 30, "Calendar")                  \
  X(CHANNEL_PLAN, 31, "ChannelPlan")           \
  X(CLIENT_ISOLATION, 32, "ClientIsolation")   \
  X(COUNTRY_CODE, 33, "CountryCode")           \
  X(DEVICE_POLICY, 34, "DevicePolicy")         \
  X(DISCOVERY, 35, "Discovery")                \
  X(EVENT_FILTER, 36, "EventFilter")           \
  X(FIRMWARE_PLAN, 37, "FirmwarePlan")         \
  X(GUEST_PASS, 38, "GuestPass")               \
  X(GUEST_PORTAL, 39, "GuestPortal")           \
  X(IDENTITY_PROVIDER, 40, "IdentityProvider") \
  X(INTERFACE, 41, "Interface")                \
  X(IP_POOL, 42, "IpPool")                     \
  X(KEY_STORE, 43, "KeyStore")                 \
  X(LICENSE, 44, "License")                    \
  X(LINK_AGGREGATION, 45, "LinkAggregation")   \
  X(LOAD_BALANCING, 46, "LoadBalancing")       \
  X(LOG_SERVER, 47, "LogServer")               \
  X(MAC_FILTER, 48, "MacFilter")               \
  X(MESH, 49, "Mesh")                          \
  X(MULTICAST, 50, "Multicast")                \
  X(NAT_RULE, 51, "NatRule")                   \
  X(ORB_CERT, 52, "OrbCert")                   \
  X(NEIGHBOR, 53, "Neighbor")                  \
  X(NETWORK, 54, "Network")                    \
  X(NTP_SERVER, 55, "NtpServer")               \
  X(PARENTAL_CONTROL, 56, "ParentalControl")   \
  X(PORT_PROFILE, 57, "PortProfile")           \
  X(POWER_POLICY, 58, "PowerPolicy")           \
  X(PRE_SHARED_KEY, 59, "PreSharedKey")        \
  X(PROXY, 60, "Proxy")                        \
  X(QOS_POLICY, 61, "QosPolicy")               \
  X(RADIO, 62, "Radio")                        \
  X(RATE_LIMIT, 63, "RateLimit")               \
  X(ROAMING, 64, "Roaming")                    \
  X(ROGUE_POLICY, 65, "RoguePolicy")           \
  X(ROUTE, 66, "Route")                        \
  X(SCHEDULE, 67, "Schedule")                  \
  X(SNMP_AGENT, 68, "SnmpAgent")               \
  X(SPANNING_TREE, 69, "SpanningTree")         \
  X(SPECTRUM_SCAN, 70, "SpectrumScan")         \
  X(STATIC_HOST, 71, "StaticHost")             \
  X(TELEMETRY, 72, "Telemetry")                \
  X(TRAFFIC_CLASS, 73, "TrafficClass")         \
  X(TRUST_ANCHOR, 74, "TrustAnchor")           \
  X(URL_FILTER, 75, "UrlFilter")               \
  X(USER_GROUP, 76, "UserGroup")               \
  X(VLAN, 77, "Vlan")                          \
  X(VLAN_POOL, 78, "VlanPool")                 \
  X(VPN, 79, "Vpn")

/** Configuration categories: ZOT_CAT_AP, ZOT_CAT_WLAN and so on. */
typedef enum zot_category {
#define ZOT_CATEGORY_ENUM(constant, value, name) ZOT_CAT_##constant = (value),
  ZOT_CATEGORY_MAP(ZOT_CATEGORY_ENUM)
#undef ZOT_CATEGORY_ENUM
      ZOT_CAT_COUNT /**< number of categories */
} zot_category;

/** Limits. A …_LEN does not count the terminator, a …_SIZE does. */
enum {
  ZOT_SUBSYS_ID_LEN = 63,    /**< sub-system ID */
  ZOT_SUB_IDX_LEN = 52,      /**< sub-system index kept by the handle */
  ZOT_SUB_NAME_LEN = 17,     /**< sub-system index as an adapter uses it */
  ZOT_ERR_STR_SIZE = 512,    /**< error text, terminator included */
  ZOT_PATH_SIZE = 4096,      /**< a path, terminator included */
  ZOT_CHECKSUM_LEN = 64,     /**< SHA-256 in hexadecimal */
  ZOT_KEY_LEN = 52,          /**< key of a GPB entry */
  ZOT_UUID_LEN = 36,         /**< cluster ID and config ID */
  ZOT_FIRMWARE_LEN = 511,    /**< firmware version */
  ZOT_LOG_PREFIX_SIZE = 512, /**< prefix buffer of a log line */
  ZOT_REMOTE_PORT = 8087     /**< port of the service unless the environment names one */
};

/* ----------------------------------------------------------------------------------- types */

/** Node or head of a circular, doubly linked list; the record embeds it. */
typedef struct zot_list {
  struct zot_list *next; /**< the node behind; the head's is the first */
  struct zot_list *prev; /**< the node before; the head's is the last */
} zot_list;

/** Order of two nodes: greater than zero when @p a sorts after @p b. May be called with the same
 *  node twice. @p priv is what zot_list_sort() was given. */
typedef int (*zot_list_cmp)(void *priv, zot_list *a, zot_list *b);

/** Set of categories: category c is bit c % 32 of word[c / 32]. */
typedef struct zot_catset {
  uint32_t word[32]; /**< 1024 bits, of which 80 name a category */
} zot_catset;

struct zot_log_ctx;
/** A log: what zot_log() writes to. */
typedef struct zot_log_ctx zot_log_ctx;
struct zot_ctx;
/** The library handle. */
typedef struct zot_ctx zot_ctx;

/** Where a message comes from and what it is about. */
typedef struct zot_log_site {
  uint32_t level;   /**< ZOT_LOG_ERROR to ZOT_LOG_DEBUG */
  uint32_t mask;    /**< ZOT_TOPIC_… bits */
  long line;        /**< source line */
  const char *func; /**< function name, static */
} zot_log_site;

/** Log callback. @p line is the formatted message with its prefix, valid during the call; the
 *  result is ignored. It runs on the thread of the call that logs and must not use the handle. */
typedef int zot_log_cb(zot_log_ctx *log_ctx, void *arg, const char *line);

/** Log settings; zot_util_init_log_ctl() gives the defaults. */
typedef struct zot_log_ctl {
  uint32_t facility; /**< topics that may be written */
  uint32_t option;   /**< ZOT_LOG_OPT_… bits of the prefix */
  uint32_t level;    /**< highest level written */
  uint32_t dst;      /**< ZOT_LOG_DST_… */
  FILE *fp;          /**< stream for ZOT_LOG_DST_FP, borrowed */
  const char *path;  /**< file for ZOT_LOG_DST_PATH; a handle keeps a copy of its own */
  zot_log_cb *cb;    /**< function for ZOT_LOG_DST_CB_FUNC */
  void *cb_arg;      /**< handed to cb, borrowed */
} zot_log_ctl;

/** State of one log: the settings in force, the message in progress, the open file. */
struct zot_log_ctx {
  zot_log_ctl *ctl;  /**< settings in force, borrowed */
  zot_log_site site; /**< the message in progress */
  FILE *path_fp;     /**< stream of #ZOT_LOG_DST_PATH once a message was written */
};

/**
 * Transfer callback, see zot_util_watch_transfers().
 * @param arg      what was given with the callback
 * @param received body bytes of the transfer in progress so far; 0 while it has none
 * @return 0 to go on; anything else ends the transfer.
 */
typedef int (*zot_transfer_cb)(void *arg, uint64_t received);

/** Value of #ZOT_PARM_LOG_DESTINATION_CB_FUNC. */
typedef struct zot_log_cb_func {
  zot_log_cb *cb; /**< the function */
  void *cb_arg;   /**< handed to it, borrowed */
} zot_log_cb_func;

/** Every parameter that creation takes. */
typedef struct zot_parm_all {
  uint32_t timeout;     /**< seconds for K, checksum and a locked directory; 0: no limit */
  uint32_t timeout_gpb; /**< seconds for GPB files, for adapters; the access-point adapter sets no
                           limit */
  zot_log_ctl log_ctl;  /**< where messages go, and which */
} zot_parm_all;

/** Parameter record of a handle. */
typedef struct zot_parm {
  zot_ctx *handle;         /**< the handle that owns the record */
  zot_parm_all all;        /**< parameters that creation takes */
  uint32_t ret_proto_type; /**< #ZOT_PARM_RETURN_PROTO_TYPE */
} zot_parm;

/** What one cycle did; zeroed at the start of every update check. */
typedef struct zot_core_stat {
  uint32_t state;         /**< ZOT_CYCLE_… bits */
  uint32_t reserved;      /**< 0 */
  uint64_t bytes_written; /**< downloads and copies */
  uint64_t bytes_read;    /**< cached files and copies */
} zot_core_stat;

/** Metadata of a K. */
typedef struct zot_k_meta {
  char firmware_version[ZOT_FIRMWARE_LEN + 1]; /**< empty when K states none */
  char config_id[ZOT_UUID_LEN + 1];            /**< empty when K states none */
  char cluster_id[ZOT_UUID_LEN + 1];           /**< every K states one */
} zot_k_meta;

/**
 * One knowledge file in memory. Everything but gpbs is owned by the record; json is shared with
 * other records of the same text, is not to be changed, and goes back with zot_priv_free_k().
 */
typedef struct zot_k {
  char *path; /**< where the file lies */
  char
      *data; /**< its bytes; terminated when read or fetched, not when copied by zot_priv_k_cpy() */
  uint32_t data_len;                   /**< length of data; 0: the record holds no K */
  char checksum[ZOT_CHECKSUM_LEN + 1]; /**< SHA-256 of data; empty for a K just fetched */
  zot_k_meta meta;                     /**< what K says about itself */
  char *root;                          /**< directory of this K's files */
  struct cJSON *json;                  /**< data, parsed; see parsed */
  struct cJSON *gpbs;                  /**< the "gpbs" array inside json */
  /** Holds json for all copies of this K, and releases it with the last of them. What is held may
   *  be read and never changed, freed or given to another record. NULL: json, when there is one,
   *  belongs to this record alone, which frees it with cJSON_Delete(). */
  struct zot_parsed_k *parsed;
} zot_k;

/** Bytes of a GPB file that passed its verification; the library alone makes them. */
typedef struct zot_verified zot_verified;

/** One GPB file of a configuration. The record owns its path, and its content as told there. A
 * record is not to be copied by assignment: what it shares is counted; see zot_priv_gpb_list_cpy().
 */
typedef struct zot_gpb {
  char *path; /**< /category/key/version */
  /** The file's bytes, not terminated. When they are those of verified, they may be read and never
   *  changed or freed; any other buffer belongs to the record, comes from malloc(), counts as not
   *  verified and is never handed out. */
  char *content;
  uint32_t size;                       /**< bytes, as K states */
  char checksum[ZOT_CHECKSUM_LEN + 1]; /**< SHA-256, as K states */
  uint64_t version;                    /**< third part of the path */
  int32_t category;                    /**< zot_category, first part of the path */
  uint32_t stat;                       /**< ZOT_STAT_… */
  uint32_t key_len;                    /**< bytes of key */
  char key[ZOT_KEY_LEN + 1];           /**< second part of the path, cut to its buffer */
  zot_list node;                       /**< links the entry into its list */
  /** What content points into, shared by the records of one file; NULL: not verified. */
  zot_verified *verified;
} zot_gpb;

/** One entry of a returned list. The node comes first, so a node pointer is an entry pointer. */
typedef struct zot_ret_data {
  zot_list node;             /**< links the entry into the returned list */
  char key[ZOT_KEY_LEN + 1]; /**< name of the object within its category */
  int32_t category;          /**< zot_category; zot_util_cat2str() names it */
  uint32_t stat;             /**< ZOT_STAT_… */
  const void *data;          /**< the file's bytes, owned by the handle; NULL when deleted */
  uint32_t size;             /**< bytes at data */
} zot_ret_data;

/** Result of zot_priv_cmp_gpb(). */
typedef struct zot_gpb_cmp {
  int result; /**< below, equal to or above zero */
  int kind;   /**< first difference: 0 none, 1 category, 2 key, 3 version */
} zot_gpb_cmp;

/** A file held in memory; whoever holds the pair frees data with free(). */
typedef struct zot_file_mem {
  char *data;    /**< terminated */
  uint32_t size; /**< bytes at data, terminator not counted */
} zot_file_mem;

/** Statistics of one transfer. */
typedef struct remote_file_stat {
  double total_time; /**< seconds */
  uint64_t bytes;    /**< body bytes received */
  int32_t http_code; /**< response code; single-file fetch only */
  int32_t file_time; /**< modification time, when the service told it */
} remote_file_stat;

/** One name of a set fetch. */
typedef struct remote_file_name {
  zot_list node;            /**< links the name into its set */
  char name[ZOT_PATH_SIZE]; /**< as the service is asked for it */
} remote_file_name;

/** Operations of a sub-system. A client may replace an entry before its first zot_conf_get(). */
typedef struct zot_sub_fns {
  /** Optional: commits the GPB files below @p tmp_gpb_root instead of the library. Returns #ZOT_OK;
   *  any other status, a positive one too, fails the commit and is its result. What it changes is
   *  its own to put back: a commit that is undone restores the K files alone. */
  int (*commit_gpb)(zot_ctx *handle, const char *tmp_gpb_root, zot_list *gpbs);
  /** Writes the persistent directory into @p buf; NULL or an empty text is a failure. */
  char *(*get_conf_root)(zot_ctx *handle, char *buf, size_t size);
  /** Writes the scratch directory into @p buf; NULL or an empty text is a failure. */
  char *(*get_tmp_root)(zot_ctx *handle, char *buf, size_t size);
  /** Fills the empty @p k with the published K, as zot_priv_get_new_k_by_host() does.
   *  Returns #ZOT_OK, #ZOT_NO_UPDATE, #ZOT_ERR_SAME_AS_CORRUPTED or an error. */
  int (*download_k)(zot_ctx *handle, zot_k *k);
  /** Brings the files of @p gpbs into the scratch directory and verifies each.
   *  Returns #ZOT_OK or an error; 1 would mean that they lie in the dev directory. */
  int (*download_gpb)(zot_ctx *handle, zot_k *k, zot_list *gpbs);
} zot_sub_fns;

/** One cache slot; two slots may hold the same records. */
typedef struct zot_slot {
  zot_k *k;       /**< NULL: the slot is empty */
  zot_list *gpbs; /**< node of a zero-filled zot_gpb head */
} zot_slot;

/** Identity as an adapter uses it. */
typedef struct zot_sub_data {
  char name[ZOT_SUB_NAME_LEN + 1]; /**< upper-case index */
  uint32_t len;                    /**< bytes of the index that an adapter uses */
} zot_sub_data;

/** Tells one file from another that later takes its name; all zero: there is no such file. */
typedef struct zot_file_id {
  uint64_t device;      /**< file system */
  uint64_t inode;       /**< number of the file in it */
  uint64_t seconds;     /**< last change of the file's status, */
  uint64_t nanoseconds; /**< and its fraction of a second */
} zot_file_id;

/** What the library itself remembers between calls; nothing here is for a client to read. */
typedef struct zot_own {
  char *conf_root;        /**< persistent directory of the last get with a new configuration */
  char *tmp_root;         /**< scratch directory of that get */
  zot_file_id fetched;    /**< the checksum file that this get left in the scratch directory */
  uint64_t verdicts;      /**< what the cache had in force, and what rolled back, at that get */
  uint32_t marks_waiting; /**< 1: the marked list is that of a configuration without a verdict */
  uint32_t commit_begun;  /**< 1: memory holds the new configuration of a commit without an end */
  uint32_t cache_doubts;  /**< in which ways memory may differ from the persistent directory */
  uint32_t lock_depth;    /**< calls inside each other that hold the locks */
  int32_t lock_fd[2];     /**< descriptors of the locked directories plus one; 0: none */
} zot_own;

/** The library handle. The fields are visible to adapters, tools and tests; a client uses the
 *  calls. */
struct zot_ctx {
  char subsys_id[ZOT_SUBSYS_ID_LEN + 1]; /**< "AP", "CP" or "DP" */
  char sub_idx[56];                      /**< index as given at creation */
  uint32_t sub_idx_len;                  /**< copy of zot_sub_data::len */
  zot_parm *parm;                        /**< parameters, owned */
  char err_str[ZOT_ERR_STR_SIZE];        /**< text of the last status */
  int32_t err;                           /**< last status */
  zot_sub_fns fns;                       /**< operations of the sub-system */
  zot_slot slot[ZOT_SLOT_COUNT];         /**< current, last, temporary, corrupted */
  zot_sub_data sub_data;                 /**< identity as an adapter uses it */
  uint32_t load_flags;                   /**< ZOT_LOADED_… */
  char tmp_root[ZOT_PATH_SIZE];          /**< scratch directory */
  char tmp_gpb_root[ZOT_PATH_SIZE];      /**< its directory of GPB files */
  char conf_root[ZOT_PATH_SIZE];         /**< persistent directory */
  char conf_k_root[ZOT_PATH_SIZE];       /**< its directory of K files */
  struct {
    zot_list *list;    /**< marked list behind every returned list */
    const char *root;  /**< directory of its files, owned elsewhere in the handle */
  } ret;               /**< what a cached request is answered from */
  zot_log_ctx log_ctx; /**< the handle's log */
  zot_core_stat stat;  /**< what the last cycle did */
  uint32_t dev_mode;   /**< 1: the configuration is read from a local directory */
  zot_own own;         /**< for the library alone */
};

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
 * Applies the log settings of @p parm before anything else, so that start-up messages obey them,
 * resolves the directories from the environment and creates them. Nothing is loaded from the cache.
 * When an earlier process was ended in the middle of a commit, the configuration before that commit
 * is put back, unless another process holds the cache.
 *
 * @param subsys_id "AP", "CP" or "DP", at most 63 bytes; NULL means "AP". Copied.
 * @param sub_idx   the element's own index (the MAC address of an access point), copied up to a
 * NUL. NULL is an empty index.
 * @param id_len    bytes of @p sub_idx to use, at most 52. Adapters use the first 17.
 * @param parm      parameters; zot_util_init_conf_parm() gives the defaults. The path of the log
 *                  control is copied; its stream and callback argument are borrowed.
 * @return the handle, owned by the caller until zot_conf_free(); NULL on failure, with the reason
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
 * What is returned belongs to the configuration in force or to the new one that this get brought.
 * An earlier one that was neither committed nor rolled back is withdrawn. A commit of this handle
 * that failed is finished first; one that fails again is undone, and its configuration counts as
 * new again.
 *
 * Blocks while it downloads; the transfer of the GPB files has no time limit. Both new and
 * unchanged configurations end in #ZOT_OK; whether something new waits for commit or roll-back is
 * told by #ZOT_CYCLE_NEW_CONF in the handle's statistics and by each entry's stat.
 *
 * @param handle         the handle
 * @param catset         categories to return
 * @param conf_stat_mask ZOT_STAT_… bits: which changes to return; #ZOT_STAT_FULL for everything
 * that is not deleted; #ZOT_STAT_CACHED to return what is cached without asking the service. 0 is
 * refused.
 * @param[out] ret       the returned list, owned by the caller until zot_conf_free_ret_data(); NULL
 *                       when the call fails, untouched without a handle. The entries' bytes belong
 * to the handle and stay valid until the next get, commit, roll-back or free.
 * @return
 *  - #ZOT_OK: @p ret holds the entries, possibly none.
 *  - #ZOT_ERR_SAME_AS_CORRUPTED: the service still offers what was rolled back; @p ret holds the
 *    entries of the configuration in force, none without one, and has to be freed. What another
 *    process has committed since the last get comes so, and is not reported as new later.
 *  - #ZOT_ERR_NULL_INPUT: no handle or no @p ret, with nothing recorded; or K states no
 *    checksum for a file.
 *  - #ZOT_ERR_WRONG_INPUT: @p conf_stat_mask is 0, a directory holds characters that a shell
 *    would interpret, or K states size 0 for a file.
 *  - #ZOT_ERR_NO_CACHE: #ZOT_STAT_CACHED was asked for and nothing is in force or new, or nothing
 *    of it is in @p catset.
 *  - #ZOT_ERR_TIMEOUT, #ZOT_ERR_REMOTE_UNAVAIL, #ZOT_ERR_NOT_FOUND: the service timed out, did not
 *    answer, or does not know this element; or, for the first, a directory stayed locked.
 *  - #ZOT_ERR_CORRUPTED: a K, a checksum or a GPB file is not what was announced, or the scratch
 *    directory was made anew during the call.
 *  - #ZOT_ERR_NO_FILE: dev mode is on and its directory holds no checksum file of K.
 *  - #ZOT_ERR_NOMEM, #ZOT_ERR_GENERIC: memory, files or processes failed, or the service answered
 *    the request for K or its checksum with a response other than 200 and 404.
 *
 *  A get changes the configuration in force only where it ends a commit that failed.
 */
int zot_conf_get(zot_ctx *handle, zot_catset catset, uint32_t conf_stat_mask, zot_list **ret);

/**
 * Accepts the configuration that the last get brought: it becomes current in memory and in the
 * persistent cache, and the one before it becomes last. The cache is synchronised to the medium
 * before the call returns #ZOT_OK.
 *
 * The cache holds the old configuration or the new one, whole, at every instant: a process that
 * starts after a kill or a loss of power finds the old one unless the commit had come to its end.
 * With an adapter's own commit_gpb this holds for the K files alone. When the medium has no room
 * for the new files beside the old ones, those are removed first, with a warning in the log. When
 * it has no room for them at all, nothing changes.
 *
 * It works on the directories of the get that it answers, whatever the environment says by now.
 *
 * @return
 *  - #ZOT_OK: committed, or commit or roll-back was done earlier in this cycle, or dev mode is on.
 *  - #ZOT_NO_UPDATE: the last get brought nothing new.
 *  - #ZOT_ERR_NOT_READY: no successful zot_conf_get() came before.
 *  - #ZOT_ERR_WRONG_INPUT: there is no temporary configuration.
 *  - #ZOT_ERR_NULL_INPUT: no handle.
 *  - #ZOT_ERR_TIMEOUT: another process kept a directory locked. Nothing has changed.
 *  - #ZOT_ERR_CORRUPTED: a get of another handle has brought something else into the scratch
 *    directory. Nothing has changed; the next get brings it again.
 *  - #ZOT_ERR_CORRUPTED: since the get another configuration was committed, or one rolled back, by
 *    whatever process. Nothing has changed; the next get answers for what is there now.
 *  - #ZOT_ERR_GENERIC: no room; nothing has changed, and the text has the sizes.
 *  - #ZOT_ERR_GENERIC, #ZOT_ERR_NOMEM, #ZOT_ERR_CORRUPTED, #ZOT_ERR_NO_FILE, or the status of an
 *    adapter's own commit: a file operation failed. The new configuration is current in memory;
 *    call again in the same cycle to bring all of it once more. Instead, zot_conf_get()
 *    finishes or undoes the commit, zot_conf_roll_back() undoes it, and so does another process.
 */
int zot_conf_commit(zot_ctx *handle);

/**
 * Refuses the configuration that the last get brought. The configuration in force stays; the new K
 * is kept aside as corrupted, so that zot_conf_get() answers #ZOT_ERR_SAME_AS_CORRUPTED while the
 * service offers it again. The last K is forgotten, in memory and in the cache: #ZOT_K_LAST then
 * has none. A commit that failed in this cycle is undone first. The cache is synchronised to the
 * medium before the call returns #ZOT_OK.
 *
 * @return
 *  - #ZOT_OK: rolled back, or commit or roll-back was done earlier in this cycle, or dev mode is
 * on.
 *  - #ZOT_NO_UPDATE: the last get brought nothing new, or this K is already kept as corrupted.
 *  - #ZOT_ERR_NOT_READY: no successful zot_conf_get() came before.
 *  - #ZOT_ERR_NULL_INPUT: no handle, or no temporary K.
 *  - #ZOT_ERR_TIMEOUT: another process kept a directory locked. Nothing has changed.
 *  - #ZOT_ERR_CORRUPTED: a get of another handle has brought something else into the scratch
 *    directory, or this configuration is in force already, and nothing has changed; or
 *    what was copied is not what was fetched.
 *  - #ZOT_ERR_GENERIC, #ZOT_ERR_NOMEM, #ZOT_ERR_NO_FILE: a file operation failed; the call may be
 *    repeated.
 */
int zot_conf_roll_back(zot_ctx *handle);

/**
 * Frees a returned list with its entries; the bytes stay with the handle.
 *
 * @param handle   the handle that returned the list; NULL frees it too, without a log line
 * @param[in,out] ret the list; set to NULL
 * @return #ZOT_OK, or #ZOT_ERR_NULL_INPUT when @p ret or the list is missing. Missing both @p ret
 *         and the handle is a programming error that aborts.
 */
int zot_conf_free_ret_data(zot_ctx *handle, zot_list **ret);

/**
 * Releases a handle with all that it owns; returned lists have to be freed before.
 * @return #ZOT_OK, or #ZOT_ERR_NULL_INPUT without a handle.
 */
int zot_conf_free(zot_ctx *handle);

/* --------------------------------------------------------------------------------- utility */

/** The handle's last status; #ZOT_ERR_WRONG_INPUT without a handle. */
int zot_util_get_err(const zot_ctx *handle);

/** The handle's last text, at most 511 bytes, valid until the next call. @p handle is not NULL. */
const char *zot_util_get_err_str(const zot_ctx *handle);

/** The handle's sub-system index as given at creation. @p handle is not NULL. */
const char *zot_util_get_sub_idx(const zot_ctx *handle);

/** Whether a status is an error (below zero). */
bool zot_util_is_err(int code);

/** Name of a category, static; NULL for a value that is no category. */
const char *zot_util_cat2str(int32_t category);

/**
 * Copies the metadata of a K.
 *
 * @param handle   the handle
 * @param[out] dst the copy
 * @param which    #ZOT_K_NEW, #ZOT_K_CURRENT or #ZOT_K_LAST; the latter two are loaded from the
 *                 cache when they are not in memory yet
 * @return
 *  - #ZOT_OK
 *  - #ZOT_ERR_NULL_INPUT: no @p dst or no handle; missing both is a programming error that aborts.
 *  - #ZOT_ERR_WRONG_INPUT: another value of @p which.
 *  - #ZOT_ERR_NOT_READY: #ZOT_K_NEW before a completed zot_conf_get().
 *  - #ZOT_ERR_NO_CACHE: there is no such K.
 *  - #ZOT_ERR_TIMEOUT: another process kept a directory locked.
 *  - #ZOT_ERR_GENERIC: @p dst is the K's own metadata.
 */
int zot_util_get_k_meta(zot_ctx *handle, zot_k_meta *dst, int which);

/** Fills the default parameters: 5 and 30 seconds and zot_util_init_log_ctl(). NULL does nothing.
 */
void zot_util_init_conf_parm(zot_parm_all *parm);

/** Fills the default log control: topics 0x7f, function names, errors and warnings, standard error.
 *  NULL does nothing. */
void zot_util_init_log_ctl(zot_log_ctl *ctl);

/** Directs a log control to a stream, which is borrowed. @return 0; -1 when either is NULL. */
int zot_util_set_log_ctl_dst_fp(zot_log_ctl *ctl, FILE *stream);

/** Directs a log control to a file. The pointer is stored; zot_parm_set() and creation copy the
 *  text. @return 0; -1 and no change when either is NULL or the path is empty. */
int zot_util_set_log_ctl_dst_path(zot_log_ctl *ctl, const char *path);

/** Directs a log control to a callback. @return 0; -1 when @p ctl or @p cb is NULL. */
int zot_util_set_log_ctl_dst_cb_func(zot_log_ctl *ctl, zot_log_cb *cb, void *cb_arg);

/** Inside a log callback: level, topics, line and function of the message being delivered. A NULL
 *  context gives an empty record. */
zot_log_site zot_util_log_cb_func_get_conf_stat(const zot_log_ctx *log_ctx);

/**
 * Has the transfers of the calling thread watched. During each transfer that this thread makes
 * from now on, whichever handle it is for, the callback is called whenever data arrives and about
 * once a second while none does, from the connection's first attempt on: a process can kick its
 * watchdog in it, hold a deadline of its own, or end the transfer because it shuts down. The
 * download of GPB files by an access point has no time limit, so nothing else ends one that stalls.
 * Without a callback nothing changes.
 *
 * The callback runs on the thread of the call that transfers, inside that call. It must return
 * soon, must not use the handle, and may call this function: NULL leaves the rest of the transfer
 * unwatched. Other threads keep their own callbacks; a thread that ends takes its own with it. The
 * commands that unpack and copy files are no transfers and are not watched. A host name that has to
 * be looked up may keep it waiting, which the loopback address of the access-point adapter never
 * does.
 *
 * A transfer that the callback ends fails like a broken connection: zot_conf_get() answers
 * #ZOT_ERR_REMOTE_UNAVAIL, the configuration in force stays, and the next get starts anew. The
 * transfer helpers return libcurl's CURLE_ABORTED_BY_CALLBACK.
 *
 * @param cb  the callback, in place of an earlier one of this thread; NULL: none
 * @param arg handed to the callback, borrowed until another callback is installed
 */
void zot_util_watch_transfers(zot_transfer_cb cb, void *arg);

/** Adds all 80 categories to a set. @return #ZOT_OK, or #ZOT_ERR_NULL_INPUT. */
int zot_catset_set_all(zot_catset *catset);

/** Adds one category to a set. @return #ZOT_OK; #ZOT_ERR_NULL_INPUT without a set;
 *  #ZOT_ERR_WRONG_INPUT for a value that is no category. */
int zot_catset_add(zot_catset *catset, int32_t category);

/** Whether a set holds a category; false for a NULL set and for a value that is no category. */
bool zot_catset_has(const zot_catset *catset, int32_t category);

/** Zeroes a statistics record. NULL does nothing. */
void zot_core_reset_stat(zot_core_stat *stat);

/* ------------------------------------------------------------------------------ parameters */

/**
 * Changes a parameter.
 *
 * @param handle  the handle
 * @param id      a #zot_parm_id
 * @param val     the value, of the type told at the id. For #ZOT_PARM_LOG_DESTINATION_FP it is the
 *                stream itself, for #ZOT_PARM_LOG_DESTINATION_PATH the path text, which is copied.
 * @param val_len bytes at @p val; sizeof(FILE *) for #ZOT_PARM_LOG_DESTINATION_FP. Parameters 2, 3,
 *                4, 8 and 10 take a shorter value as the first bytes of a zeroed word.
 * @return
 *  - #ZOT_OK
 *  - #ZOT_ERR_NULL_INPUT: no handle or no @p val, or a log control without what its destination
 *    needs.
 *  - #ZOT_ERR_WRONG_INPUT: @p val_len is 0 or too short, an empty path, no callback, or a handle
 *    without parameters.
 *  - #ZOT_ERR_UNKNOWN_OPT: unknown id, or a value outside its range.
 *  - #ZOT_ERR_NOMEM
 */
int zot_parm_set(zot_ctx *handle, int id, const void *val, size_t val_len);

/**
 * Reads a parameter into @p val.
 *
 * @param handle  the handle
 * @param id      a #zot_parm_id
 * @param[out] val the value. A log control read here borrows the handle's path text.
 * @param val_len bytes at @p val; a path needs its length plus one. A path that is not set copies
 *                nothing.
 * @return as zot_parm_set().
 */
int zot_parm_get(zot_ctx *handle, int id, void *val, size_t val_len);

/** Name of a parameter ("ZOT_PARM_TIMEOUT"), static; an empty text for an unknown id. */
const char *zot_util_parm2str(int id);

/** What zot_parm_set() and zot_parm_get() run once their arguments are checked, which must not be
 *  NULL here. The setter or getter of the parameter records its status. */
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
 * @return 0, the destination's result, or -1 when memory was short and the text was cut.
 */
int zot_log(zot_log_ctx *log_ctx, uint32_t level, uint32_t mask, long line, const char *func,
            const char *fmt, ...) __attribute__((format(printf, 6, 7)));

/** Writes the prefix that the log options ask for into @p buf, cut to @p size. @return @p buf. */
char *zot_log_get_prefix(const zot_log_ctx *log_ctx, const char *func, long line, char *buf,
                         size_t size);

/** Installs the default log control in a handle. @return as zot_parm_set(). */
int zot_log_init(zot_ctx *handle);

/** Closes the log file of a handle, if one is open. NULL does nothing. */
void zot_log_free(zot_ctx *handle);

/* ------------------------------------------------------------------------------------ list */

/** Makes a head an empty list. */
void zot_list_init(zot_list *head);

/** Whether the list has no node. */
bool zot_list_is_empty(const zot_list *head);

/** Inserts @p node at the front. */
void zot_list_add(zot_list *head, zot_list *node);

/** Inserts @p node at the end. */
void list_add_tail(zot_list *head, zot_list *node);

/** zot_list_add() that checks. @return 0; -1 when either is NULL. */
int zot_list_add_node(zot_list *head, zot_list *node);

/** list_add_tail() that checks. @return 0; -1 when either is NULL. */
int zot_list_add_node_tail(zot_list *head, zot_list *node);

/** Unlinks a node. Its links then read 0x100100 and 0x200200, so that a later use faults. */
void list_del(zot_list *node);

/** list_del(). */
void zot_list_remove(zot_list *node);

/**
 * Sorts a list in place: stable, without an allocation, in n log n comparisons.
 * @param priv handed to @p cmp
 * @param head the list
 * @param cmp  the order; called with the same node twice from time to time
 */
void zot_list_sort(void *priv, zot_list *head, zot_list_cmp cmp);

/* ---------------------------------------------------------------------------------- status */

/**
 * Records a status: code, text and, unless @p func is empty or @p line is 0, a log line (debug for
 * success, error for negative codes, information for positive ones).
 *
 * @param handle the handle; NULL is a programming error that aborts
 * @param code   a #zot_status
 * @param func   function that records
 * @param line   source line
 * @param fmt    printf format of the text, cut to 511 bytes; NULL or empty takes the code's own
 *               text, or "Generic Error" for a code without one
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

/** The handle's text. @p handle is not NULL. */
const char *zot_priv_err_get_err_str(const zot_ctx *handle);

/* ----------------------------------------------------- operations: records and cache slots */

/** K or GPB list of a slot; NULL for a NULL handle or an index above 3. No change of ownership. */
zot_k *zot_priv_get_k(const zot_ctx *handle, uint32_t slot);
/** @copydoc zot_priv_get_k() */
zot_list *zot_priv_get_gpb(const zot_ctx *handle, uint32_t slot);

/** Puts a K or GPB list into a slot, which frees nothing; ignored for a NULL handle or an index
 *  above 3. */
void zot_priv_set_k(zot_ctx *handle, uint32_t slot, zot_k *k);
/** @copydoc zot_priv_set_k() */
void zot_priv_set_gpb(zot_ctx *handle, uint32_t slot, zot_list *gpbs);

/** Name of a slot in log lines, static; empty above 3. */
const char *zot_priv_slot_name(uint32_t slot);

/**
 * Empties a slot. Its record is freed unless it is @p keep or another slot holds it too; then it is
 * only unlinked. Nothing happens for an empty slot or an index above 3.
 * @param keep a record that lives on elsewhere, or NULL
 */
void zot_priv_free_k_ex_safe(zot_ctx *handle, uint32_t slot, zot_k *keep);
/** @copydoc zot_priv_free_k_ex_safe() */
void zot_priv_free_gpb_ex_safe(zot_ctx *handle, uint32_t slot, zot_list *keep);

/** Frees what a K owns, not the record; the metadata stays. @return #ZOT_OK; #ZOT_ERR_NULL_INPUT
 *  without handle or record; #ZOT_ERR_WRONG_INPUT for a record with data_len 0, which is left as
 *  it is. */
int zot_priv_free_k(zot_ctx *handle, zot_k *k);

/** The in-memory half of a commit: the new records become current, the old current ones last; the
 *  old last ones are released. @return #ZOT_OK or #ZOT_ERR_NULL_INPUT. */
int zot_priv_update_cached_mem(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs);

/** Replaces a K's path or root directory by a copy of at most 4096 bytes. @return the copy, owned
 *  by the K; NULL without memory, K or text, and the former text is gone. */
char *zot_priv_k_set_path(zot_k *k, const char *path);
/** @copydoc zot_priv_k_set_path() */
char *zot_priv_k_set_root(zot_k *k, const char *root);

/** Copies path, data and checksum into an empty record; a source with data_len 0 brings its path
 *  only. @return #ZOT_OK; #ZOT_ERR_WRONG_INPUT when a record is missing
 *  or both are one; #ZOT_ERR_NOMEM, with nothing copied. */
int zot_priv_k_cpy(const zot_k *src, zot_k *dst);

/** Whether two K hold the same bytes. @return 0 the same; 1 not; -1 when either is NULL. */
int zot_priv_cmp_k(const zot_k *a, const zot_k *b);

/** Allocates a GPB entry; longer texts are cut. @return the entry, owned by the caller; NULL
 *  without memory. */
zot_gpb *zot_priv_gpb_new(const char *path, uint32_t size, int32_t category, const char *checksum,
                          const char *key, uint64_t version);

/** Frees an entry with its path and content (content of size 0 is left alone).
 *  @return #ZOT_OK or #ZOT_ERR_NULL_INPUT; the status is not recorded. */
int zot_priv_free_gpb(zot_ctx *handle, zot_gpb *gpb);

/** Frees every entry of a list and leaves the head empty. @return as zot_priv_free_gpb(). */
int zot_priv_free_gpb_list(zot_ctx *handle, zot_list *gpbs);

/** Frees the handle's marked list with its head. */
void zot_priv_free_ret_gpb_list(zot_ctx *handle);

/* ------------------------------------------------------- operations: content of a K, diff */

/**
 * Checks the JSON text of a K and fills its metadata, json and gpbs.
 * @param k a record whose data holds the terminated text
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for an empty text;
 *         #ZOT_ERR_CORRUPTED for a text that is no valid K.
 */
int zot_priv_chk_vail_k_cont(zot_ctx *handle, zot_k *k);

/**
 * Builds the sorted GPB list of a checked K. Elements of an unknown category, or whose path is not
 * of the form /category/key/version, are skipped with a warning.
 * @param gpbs an empty list; left empty on failure
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for a K that was not checked;
 *         #ZOT_ERR_CORRUPTED for a bad element or two versions of one object; #ZOT_ERR_NOMEM.
 */
int zot_priv_get_gpb_list_via_k_json(zot_ctx *handle, zot_k *k, zot_list *gpbs);

/** Orders two entries by category, key and version. @p out may be NULL. @return the result. */
int zot_priv_cmp_gpb(const zot_gpb *a, const zot_gpb *b, zot_gpb_cmp *out);

/** Refuses a sorted list that holds two versions of one object. @return #ZOT_OK or
 *  #ZOT_ERR_CORRUPTED. */
int zot_priv_chk_dup_gpb(zot_ctx *handle, zot_list *gpbs);

/** Copies an entry without its content. @return #ZOT_OK; #ZOT_ERR_NULL_INPUT when one is missing or
 *  both are one; #ZOT_ERR_WRONG_INPUT for a source without path; #ZOT_ERR_NOMEM. */
int zot_priv_gpb_list_cpy(zot_ctx *handle, zot_gpb *dst, const zot_gpb *src);

/**
 * Merges two sorted lists into a list of marked copies.
 * @param cur_k,new_k the K of either list; another cluster, or one K missing, marks equal entries
 *                    modified; without both nothing is built
 * @param out         an empty list; left empty on failure
 * @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, #ZOT_ERR_NOMEM.
 */
int zot_priv_build_full_diff_gpb_list(zot_ctx *handle, zot_k *cur_k, zot_k *new_k, zot_list *cur,
                                      zot_list *new_gpbs, zot_list *out);

/** Marks a new configuration against the current slot. @p root is not read. @return a new list,
 *  owned by the caller; NULL on failure, with the status recorded. */
zot_list *zot_priv_build_ret_gpb_list(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs,
                                      const char *root);

/** Replaces the handle's marked list. @p root is kept by reference and must live as long.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for an empty root; #ZOT_ERR_NOMEM.
 * The former list stays on failure. */
int zot_priv_update_cached_ret_gpb_list(zot_ctx *handle, zot_k *new_k, zot_list *new_gpbs,
                                        const char *root);

/**
 * Builds a returned list from a marked list, verifying each file that it hands out.
 * @param marked marked list
 * @param ret    an empty list; left empty on failure
 * @param mask   request bits of zot_conf_get()
 * @param root   directory of the files
 * @param catset categories to return
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_NOMEM; #ZOT_ERR_CORRUPTED for a file that is not
 *         what K states; #ZOT_ERR_UNKNOWN_OPT for an unknown mark; or as
 *         zot_priv_build_gpb_cont().
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

/** Checks an entry's file, ROOT/config/CATEGORY/KEY/VERSION, and fills the entry's content
 * if it has a buffer.
 *  @return as zot_priv_verify_gpb(); #ZOT_ERR_WRONG_INPUT for an entry without path or size. */
int zot_priv_chk_vail_gpb(zot_ctx *handle, zot_gpb *gpb, const char *root);

/** zot_priv_chk_vail_gpb() with a content buffer made when there is none. @return as
 *  zot_priv_chk_vail_gpb(), or #ZOT_ERR_NOMEM. After a failure the buffer holds nothing verified.
 */
int zot_priv_build_gpb_cont(zot_ctx *handle, zot_gpb *gpb, const char *root);

/**
 * Reads a K and its checksum file, compares them and checks the content.
 * @param k     an empty record, not NULL; keeps what was read also when a later step fails
 * @param flags #ZOT_READ_K_OPTIONAL or 0
 * @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for an empty path; #ZOT_ERR_NO_FILE
 *         when the checksum file is absent (with #ZOT_READ_K_OPTIONAL not recorded);
 *         #ZOT_ERR_CORRUPTED for anything else that is not as it should be.
 */
int zot_priv_verify_k_file(zot_ctx *handle, zot_k *k, const char *k_path, const char *checksum_path,
                           int flags);

/** zot_priv_verify_k_file() on two names below @p root. */
int _zot_priv_read_k_f(zot_ctx *handle, zot_k *k, const char *root, const char *k_name,
                       const char *checksum_name, int flags);

/** Reader of one kind of K below a root directory. @return as zot_priv_verify_k_file(). */
typedef int (*zot_k_reader)(zot_ctx *handle, zot_k *k, const char *root, int flags);
/** Reads the K in force, "/knowledge/subsys.k". */
int zot_priv_read_cur_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags);
/** Reads the K before it, "/knowledge/prev_subsys.k". */
int zot_priv_read_prev_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags);
/** Reads the K that was rolled back, "/knowledge/corrupted.k". */
int zot_priv_read_corrupted_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags);
/** Reads the K in the scratch directory, "subsys.k". */
int zot_priv_read_tmp_k_f(zot_ctx *handle, zot_k *k, const char *root, int flags);

/** zot_priv_read_cur_k_f() with flags 0. */
int zot_priv_read_cur_k(zot_ctx *handle, zot_k *k, const char *root);
/** zot_priv_read_prev_k_f() with flags 0. */
int zot_priv_read_prev_k(zot_ctx *handle, zot_k *k, const char *root);
/** zot_priv_read_corrupted_k_f() with flags 0. */
int zot_priv_read_corrupted_k(zot_ctx *handle, zot_k *k, const char *root);
/** zot_priv_read_tmp_k_f() with flags 0. */
int zot_priv_read_tmp_k(zot_ctx *handle, zot_k *k, const char *root);

/**
 * Brings the published K into an empty record: first its checksum, then, unless the corrupted or
 * the current K has the same, the K itself.
 * @param new_k an empty record
 * @param host  host with optional port
 * @return #ZOT_OK; #ZOT_NO_UPDATE or #ZOT_ERR_SAME_AS_CORRUPTED, with a copy of that K in @p new_k;
 *         the transfer statuses of zot_conf_get(); #ZOT_ERR_CORRUPTED; #ZOT_ERR_NOMEM;
 *         #ZOT_ERR_GENERIC for a file that could not be written.
 */
int zot_priv_get_new_k_by_host(zot_ctx *handle, zot_k *new_k, const char *host);

/** Downloads the K (@p kind 0) or its checksum (1) into the scratch directory and into memory.
 *  @param[out] out the bytes, freed by the caller with free()
 *  @return as zot_priv_get_new_k_by_host(); #ZOT_ERR_WRONG_INPUT for a missing @p out or @p host or
 *  another @p kind. */
int zot_priv_get_k_into_mem(zot_ctx *handle, const char *host, zot_file_mem *out, int kind);

/** Records what a fetch result means. @param stat statistics of that fetch. @return #ZOT_OK,
 *  #ZOT_ERR_TIMEOUT, #ZOT_ERR_REMOTE_UNAVAIL, #ZOT_ERR_NOT_FOUND or #ZOT_ERR_GENERIC. */
int zot_priv_fmt_get_k_curl_error(zot_ctx *handle, int fetch_result, remote_file_stat stat,
                                  const char *url, const char *label, uint32_t timeout);

/** Compares a downloaded checksum with a K's. @return 0 equal; 1 different; -1 missing argument. */
int zot_priv_is_chk_dup(zot_ctx *handle, const zot_file_mem *new_checksum, const zot_k *cached,
                        const char *label);

/** Makes @p new_k a copy of a cached K and writes its bytes into the scratch directory.
 *  @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, #ZOT_ERR_WRONG_INPUT, #ZOT_ERR_NOMEM or
 *  #ZOT_ERR_GENERIC. */
int zot_priv_hd_dup_k(zot_ctx *handle, zot_k *cached, zot_k *new_k, const char *label);

/** Fills the temporary K from the dev directory or through the adapter. @return the adapter's
 *  status, or as the K readers. */
int zot_priv_update_tmp_k(zot_ctx *handle, zot_k *tmp_k);

/** Verifies every file of a list below @p root and keeps the bytes; @p k is not read. On failure
 *  the whole list is freed. @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, or as zot_priv_build_gpb_cont().
 */
int zot_priv_read_gpb(zot_ctx *handle, zot_k *k, zot_list *gpbs, const char *root);

/** Builds the temporary K's list and brings its files in. @return #ZOT_OK; 1 when they were read
 *  from the dev directory; a negative status on failure. */
int zot_priv_update_tmp_gpb(zot_ctx *handle, zot_k *tmp_k, zot_list *gpbs);

/** Drops the deleted entries of a marked list and marks the others unchanged. */
void zot_priv_prune_deleted_gpb(zot_ctx *handle, zot_list *gpbs);

/** Commits the temporary K files; @p tmp_k then holds the K as read back from the cache.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT or #ZOT_ERR_WRONG_INPUT for a K without root directory;
 *  #ZOT_ERR_GENERIC when a copy failed; #ZOT_ERR_NOMEM; or as the K readers. */
int zot_priv_commit_k(zot_ctx *handle, zot_k *tmp_k);

/** Replaces the cached GPB files by those of the scratch directory. @return #ZOT_OK,
 *  #ZOT_ERR_NULL_INPUT, #ZOT_ERR_GENERIC, or the status of the adapter's own commit. */
int zot_priv_commit_gpb(zot_ctx *handle, zot_list *gpbs);

/** Copies the temporary K files over the last ones. @return #ZOT_OK, #ZOT_ERR_NULL_INPUT,
 *  #ZOT_ERR_WRONG_INPUT, #ZOT_ERR_GENERIC or #ZOT_ERR_NOMEM. */
int zot_priv_rotate_prev_k(zot_ctx *handle, zot_k *tmp_k);

/** fcopy_stat() that logs, counts into the handle and records failures under the caller's name.
 *  @return #ZOT_OK, #ZOT_ERR_GENERIC, or #ZOT_ERR_NULL_INPUT without a handle. */
int zot_priv_fcopy(zot_ctx *handle, const char *src, const char *dst, const char *func, long line);

/** Runs a shell command, logs it and records failures under the caller's name. A command that ran
 *  and failed is no error of this call.
 *  @param[out] code exit status, or the raw status of a command that a signal ended; may be NULL
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for no command; #ZOT_ERR_GENERIC when
 *  no status was obtained. */
int _zot_priv_system(zot_ctx *handle, const char *cmd, int *code, const char *func, long line);

/* ----------------------------------------------------------------- operations: cycle control */

/** The update check behind zot_conf_get(). @return #ZOT_OK for a new configuration, #ZOT_NO_UPDATE,
 *  #ZOT_ERR_SAME_AS_CORRUPTED (not recorded), or the error. */
int zot_priv_chk_update(zot_ctx *handle);

/** Makes current, last and temporary describe the configuration in force. @return #ZOT_OK, or as
 *  zot_priv_rotate_prev_k(). */
int zot_priv_handle_no_update(zot_ctx *handle);

/** The commit behind zot_conf_commit(), with its statuses. */
int zot_priv_commit_conf(zot_ctx *handle);
/** The roll-back behind zot_conf_roll_back(), with its statuses. */
int zot_priv_commit_fail_k(zot_ctx *handle);

/** Marks the cycle as committed. */
void zot_done_commit(zot_ctx *handle);
/** Marks the cycle as rolled back. */
void zot_done_roll_back(zot_ctx *handle);

/** Sub-system set-up of a new handle: identity, operations, directories. @return #ZOT_OK or the
 *  first failure. */
int zot_priv_init_sub_sys(zot_ctx *handle);

/** Takes over the index, upper-cased. @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, #ZOT_ERR_OUT_OF_RANGE.
 */
int zot_sub_init_data(zot_ctx *handle);

/** Installs the access-point operations. @return #ZOT_OK or #ZOT_ERR_NULL_INPUT. */
int zot_sub_init_fns(zot_ctx *handle);

/** Sets the default time-outs, 5 and 30 seconds. @return #ZOT_OK or #ZOT_ERR_NULL_INPUT. */
int zot_sub_init_parm(zot_parm_all *parm);

/** Writes the persistent directory into @p buf: ZOT_DEV_PATH, which switches dev mode on for the
 * rest of the handle's life, or ZOT_PREFIX_CONF_ROOT with "/writable/zot/". @return @p buf; NULL
 * without handle or buffer. */
char *zot_sub_get_conf_root(zot_ctx *handle, char *buf, size_t size);

/** Writes the scratch directory into @p buf: ZOT_PREFIX_TMP_ROOT with "/tmp/zot". @return @p buf;
 *  NULL without handle or buffer. */
char *zot_sub_get_tmp_root(zot_ctx *handle, char *buf, size_t size);

/** Port of the service: ZOT_REMOTE_PORT, or 8087 when it is unset or below 1. */
uint32_t zot_sub_get_remote_port(void);

/** Computes the four directories from the environment and creates them.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_WRONG_INPUT for a directory with characters that
 * a shell would interpret; #ZOT_ERR_GENERIC. */
int zot_priv_reload_sys_paths(zot_ctx *handle);

/** Makes sure that a directory exists. @param label its name in messages. @return #ZOT_OK,
 *  #ZOT_ERR_WRONG_INPUT for no path, #ZOT_ERR_GENERIC, or #ZOT_ERR_NULL_INPUT without a handle. */
int zot_priv_chk_n_mkdir(zot_ctx *handle, const char *path, const char *label);

/** The access-point adapter: K from the service on the loopback host.
 *  @return as zot_priv_get_new_k_by_host(). */
int ap_download_k(zot_ctx *handle, zot_k *k);

/** The access-point adapter: all GPB files as one archive, unpacked and verified.
 *  @return #ZOT_OK; #ZOT_ERR_NULL_INPUT; #ZOT_ERR_TIMEOUT; #ZOT_ERR_REMOTE_UNAVAIL;
 *  #ZOT_ERR_CORRUPTED for an archive that cannot be unpacked, that holds anything but directories
 *  and regular files below "config", or whose files are not what K states; #ZOT_ERR_NOMEM;
 *  #ZOT_ERR_GENERIC. */
int ap_download_gpb(zot_ctx *handle, zot_k *k, zot_list *gpbs);

/** Start-up loaders: fill a slot, or the marked list, from the cache. Each runs once per handle,
 *  whether it succeeds or not. @return #ZOT_OK, also when there is nothing left to do;
 *  #ZOT_ERR_NULL_INPUT; #ZOT_ERR_NOMEM; or as the K readers. */
int zot_priv_init_load_conf(zot_ctx *handle);
/** @copydoc zot_priv_init_load_conf() */
int zot_priv_init_load_prev_k(zot_ctx *handle);
/** @copydoc zot_priv_init_load_conf() */
int zot_priv_init_load_tmp_k(zot_ctx *handle);
/** @copydoc zot_priv_init_load_conf() */
int zot_priv_init_load_fail_k(zot_ctx *handle);
/** @copydoc zot_priv_init_load_conf() */
int zot_priv_init_load_ret_gpb_list(zot_ctx *handle);

/** Loads one K through a reader. @param[out] target receives the record, untouched on failure.
 *  @return #ZOT_OK, #ZOT_ERR_NULL_INPUT, #ZOT_ERR_NOMEM, or the reader's status. */
int __zot_priv_init_load_k_f(zot_ctx *handle, zot_k_reader reader, zot_k **target, const char *root,
                             int flags);

/** __zot_priv_init_load_k_f() for optional files; flags of 0 are a programming error that aborts.
 */
int _zot_priv_init_load_k_f(zot_ctx *handle, zot_k_reader reader, zot_k **target, const char *root,
                            int flags);

/* --------------------------------------------------------------------------------- helpers */

/** Removes a path recursively through the shell. @return 0 when removed or absent; -1 when refused
 *  (no path, the root directory under any name, a path that a shell would interpret (EINVAL), a
 * path that is too long) or failed; else the raw status of the command. */
int rm_rf(const char *path);

/* Where times have 32 bits, the library would write beyond the record of a program that is built
 * without these. */
#if defined(__GLIBC__) && defined(__TIMESIZE) && __TIMESIZE == 32 && \
    (!defined(_TIME_BITS) || _TIME_BITS != 64)
__attribute__((error("needs -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")))
#endif
/** Type of a path, symbolic links not followed, or of a descriptor when @p fd is not negative.
 *  @param[out] st may be NULL. On 32 bits with glibc it is the record that a program gets with
 *  _FILE_OFFSET_BITS and _TIME_BITS set to 64.
 *  @return 1 regular file; 2 directory; 3 other; -1 no path and no descriptor; -3 empty path or
 *  absent; -4 any other failure. */
int get_file_type(const char *path, struct stat *st, int fd);

/** fcopy_stat() without counters. */
int fcopy(const char *src, const char *dst);

/** Copies a file byte by byte with its mode bits. An existing destination is replaced by a new
 * file, never written through.
 *  @param[out] rd,wr bytes read and written; may be NULL
 *  @return 0; -1 on failure, also when both are one file; a partly written destination stays. */
int fcopy_stat(const char *src, const char *dst, uint64_t *rd, uint64_t *wr);

/** Creates a directory with its parents. @return 0, also when it exists; -1. */
int mkdir_r(const char *path);

/** Makes a path a directory: creates it, or replaces what is no directory. @return 0; -1, also for
 *  an empty path and "/". */
int chk_and_mkdir(const char *path);

/** Reads the first line, at most 511 bytes, without its newline.
 *  @param len bytes copied at most; a longer line leaves @p buf unterminated
 *  @return @p buf; NULL when there is no line. */
char *read_line(const char *path, char *buf, size_t len);

/** Reads a whole file. @param[out] size bytes, set as soon as it is known. @return a terminated
 *  buffer, freed by the caller with free(); NULL on failure, also for an empty file. */
char *read_file(const char *path, uint32_t *size);

/** Maps a whole file read-only. @param[out] len bytes; 0 on failure. @return the mapping, given
 * back with free_file_mmap(); NULL on failure, also for an empty file. */
char *read_file_mmap(const char *path, uint32_t *len);

/** Unmaps read_file_mmap(). @return 0; -1 for no address, no length or a failure. */
int free_file_mmap(void *addr, uint32_t len);

/** Writes a whole file, created or truncated. @return 0; -1 on failure. A size of 0 leaves an empty
 *  file and returns -1. */
int write_file(const char *path, const void *buf, size_t size);

/** Upper-cases a string in place. @return @p s. */
char *str2upper(char *s);

/** Prints a JSON tree to standard output, a development aid. */
void print_cjson(const struct cJSON *tree);

/** Runs a shell command with SIGCHLD at its default, so that a host which ignores it does not lose
 *  the status. @return the raw status of system(). */
int cmd_helper_system(const char *cmd);

/** Renders a 32-byte digest as 64 lower-case hexadecimal digits. @param size at least 65.
 *  @return @p out; NULL when @p size is below 65. */
char *sha256_hash_str(const void *digest, char *out, uint32_t size);

/** SHA-256 of a buffer as text. @return 0; -1 without data, for data whose first byte is zero, for
 *  @p size below 65, or when libcrypto fails. */
int calc_sha256(const void *data, uint32_t len, char *out, uint32_t size);

/** Compares a buffer's SHA-256 with the first 64 characters of @p want. @return 0 equal; any other
 *  value not, -1 also for a failure. */
int cmp_file_sha256(const void *data, uint32_t len, const char *want);

/**
 * Fetches one file by HTTP GET. The body goes to PATH.tmp, which is renamed on success and
 * stays on failure.
 * @param url      http or https
 * @param path     destination
 * @param[out] mem receives the file too, freed by the caller; may be NULL
 * @param timeout  seconds for the whole transfer; 0: no limit
 * @param[out] stat may be NULL
 * @return 0; -1 for a missing argument, a file error or a response other than 200; a positive
 *         libcurl code when the transfer failed.
 */
int get_remote_file_stat(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout,
                         remote_file_stat *stat);

/** get_remote_file_stat() without statistics. */
int get_remote_file(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout);

/**
 * Fetches an archive of named files by HTTP POST of {"files": […]}, straight into @p path. There is
 * no time limit.
 * @param names list of #remote_file_name; empty names are left out
 * @param spare not used
 * @param[out] stat time, bytes and file time; may be NULL
 * @return as get_remote_file_stat(); 0 also when @p path cannot be opened, with nothing
 * transferred.
 */
int get_remote_file_set_stat(const char *url, const char *path, const zot_list *names,
                             uint32_t spare, remote_file_stat *stat);

/** get_remote_file_set_stat() without statistics. */
int get_remote_file_set(const char *url, const char *path, const zot_list *names, uint32_t spare);

/** Name of a sub-system (0 "AP", 1 "CP", 2 "DP"), static; NULL for any other value. */
const char *get_subsys_str_by_enum(int32_t subsys);

/** Name of a category, static; NULL for any other value. */
const char *get_cat_str_by_gpb_cat(int32_t category);

/** Category of a name, letter case counts. @return 0; 1 unknown name; -1 missing argument. */
int get_gpb_cat_by_cat_str(const char *name, int32_t *category);

/** Splits /category/key/version into buffers, cutting what is longer. @return @p cat; NULL when an
 *  argument is missing or the path has not three components. */
char *get_gpb_meta_str(const char *path, char *cat, size_t cat_size, char *key, size_t key_size,
                       uint64_t *version);

/** get_gpb_meta_str() with the category looked up. @return 0; 1 unknown category, the rest filled;
 *  -1 missing argument or bad path. */
int get_gpb_meta_by_path(const char *path, int32_t *category, char *key, size_t key_size,
                         uint64_t *version, char *cat, size_t cat_size);

/**
 * Reads a member of a JSON object, letter case ignored.
 * @param type cJSON's bit: 1 false, 2 true, 8 number (as int32_t, truncated, saturated), 16 string
 * @param[out] out int32_t, or a buffer of @p size bytes for a string
 * @return 0; 1 unsupported type; -1 missing argument, absent, of another type, or too long.
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

#endif /* ZOT_CONF_H */
