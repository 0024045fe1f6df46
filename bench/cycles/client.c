// SPDX-License-Identifier: Apache-2.0
// usage: bench_client INDEX STEP…
// An element whose cycles are measured. Each step prints lines of figures.
//
//   first:N    creates the handle, gets a configuration of N entries into an empty cache, and
//              commits it
//
//   update:N   gets a configuration in which N entries changed, and commits it
//
//   settle     gets without an update; not measured, because only the first such get after a commit
//              has to set the last slot
//
//   poll       gets without an update
//   polls:N    the same N times, each followed by a bare request for the checksum; prints the
//   medians restart:N  creates the handle, gets the N cached entries and reads all their bytes
//   port:N     sets the port of the service for the next steps
//
// The first step counts from BENCH_BEGIN, so that a process is measured from its start.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "bare_get.h"
#include "element.h"
#include "figures.h"
#include "phases.h"

struct client {
  struct element element;
  struct figures start;  // figures of the process start, until a step has counted them
  size_t size;           // bytes of each file
};

struct action {
  const char *name;
  void (*run)(struct client *client, const char *name, unsigned long number);
};

static struct figures take_start(struct client *client) {
  const struct figures start = client->start;
  client->start = (struct figures){0, 0, 0};
  return start;
}

static void create(struct client *client) {
  struct element *const element = &client->element;
  zot_parm_all parm;
  zot_util_init_conf_parm(&parm);
  phases_listen_to(&parm.log_ctl);
  element_begin(element, zot_conf_init_args("AP", element->index, strlen(element->index), parm));
}

static void set_log_level(struct client *client, uint32_t level) {
  zot_ctx *const handle = client->element.handle;
  if (zot_parm_set(handle, ZOT_PARM_LOG_LEVEL, &level, sizeof level) != ZOT_OK) {
    element_fail("log level %u: %s", level, zot_util_get_err_str(handle));
  }
}

static struct figures measure(struct element *element, void (*run)(struct element *element)) {
  const struct figures begin = figures_now();
  run(element);
  return figures_since(&begin);
}

static void expect_entries(unsigned long count, unsigned long expected) {
  if (count != expected) {
    element_fail("%lu entries instead of %lu", count, expected);
  }
}

// The checks between the two calls are not measured.
static void get_and_commit(struct client *client, const char *name, unsigned long expected) {
  struct element *const element = &client->element;
  const struct subject subject = {"zotconf", name};
  struct figures whole = take_start(client);
  peak_begin();
  if (element->handle == NULL) {
    const struct figures begin = figures_now();
    create(client);
    const struct figures created = figures_since(&begin);
    figures_add(&whole, &created);
  }
  phases_begin();
  const struct figures get = measure(element, element_get_new);
  const long get_peak = peak_kib();
  expect_entries(element_count_entries(element, client->size), expected);
  phases_resume();
  const struct figures commit = measure(element, element_commit);
  const long peak = peak_kib();
  figures_add(&whole, &get);
  figures_add(&whole, &commit);
  print_figures(&subject, "get", &get, get_peak);
  print_figures(&subject, "commit", &commit, peak);
  print_figures(&subject, "whole", &whole, peak);
  phases_print(&subject, get.wall + commit.wall);
}

static void settle(struct client *client, const char *name, unsigned long number) {
  (void)name;
  (void)number;
  set_log_level(client, ZOT_LOG_WARN);
  element_poll(&client->element);
  set_log_level(client, ZOT_LOG_INFO);
}

static void poll_once(struct client *client, const char *name, unsigned long number) {
  (void)number;
  const struct subject subject = {"zotconf", name};
  set_log_level(client, ZOT_LOG_WARN);
  peak_begin();
  const struct figures get = measure(&client->element, element_poll);
  print_figures(&subject, "get", &get, peak_kib());
  set_log_level(client, ZOT_LOG_INFO);
}

static int compare_seconds(const void *a, const void *b) {
  const double left = *(const double *)a;
  const double right = *(const double *)b;
  return (left > right) - (left < right);
}

