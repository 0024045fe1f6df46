// SPDX-License-Identifier: Apache-2.0
// Measures an operation. An operation is a class `Piece` with
//   bool run()             does the timed work; false on failure,
//   bool is_right() const  whether the result of the last run is right; called once,
//   void reset()           optional: releases the result of the last run and prepares the next
//                          one; not timed.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>

namespace zot::bench {

template <class Piece>
void prepare(Piece &piece) {
  if constexpr (requires { piece.reset(); }) {
    piece.reset();
  }
}

template <class Piece>
void run_piece(benchmark::State &state, Piece &piece) {
  // The first run allocates memory that later runs reuse, and at the largest scale there may be
  // only one later run.
  prepare(piece);
  bool is_done = piece.run();
  for (auto _ : state) {
    if constexpr (requires { piece.reset(); }) {
      state.PauseTiming();
      piece.reset();
      state.ResumeTiming();
    }
    is_done = is_done && piece.run();
    if (!is_done) {
      state.SkipWithError("the operation failed");
      return;
    }
  }
  if (!piece.is_right()) {
    state.SkipWithError("the result is wrong");
  }
}

// For an operation on a number of entries.
template <class Piece>
void measure_entries(benchmark::State &state) {
  Piece piece(static_cast<std::size_t>(state.range(0)));
  run_piece(state, piece);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// For an operation on a number of bytes.
template <class Piece>
void measure_bytes(benchmark::State &state) {
  Piece piece(static_cast<std::size_t>(state.range(0)));
  run_piece(state, piece);
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

// For an operation that is one call.
template <class Piece>
void measure_call(benchmark::State &state) {
  Piece piece;
  run_piece(state, piece);
  state.SetItemsProcessed(state.iterations());
}

inline void at_every_scale(benchmark::internal::Benchmark *of) {
  of->RangeMultiplier(10)->Range(100, 100'000)->Unit(benchmark::kMicrosecond);
}

}  // namespace zot::bench
