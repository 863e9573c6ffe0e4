# gnuplot -e "results='...'; pictures='...'" plots.gnuplot
set terminal svg size 800,520 font "Helvetica,14" background "white"
set grid
set border 3
set tics nomirror

set output pictures."/fit-time.svg"
set title "A fit of N = 4 M real samples on one core"
set xlabel "order M"
set ylabel "processor time [ms]"
set logscale xy
set xrange [4:600]
set xtics (5, 10, 20, 50, 100, 200, 350, 500)
set key left top reverse Left
data = results."/fit_time.dat"
plot data using 1:2 title "Tessel's method, unoptimised" with linespoints lc "gray50" pt 4, \
     data using 1:4 title "the same method in SciPy" with linespoints lc "#d95f02" pt 6, \
     data using 1:5 title "matrix pencil, told of M/5 modes" with linespoints lc "#7570b3" pt 8, \
     data using 1:6 title "ESPRIT, told of M/5 modes" with linespoints lc "#e7298a" pt 10, \
     data using 1:7 title "libharminv" with linespoints lc "#66a61e" pt 12, \
     data using 1:3 title "Tessel" with linespoints lc "black" lw 2 pt 7

set output pictures."/svd-ratio.svg"
set title "Singular value decomposition of the two systems of a fit\n{/*0.85 filled: Toeplitz, open: Vandermonde, crosses: real Toeplitz}"
unset logscale
set autoscale x
set xlabel "rows x columns"
set ylabel "processor time / that of the other routine"
set xtics autofreq
set ytics autofreq
set xrange [-0.5:*]
set yrange [0:*]
set key left top Left
data = results."/svd_ratio.dat"
place(routine) = $0 + 0.2 * (routine - 2) # side by side
plot 1 notitle with lines lc "gray50" dt 2, \
     data using 0:(NaN):xtic(1) notitle, \
     data using (place(1)):2 title "ZGESVD" with points lc "#1b9e77" pt 7, \
     data using (place(1)):5 notitle with points lc "#1b9e77" pt 6, \
     data using (place(2)):3 title "ZGESDD" with points lc "#d95f02" pt 9, \
     data using (place(2)):6 notitle with points lc "#d95f02" pt 8, \
     data using (place(3)):4 title "Tessel's method, unoptimised" with points lc "#7570b3" pt 5, \
     data using (place(3)):7 notitle with points lc "#7570b3" pt 4, \
     data using (place(1)):8 notitle with points lc "#1b9e77" pt 2, \
     data using (place(2)):9 notitle with points lc "#d95f02" pt 2, \
     data using (place(3)):10 notitle with points lc "#7570b3" pt 2
