# gnuplot -e "results='...'; pictures='...'" plots.gnuplot
set terminal svg size 800,520 font "Helvetica,14" background "white"
set grid
set border 3
set tics nomirror

set output pictures."/fit-time.svg"
set title "A fit of N = 4 M real samples on one core"
set xlabel "order M"
set ylabel "time in ms"
set logscale xy
set xrange [4:600]
set key left top reverse Left
data = results."/fit_time.dat"
plot data using 1:2 title "the plain routine" with linespoints lc "gray50" pt 4, \
     data using 1:4 title "SciPy, same method" with linespoints lc "#d95f02" pt 6, \
     data using 1:5 title "matrix pencil, M/5 modes known" with linespoints lc "#7570b3" pt 8, \
     data using 1:6 title "ESPRIT, M/5 modes known" with linespoints lc "#e7298a" pt 10, \
     data using 1:7 title "libharminv" with linespoints lc "#66a61e" pt 12, \
     data using 1:3 title "Tessel" with linespoints lc "black" lw 2 pt 7

set output pictures."/svd-ratio.svg"
set title "Singular value decomposition of a fit's systems\n{/*0.85 filled: Toeplitz, open: Vandermonde, crosses: real Toeplitz}"
unset logscale
set autoscale x
set xlabel "shape"
set ylabel "time / time of the peer"
set xtics rotate by -30
set xrange [-0.5:*]
set yrange [0:*]
set key left top Left
data = results."/svd_ratio.dat"
plot 1 notitle with lines lc "gray50" dt 2, \
     data using 0:2:xtic(1) title "ZGESVD" with points lc "#1b9e77" pt 7, \
     data using 0:5 notitle with points lc "#1b9e77" pt 6, \
     data using 0:3 title "ZGESDD" with points lc "#d95f02" pt 9, \
     data using 0:6 notitle with points lc "#d95f02" pt 8, \
     data using 0:4 title "plain routine" with points lc "#7570b3" pt 5, \
     data using 0:7 notitle with points lc "#7570b3" pt 4, \
     data using 0:8 notitle with points lc "#1b9e77" pt 2, \
     data using 0:9 notitle with points lc "#d95f02" pt 2, \
     data using 0:10 notitle with points lc "#7570b3" pt 2
