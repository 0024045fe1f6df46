# SPDX-License-Identifier: Apache-2.0
# usage: gnuplot -c lines.gp STYLE DATA OUT X Y single|pairs
# Both axes are logarithmic. With "pairs", every second line is dashed and has the colour of the
# line before it.
load ARG1
data = ARG2
set output ARG3
set xlabel ARG4
set ylabel ARG5
in_pairs = ARG6 eq "pairs"

set logscale xy
set xtics ("100" 100, "1,000" 1000, "10,000" 10000, "100,000" 100000)
set xrange [80:125000]
set ytics ("0.001" 1e-3, "0.01" 0.01, "0.1" 0.1, "1" 1, "10" 10, "100" 100, "1,000" 1e3, \
  "10,000" 1e4, "100,000" 1e5, "1,000,000" 1e6)
set grid xtics ytics linetype 1 linecolor rgb "#dddddd"
set datafile missing "?"

stats data skip 1 using 1 nooutput
last = STATS_columns
colour_of(i) = colour[1 + (in_pairs ? i / 2 : i) % 8]
dash_of(i) = 1 + (in_pairs ? i % 2 : i / 8)
point_of(i) = in_pairs ? 7 - i % 2 : int(word("7 5 9 13 11 6 4 8 12 10", 1 + i % 10))

do for [i = 0:last - 2] {
  set linetype i + 1 linecolor rgb colour_of(i) dashtype dash_of(i) pointtype point_of(i) \
    linewidth 2 pointsize 0.8
}
plot for [i = 2:last] data using 1:i with linespoints linetype i - 1 title columnheader(i)
