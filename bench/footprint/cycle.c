// SPDX-License-Identifier: Apache-2.0
// usage: footprint_… INDEX STEP…
// A client that is measured: each step is NAME=ACTION, and prints its figures as "NAME VALUE".
//
//   sizes     the sizes of the records
//   init      creates the handle
//   get       has to bring a new configuration; every entry's bytes are touched
//   commit    commits it and gives the returned list back
//   poll      gets again; has to bring no update and no entry
//   port:N    the service of the next steps; not measured
//   free      frees the handle
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "probe.h"
#include "zot_conf.h"

struct client {
  const char *index;
  zot_ctx *handle;
  zot_list *entries;
};

struct action {
  const char *name;
  void (*run)(void *client);
};

_Noreturn static void fail(const char *format, ...) {
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
  fputc('\n', stderr);
  exit(1);
}

static void print_sizes(void *argument) {
  (void)argument;
  printf("sizeof.zot_ctx %zu\n", sizeof(zot_ctx));
  printf("sizeof.zot_parm %zu\n", sizeof(zot_parm));
  printf("sizeof.zot_k %zu\n", sizeof(zot_k));
  printf("sizeof.zot_gpb %zu\n", sizeof(zot_gpb));
  printf("sizeof.zot_ret_data %zu\n", sizeof(zot_ret_data));
  printf("sizeof.remote_file_name %zu\n", sizeof(remote_file_name));
}

static void create(void *argument) {
  struct client *const client = argument;
  client->handle = zot_conf_init(client->index, strlen(client->index));
  if (client->handle == NULL) {
    fail("no handle");
  }
}

static int get(struct client *client) {
  const uint32_t changed = ZOT_STAT_ADDED | ZOT_STAT_MODIFIED | ZOT_STAT_DELETED;
  zot_catset wanted = {{0}};
  zot_catset_set_all(&wanted);
  return zot_conf_get(client->handle, wanted, changed, &client->entries);
}

static void get_new(void *argument) {
  struct client *const client = argument;
  const int status = get(client);
  if (status != ZOT_OK) {
    fail("get: %d: %s", status, zot_util_get_err_str(client->handle));
  }
  unsigned long entries = 0;
  for (zot_list *node = client->entries->next; node != client->entries; node = node->next) {
    const zot_ret_data *entry = (const zot_ret_data *)node;
    if (entry->size != FOOTPRINT_FILE_SIZE || memchr(entry->data, 0, 1) != NULL) {
      fail("%s: not what was published", entry->key);
    }
    ++entries;
  }
  printf("entries %lu\n", entries);
}

static void commit(void *argument) {
  struct client *const client = argument;
  const int status = zot_conf_commit(client->handle);
  if (status != ZOT_OK) {
    fail("commit: %d: %s", status, zot_util_get_err_str(client->handle));
  }
  zot_conf_free_ret_data(client->handle, &client->entries);
}

// Without an update the returned list is there, and empty.
static void poll_once(void *argument) {
  struct client *const client = argument;
  const int status = get(client);
  if (status != ZOT_OK || (client->handle->stat.state & ZOT_CYCLE_SAME_K) == 0 ||
      !zot_list_is_empty(client->entries)) {
    fail("poll: %d: %s", status, zot_util_get_err_str(client->handle));
  }
  zot_conf_free_ret_data(client->handle, &client->entries);
}

static void destroy(void *argument) {
  struct client *const client = argument;
  zot_conf_free(client->handle);
  client->handle = NULL;
}

static const struct action actions[] = {
    {"sizes", print_sizes}, {"init", create},    {"get", get_new},
    {"commit", commit},     {"poll", poll_once}, {"free", destroy},
};

static const struct action *find_action(const char *name) {
  for (size_t i = 0; i < sizeof actions / sizeof actions[0]; ++i) {
    if (strcmp(actions[i].name, name) == 0) {
      return &actions[i];
    }
  }
  fail("no action is called '%s'", name);
}

static void run_step(struct client *client, char *step) {
  char *const separator = strchr(step, '=');
  if (separator == NULL) {
    fail("'%s' is no step", step);
  }
  *separator = '\0';
  const struct action *const action = find_action(separator + 1);
  probe_run(step, action->run, client);
}

int main(int argc, char **argv) {
  // A buffer of its own would count as heap.
  static char output[BUFSIZ];
  setvbuf(stdout, output, _IOFBF, sizeof output);
  if (argc < 3) {
    fail("usage: %s INDEX STEP...", argv[0]);
  }
  struct client client = {argv[1], NULL, NULL};
  probe_start();
  for (int i = 2; i < argc; ++i) {
    if (strncmp(argv[i], "port:", strlen("port:")) == 0) {
      setenv("ZOT_REMOTE_PORT", argv[i] + strlen("port:"), 1);
    } else {
      run_step(&client, argv[i]);
    }
  }
  return 0;
}
