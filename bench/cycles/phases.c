// SPDX-License-Identifier: Apache-2.0
#include "phases.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum phase {
  phase_checksum,
  phase_k,
  phase_archive,
  phase_unpack,
  phase_verify,
  phase_diff,
  phase_returned,
  phase_commit_k,
  phase_remove,
  phase_copy,
  phase_sync,
  phase_rest,
  phase_count
};

static const char *const names[phase_count] = {"checksum", "k",    "archive",  "unpack",
                                               "verify",   "diff", "returned", "commit_k",
                                               "remove",   "copy", "sync",     "rest"};

// The log line at the end of each phase.
static const struct {
  const char *text;
  enum phase phase;
} ends[] = {
    {"Do Synchronize K.", phase_rest},
    {"for \"K.checksum\": Done", phase_checksum},
    {"Get new K from remote: Done", phase_k},
    {"Download GPB files from: ", phase_archive},
    {"untar GPB files: Done", phase_unpack},
    {"Update temporary GPB: Done", phase_verify},
    {"Update returned GPB list: Done", phase_diff},
    {"Build returned list: Done", phase_returned},
    {"Commit and rotate K files: Done", phase_commit_k},
    {"Remove current GPB from cached storage: Done", phase_remove},
    {"Copy new GPB to cached storage: Done", phase_copy},
    {"Commit configuration: Done", phase_sync},
};

static double taken[phase_count];
static double last;

static void end(enum phase phase) {
  const double now = wall_now();
  taken[phase] += now - last;
  last = now;
}

static int hear(zot_log_ctx *log_ctx, void *unused, const char *line) {
  (void)log_ctx;
  (void)unused;
  for (size_t i = 0; i < sizeof ends / sizeof ends[0]; ++i) {
    if (strstr(line, ends[i].text) != NULL) {
      end(ends[i].phase);
      return 0;
    }
  }
  return 0;
}

void phases_listen_to(zot_log_ctl *ctl) {
  ctl->level = ZOT_LOG_INFO;
  ctl->facility = ZOT_TOPIC_DEFAULT;
  ctl->dst = ZOT_LOG_DST_CB_FUNC;
  ctl->cb = hear;
}

void phases_begin(void) {
  memset(taken, 0, sizeof taken);
  phases_resume();
}

void phases_resume(void) {
  last = wall_now();
}

void phases_print(const struct subject *subject, double together) {
  for (int phase = 0; phase < phase_rest; ++phase) {
    // If the wording of a log line changes, its time would count for the next phase.
    if (taken[phase] <= 0) {
      fprintf(stderr, "%s: no log line ends the phase '%s'\n", subject->step, names[phase]);
      exit(1);
    }
    print_phase(subject, names[phase], taken[phase]);
    together -= taken[phase];
  }
  print_phase(subject, names[phase_rest], together);
}
