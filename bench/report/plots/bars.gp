# SPDX-License-Identifier: Apache-2.0
# usage: gnuplot -c bars.gp STYLE DATA OUT X Y
# Draws a bar for each line of the data, stacked to 100 %, with the total time above it.
height = 580
load ARG1
data = ARG2
set output ARG3
set xlabel ARG4
set ylabel ARG5

set style data histograms
set style histogram rowstacked
set style fill solid 1 border rgb "#ffffff"
set boxwidth 0.8
set yrange [0:122]
set xrange [-0.7:*]
set ytics 0, 20, 100
set grid ytics linetype 1 linecolor rgb "#dddddd"
set xtics scale 0 rotate by 90 right font ",11"

# Thin parts get strong colours.
array shade[8] = ["#000000", "#e69f00", "#0072b2", "#56b4e9", "#009e73", "#d55e00", "#cc79a7", \
  "#999999"]
stats data skip 1 using 4 nooutput
last = STATS_columns
plot for [i = 4:last] data using i:xtic(strcol(1)." × ".strcol(2)) title columnheader(i) \
    linecolor rgb shade[i - 3], \
  data using 0:(103):(strcol(3)) every ::1 with labels rotate left font ",11" notitle
