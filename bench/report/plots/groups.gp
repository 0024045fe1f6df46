# SPDX-License-Identifier: Apache-2.0
# usage: gnuplot -c groups.gp STYLE DATA OUT X Y
# Draws a group of bars for each line of the data, one bar for each column.
load ARG1
data = ARG2
set output ARG3
set xlabel ARG4
set ylabel ARG5

set style data histograms
set style histogram clustered gap 1.5
set style fill solid 1 border rgb "#ffffff"
set yrange [0:*]
set grid ytics linetype 1 linecolor rgb "#dddddd"
set xtics scale 0
set datafile missing "?"

stats data skip 1 using 2 nooutput
last = STATS_columns
plot for [i = 2:last] data using i:xtic(1) title columnheader(i) linecolor rgb colour[i - 1]
