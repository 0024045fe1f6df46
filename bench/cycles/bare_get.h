// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_BARE_GET_H
#define BENCH_BARE_GET_H

// Seconds that libcurl takes to get a small file into memory, with nothing around it. libcurl's
// global state is set up before, and gone afterwards: whoever comes next pays for its own.
double bare_get_seconds(const char *url);

#endif
