/* SPDX-License-Identifier: Apache-2.0 */
/* A client with its own event loop. The library's calls block, so a thread makes them: a byte
 * through one pipe starts a cycle, a report through another pipe gives its result. Between the two
 * the thread owns the handle, otherwise the loop does.
 * usage: event_loop INDEX MILLISECONDS [CYCLES] */
#define _POSIX_C_SOURCE 200809L
#define ZOT_CONF_CLIENT
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>
#include <zot_conf.h>

enum { READER = 0, WRITER = 1 };

struct report {
  int status, changes;
};

struct worker {
  zot_ctx *handle;
  int orders[2], reports[2];
};

static int signals[2];

static void on_signal(int number) {
  const int kept = errno;
  const char byte = (char)number;
  (void)!write(signals[WRITER], &byte, 1); /* if the pipe is full, the loop wakes up anyway */
  errno = kept;
}

static struct report run_cycle(zot_ctx *handle) {
  const uint32_t changed = ZOT_STAT_ADDED | ZOT_STAT_MODIFIED | ZOT_STAT_DELETED;
  struct report result = {ZOT_OK, 0};
  zot_catset wanted = {{0}};
  zot_list *entries = NULL;
  zot_catset_set_all(&wanted);
  result.status = zot_conf_get(handle, wanted, changed, &entries);
  if (result.status == ZOT_OK && zot_util_is_new_conf(handle)) {
    ZOT_FOR_EACH_RET_DATA(entry, entries) {
      result.changes += entry->stat != 0; /* apply the entry->size bytes at entry->data here */
    }
    result.status = zot_conf_commit(handle);
  }
  if (entries != NULL) {
    zot_conf_free_ret_data(handle, &entries);
  }
  return result;
}

/* Runs a cycle for each byte that it reads, until the loop closes the pipe. */
static void *work(void *argument) {
  struct worker *self = argument;
  char order = 0;
  while (read(self->orders[READER], &order, 1) == 1) {
    const struct report done = run_cycle(self->handle);
    (void)!write(self->reports[WRITER], &done, sizeof done); /* there is always a reader */
  }
  return NULL;
}

static long long now_ms(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/* Runs until a signal arrives or `cycles` cycles are done; 0 means no limit. */
static int loop(struct worker *worker, long long period, long cycles) {
  long long due = now_ms();
  bool is_busy = false;
  for (long done = 0; cycles == 0 || done < cycles;) {
    const long long left = due - now_ms();
    if (!is_busy && left <= 0) {
      due = now_ms() + period;
      is_busy = write(worker->orders[WRITER], "c", 1) == 1;
      continue;
    }
    /* Add the descriptors of the program's own work here. */
    struct pollfd watched[] = {{signals[READER], POLLIN, 0}, {worker->reports[READER], POLLIN, 0}};
    if (poll(watched, 2, is_busy ? -1 : (int)left) < 0 && errno != EINTR) {
      return 1;
    }
    if ((watched[0].revents & POLLIN) != 0) {
      printf("stopped by a signal\n");
      return 0;
    }
    struct report result;
    if ((watched[1].revents & POLLIN) != 0 &&
        read(worker->reports[READER], &result, sizeof result) == (ssize_t)sizeof result) {
      is_busy = false;
      printf("cycle %ld: %d changes, %s\n", ++done, result.changes,
             zot_util_is_err(result.status) ? zot_util_get_err_str(worker->handle) : "no error");
    }
  }
  return 0;
}

int main(int argc, char **argv) {
  struct worker worker = {0};
  pthread_t thread;
  if (argc < 3 || pipe(signals) != 0 || pipe(worker.orders) != 0 || pipe(worker.reports) != 0) {
    fprintf(stderr, "usage: event_loop INDEX MILLISECONDS [CYCLES]\n");
    return 2;
  }
  setvbuf(stdout, NULL, _IOLBF, 0);
  struct sigaction action = {.sa_handler = on_signal, .sa_flags = SA_RESTART};
  sigaction(SIGTERM, &action, NULL);
  sigaction(SIGINT, &action, NULL);
  worker.handle = zot_conf_init(argv[1], strlen(argv[1]));
  if (worker.handle == NULL || pthread_create(&thread, NULL, work, &worker) != 0) {
    return 1;
  }
  const int status = loop(&worker, strtoll(argv[2], NULL, 10), argc > 3 ? atol(argv[3]) : 0);
  close(worker.orders[WRITER]); /* the thread ends after its current cycle */
  pthread_join(thread, NULL);
  zot_conf_free(worker.handle);
  return status;
}
