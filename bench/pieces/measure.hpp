// SPDX-License-Identifier: Apache-2.0
// How a piece is measured. A piece is a class with
//   bool run()             does the work that is timed; false when it failed,
//   bool is_right() const  tells whether the last run left what it should; asked once,
//   void reset()           if it has one: releases what the last run left and prepares the next
//                          one, off the clock.
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
  // The first run pays for memory that the others find, and at the largest scale there may be only
  // one other.
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
      state.SkipWithError("the work was not done");
      return;
    }
  }
  if (!piece.is_right()) {
    state.SkipWithError("the outcome is wrong");
  }
}

// For a piece made from a number of entries.
template <class Piece>
void measure_entries(benchmark::State &state) {
  Piece piece(static_cast<std::size_t>(state.range(0)));
  run_piece(state, piece);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// For a piece made from a number of bytes.
template <class Piece>
void measure_bytes(benchmark::State &state) {
  Piece piece(static_cast<std::size_t>(state.range(0)));
  run_piece(state, piece);
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

// For a piece that is one call.
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
