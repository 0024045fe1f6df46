# SPDX-License-Identifier: Apache-2.0
# The common style of all plots. They are small, so that their text stays legible on a narrow screen.
# The colours are distinguishable with red-green colour blindness.
height = exists("height") ? height : 400
set terminal svg size 440,height fixed font "DejaVu Sans,sans-serif,14" background "#ffffff"
set datafile separator "\t"
set encoding utf8
set border linecolor rgb "#444444"
set tics textcolor rgb "#000000" nomirror font ",12"
set key below center reverse Left noenhanced samplen 2 spacing 1.2 font ",12"
array colour[8] = ["#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9", \
  "#000000", "#999999"]
