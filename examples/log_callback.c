/* SPDX-License-Identifier: Apache-2.0 */
/* A log callback: prints warnings and errors at once, in the form that journald reads from standard
 * error ("<priority>text"). It keeps all other messages in a ring buffer and prints them only
 * before an error, so a quiet log still shows what led to a failure. usage: log_callback INDEX */
#define ZOT_CONF_CLIENT
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <zot_conf.h>

enum { RING_LINES = 16, LINE_SIZE = 256 };

struct recorder {
  char ring[RING_LINES][LINE_SIZE];
  unsigned next; /* counts all lines ever kept */
  unsigned shown;
};

static const int priorities[] = {LOG_ERR, LOG_WARNING, LOG_INFO, LOG_DEBUG};

static const struct {
  uint32_t bit;
  const char *name;
} topics[] = {{ZOT_TOPIC_TRANSFER, "transfer"},
              {ZOT_TOPIC_GPB, "files"},
              {ZOT_TOPIC_K, "knowledge"},
              {ZOT_TOPIC_FILE, "storage"}};

/* The most specific topic of a message, which may have several. */
static const char *topic_name(uint32_t mask) {
  for (size_t i = 0; i < sizeof topics / sizeof topics[0]; i++) {
    if ((mask & topics[i].bit) != 0) {
      return topics[i].name;
    }
  }
  return "general";
}

static void format_line(char *out, const zot_log_site *site, const char *text) {
  const int priority = priorities[site->level <= ZOT_LOG_DEBUG ? site->level : ZOT_LOG_DEBUG];
  snprintf(out, LINE_SIZE, "<%d>zotconf: %s: %.*s", priority, topic_name(site->mask),
           (int)strcspn(text, "\n"), text);
}

static void show_ring(struct recorder *recorder) {
  if (recorder->next - recorder->shown > RING_LINES) {
    recorder->shown = recorder->next - RING_LINES;
  }
  for (; recorder->shown != recorder->next; recorder->shown++) {
    fprintf(stderr, "%s\n", recorder->ring[recorder->shown % RING_LINES]);
  }
}

/* Runs on the thread that called the library. Must not use the handle. */
static int take_line(zot_log_ctx *log_ctx, void *argument, const char *text) {
  struct recorder *recorder = argument;
  const zot_log_site site = zot_util_log_cb_func_get_conf_stat(log_ctx);
  char line[LINE_SIZE];
  format_line(line, &site, text);
  if (site.level == ZOT_LOG_ERROR) {
    show_ring(recorder);
  }
  if (site.level <= ZOT_LOG_WARN) {
    fprintf(stderr, "%s\n", line);
    return 0;
  }
  memcpy(recorder->ring[recorder->next++ % RING_LINES], line, sizeof line);
  return 0;
}

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: log_callback INDEX\n");
    return 2;
  }
  static struct recorder recorder;
  zot_parm_all parm;
  zot_util_init_conf_parm(&parm);
  zot_util_set_log_ctl_dst_cb_func(&parm.log_ctl, take_line, &recorder);
  parm.log_ctl.level = ZOT_LOG_DEBUG;
  parm.log_ctl.option = 0; /* no function names */
  zot_ctx *handle = zot_conf_init_args("AP", argv[1], strlen(argv[1]), parm);
  if (handle == NULL) {
    return 1;
  }
  zot_catset wanted = {{0}};
  zot_list *entries = NULL;
  zot_catset_set_all(&wanted);
  const int status = zot_conf_get(handle, wanted, ZOT_STAT_FULL, &entries);
  if (entries != NULL) {
    zot_conf_free_ret_data(handle, &entries);
  }
  zot_conf_free(handle);
  printf("%u messages kept, %u of them shown\n", recorder.next, recorder.shown);
  return zot_util_is_err(status) ? 1 : 0;
}
