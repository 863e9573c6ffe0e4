# gnuplot -e "data='...'; picture='...'" growth.gnuplot: processor time over the samples (block 0 of the data: samples,
# modes, seconds) and over the modes (block 1).
set terminal svg size 900,420 font "Helvetica,14" background "white"
set output picture
stats data index 0 using 1:3 name "length" nooutput
stats data index 1 using 2:3 name "modes" nooutput
set multiplot layout 1,2
set grid
set border 3
set tics nomirror
set logscale xy
set key left top reverse Left
set ylabel "processor time [s]"

set title "10 modes"
set xlabel "samples N"
set format x "10^{%L}"
set xrange [700:1.5e6]
plot data index 0 using 1:3 title "analysis" with linespoints lc "black" lw 2 pt 7, \
     length_max_y * x * log(x) / (length_max_x * log(length_max_x)) title "N log N" lc "gray50" dt 2

set title "32,000 samples"
set xlabel "modes K"
set format x "%g"
set xrange [1.5:180]
set xtics (2, 4, 8, 16, 32, 64, 128)
set yrange [0.01:10]
plot data index 1 using 2:3 title "analysis" with linespoints lc "black" lw 2 pt 7, \
     modes_max_y * (x / modes_max_x)**3 title "K^3" lc "gray50" dt 2
