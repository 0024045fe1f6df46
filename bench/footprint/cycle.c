// SPDX-License-Identifier: Apache-2.0
// usage: footprint_… INDEX STEP…
// The measured client. Each step is NAME=ACTION and prints its figures as "NAME VALUE".
//
//   sizes     prints the sizes of the records
//   init      creates the handle
//   get       must return a new configuration; touches the bytes of every entry
//   commit    commits it and frees the returned list
//   poll      gets again; must return no update and no entry
//   port:N    sets the port of the service for the next steps; not measured
//   free      frees the handle
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "element.h"
#include "probe.h"

struct action {
  const char *name;
  void (*run)(void *element);
};

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
  struct element *const element = argument;
  element_begin(element, zot_conf_init(element->index, strlen(element->index)));
}

static void get_new(void *argument) {
  struct element *const element = argument;
  element_get_new(element);
  printf("entries %lu\n", element_count_entries(element, FOOTPRINT_FILE_SIZE));
}

static void commit(void *argument) {
  element_commit(argument);
}

static void poll_once(void *argument) {
  element_poll(argument);
}

static void destroy(void *argument) {
  element_end(argument);
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
  element_fail("unknown action '%s'", name);
}

static void run_step(struct element *element, char *step) {
  char *const separator = strchr(step, '=');
  if (separator == NULL) {
    element_fail("'%s' is not a step", step);
  }
  *separator = '\0';
  const struct action *const action = find_action(separator + 1);
  probe_run(step, action->run, element);
}

int main(int argc, char **argv) {
  // A buffer that the C library allocates would count as heap.
  static char output[BUFSIZ];
  setvbuf(stdout, output, _IOFBF, sizeof output);
  if (argc < 3) {
    element_fail("usage: %s INDEX STEP...", argv[0]);
  }
  struct element element = {argv[1], NULL, NULL};
  probe_start();
  for (int i = 2; i < argc; ++i) {
    if (strncmp(argv[i], "port:", strlen("port:")) == 0) {
      setenv("ZOT_REMOTE_PORT", argv[i] + strlen("port:"), 1);
    } else {
      run_step(&element, argv[i]);
    }
  }
  return 0;
}
