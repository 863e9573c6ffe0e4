# Draws PREFIX-response.png from the files of the same prefix: gnuplot -c plot_response.gp PREFIX
prefix = ARG1
modes = prefix . "-modes.dat"
singular = prefix . "-singular.dat"
response = prefix . "-response.dat"

set terminal pngcairo size 1500,640 font "sans,13" linewidth 1.4
set output prefix . "-response.png"
set border 3 linewidth 0.7
set tics nomirror
set grid linecolor rgb "#e4e4e4" linetype 1 linewidth 0.7
set logscale y
set format y "10^{%T}"
set tmargin at screen 0.915
set bmargin at screen 0.125

GHz = 1e9 # Hz
stats modes using 1 nooutput
exponentials = 2 * STATS_records
stats singular using 3 nooutput
rank = STATS_sum
stats singular using 2 nooutput
floor = STATS_min > 1e-18 ? STATS_min : 1e-18
stats response using 4 nooutput
low = STATS_min
high = STATS_max
stats modes using 11 nooutput
weakest = 1e-6 * STATS_max

set multiplot
set lmargin at screen 0.075
set rmargin at screen 0.395
set ylabel "relative to the first" offset 1
set title "Singular values of the record, two for each mode" font ",15"
set xlabel "number"
set xrange [0 : 1.6 * (exponentials > rank ? exponentials : rank)]
set yrange [0.3 * floor : 5]
set arrow 1 from exponentials + 0.5, graph 0 to exponentials + 0.5, graph 0.8 nohead dashtype 2 linecolor rgb "#c0392b"
set label 1 sprintf("2 x %d modes found", exponentials / 2) at exponentials + 0.5, graph 0.83 center textcolor rgb "#c0392b"
set key top right reverse Left samplen 1
plot singular using 1:($3 == 1 ? $2 : NaN) with points pointtype 7 pointsize 0.7 linecolor rgb "#1f618d" \
         title sprintf("%d above noise", rank), \
     singular using 1:($3 == 0 ? $2 : NaN) with points pointtype 6 pointsize 0.7 linecolor rgb "#909090" title "noise"
unset arrow 1
unset label 1

unset ylabel
set lmargin at screen 0.455
set rmargin at screen 0.985
set autoscale x
set autoscale xfix
set yrange [0.5 * low : 20 * high]
set xlabel "frequency [GHz]"
set xtics 0.5
set format x "%.1f"
set title "The driven response, |field at the probe / current|  [V/(m A)]" font ",15"
set key top center horizontal noreverse Right samplen 2 width 1
plot modes using ($11 > weakest ? $3 / GHz : NaN):(2.5 * high) with impulses linewidth 0.8 linecolor rgb "#e0908a" \
         title "modes found", \
     response using ($1 / GHz):7 with lines linewidth 4 linecolor rgb "#c9c9c9" title "exact", \
     response using ($1 / GHz):4 with lines linewidth 1.3 linecolor rgb "#1f618d" title "linear system of the record"
unset multiplot
