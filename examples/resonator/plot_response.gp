# Draws PREFIX-response.png from the files of the same prefix: gnuplot -c plot_response.gp PREFIX
prefix = ARG1
modes = prefix . "-modes.dat"
poles = prefix . "-poles.dat"
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

found = 0
stats poles using (found = found + (strcol(7) eq "kept"), 0) nooutput
order = STATS_records
stats singular using 1 nooutput
signals = STATS_blocks
stats singular index 0 using 3 nooutput
rank = STATS_sum
stats singular index 0 using 2 nooutput
floor = STATS_min > 1e-18 ? STATS_min : 1e-18
if (signals > 1) { stats singular index 1 using 3 nooutput; analytic = STATS_sum }
stats response using 1 nooutput
compared = STATS_columns > 4
stats response using 4 nooutput
low = STATS_min
high = STATS_max
silent = !(high > 0) # nothing above the noise

set multiplot
set lmargin at screen 0.075
set rmargin at screen 0.395
set ylabel "relative to the first" offset 1
set title "Singular values, the guide to the order" font ",15"
set xlabel "number"
set xrange [0 : 1.35 * (order > rank ? order : rank)]
set yrange [0.3 * floor : 5]
set arrow 1 from order, graph 0 to order, graph 1 nohead linecolor rgb "#c0392b"
set label 1 sprintf("order of the fit: %d", order) at order, graph 0.62 right offset -0.6, 0 front textcolor rgb "#c0392b"
set key top right reverse Left samplen 1 opaque
curves = "singular index 0 using 1:2 with points pointtype 7 pointsize 0.7 linecolor rgb '#1f618d' " . \
    sprintf("title 'of the record: %d above noise'", rank)
if (signals > 1) {
    curves = curves . ", singular index 1 using 1:2 with points pointtype 6 pointsize 0.7 linecolor rgb '#e67e22' " . \
        sprintf("title 'of its analytic signal: %d'", analytic)
}
eval "plot " . curves
unset arrow 1
unset label 1

unset ylabel
set lmargin at screen 0.455
set rmargin at screen 0.985
set autoscale x
set autoscale xfix
if (silent) { unset logscale y; low = -1; high = 1 }
set yrange [0.5 * low : 8 * high]
set format x "%.1s %cHz"
set xlabel "frequency"
set title (compared ? "The driven response, |field at the probe / current|  [V/(m A)]" : \
    "The spectrum of the record, rung out") font ",15"
set key top center horizontal noreverse Right samplen 2 width 1 opaque
curves = "response using 1:4 with lines linewidth 1.3 linecolor rgb '#1f618d' title 'state space'"
if (compared) {
    curves = "response using 1:7 with lines linewidth 4 linecolor rgb '#c9c9c9' title 'exact', " . curves
}
if (found) {
    column = compared ? 3 : 1
    curves = sprintf("modes using %d:(8 * high) with impulses linewidth 0.8 linecolor rgb '#e0908a' ", column) . \
        "title 'modes of the fit', " . curves
}
eval "plot " . curves
unset multiplot
