# SPDX-License-Identifier: Apache-2.0
# The common style of all plots. The colours are distinguishable with red-green colour blindness.
set terminal svg size 880,540 fixed font "DejaVu Sans,sans-serif,14" background "#ffffff"
set datafile separator "\t"
set encoding utf8
set border linecolor rgb "#444444"
set tics textcolor rgb "#000000" nomirror
array colour[8] = ["#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9", \
  "#000000", "#999999"]