static double median(double *seconds, size_t count) {
  qsort(seconds, count, sizeof seconds[0], compare_seconds);
  return (seconds[(count - 1) / 2] + seconds[count / 2]) / 2;
}

static void poll_often(struct client *client, const char *name, unsigned long number) {
  (void)name;
  enum { most = 100000 };
  static double polls[most];
  static double requests[most];
  struct element *const element = &client->element;
  const char *const port = getenv("ZOT_REMOTE_PORT");
  if (number == 0 || number > most || port == NULL) {
    element_fail("%lu polls of port %s", number, port != NULL ? port : "(none)");
  }
  char url[512];
  snprintf(url, sizeof url, "http://127.0.0.1:%s/file/knowledge/AP/%s/latest/%s.checksum", port,
           element->index, element->index);
  set_log_level(client, ZOT_LOG_WARN);
  for (unsigned long i = 0; i < number; ++i) {
    const double begin = wall_now();
    element_poll(element);
    polls[i] = wall_now() - begin;
    requests[i] = bare_get_seconds(url);
  }
  set_log_level(client, ZOT_LOG_INFO);
  print_wall(&(struct subject){"zotconf", "poll"}, "loop", median(polls, number));
  print_wall(&(struct subject){"bare", "poll"}, "loop", median(requests, number));
}

static unsigned long sum_of(const zot_ret_data *entry) {
  const unsigned char *const bytes = entry->data;
  unsigned long sum = 0;
  for (size_t i = 0; i < entry->size; ++i) {
    sum += bytes[i];
  }
  return sum;
}

static void get_cached(struct element *element) {
  element_get(element, ZOT_STAT_CACHED);
  for (zot_list *node = element->entries->next; node != element->entries; node = node->next) {
    const zot_ret_data *const entry = (const zot_ret_data *)node;
    if (entry->data == NULL || sum_of(entry) == 0) {
      element_fail("%s: no bytes", entry->key);
    }
  }
}

static void restart(struct client *client, const char *name, unsigned long number) {
  struct element *const element = &client->element;
  const struct subject subject = {"zotconf", name};
  struct figures whole = take_start(client);
  peak_begin();
  const struct figures begin = figures_now();
  create(client);
  const struct figures created = figures_since(&begin);
  figures_add(&whole, &created);
  const struct figures get = measure(element, get_cached);
  const long peak = peak_kib();
  figures_add(&whole, &get);
  expect_entries(element_count_entries(element, client->size), number);
  print_figures(&subject, "get", &get, peak);
  print_figures(&subject, "whole", &whole, peak);
  zot_conf_free_ret_data(element->handle, &element->entries);
}

static void set_port(struct client *client, const char *name, unsigned long number) {
  (void)client;
  (void)name;
  char port[32];
  snprintf(port, sizeof port, "%lu", number);
  setenv("ZOT_REMOTE_PORT", port, 1);
}

static const struct action actions[] = {
    {"first", get_and_commit}, {"update", get_and_commit}, {"settle", settle}, {"poll", poll_once},
    {"polls", poll_often},     {"restart", restart},       {"port", set_port},
};

static void run_step(struct client *client, const char *step) {
  const size_t length = strcspn(step, ":");
  const unsigned long number = step[length] == ':' ? strtoul(step + length + 1, NULL, 10) : 0;
  for (size_t i = 0; i < sizeof actions / sizeof actions[0]; ++i) {
    if (strlen(actions[i].name) == length && strncmp(actions[i].name, step, length) == 0) {
      actions[i].run(client, actions[i].name, number);
      return;
    }
  }
  element_fail("'%s' is not a step", step);
}

int main(int argc, char **argv) {
  const char *const size = getenv("BENCH_SIZE");
  if (argc < 3 || size == NULL) {
    element_fail("usage: BENCH_SIZE=BYTES %s INDEX STEP...", argv[0]);
  }
  struct client client = {{argv[1], NULL, NULL}, figures_of_start(), strtoul(size, NULL, 10)};
  for (int i = 2; i < argc; ++i) {
    run_step(&client, argv[i]);
  }
  if (client.element.handle != NULL) {
    element_end(&client.element);
  }
  return 0;
}
