# SPDX-License-Identifier: Apache-2.0
# usage: gnuplot -c load.gp STYLE DATA OUT X Y
# Draws a line of steps for each column of the data, over time.
load ARG1
data = ARG2
set output ARG3
set xlabel ARG4
set ylabel ARG5

set yrange [0:*]
set grid ytics linetype 1 linecolor rgb "#dddddd"
set datafile missing "?"

stats data skip 1 using 1 nooutput
last = STATS_columns
plot for [i = 2:last] data using 1:i with steps linewidth 2 linecolor rgb colour[i - 1] \
  title columnheader(i)
