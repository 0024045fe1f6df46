// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_BARE_GET_H
#define BENCH_BARE_GET_H

// Returns the seconds that libcurl alone takes to get a small file into memory. Sets up the global
// state of libcurl before the measurement and cleans it up afterwards, so that the next user has
// the cost of its own set-up.
double bare_get_seconds(const char *url);

#endif
