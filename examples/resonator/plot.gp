# Draws PREFIX.png from the files of the same prefix: gnuplot -c plot.gp PREFIX
prefix = ARG1
record = prefix . "-record.dat"
modes = prefix . "-modes.dat"

set terminal pngcairo size 1500,950 font "sans,13" linewidth 1.4
set output prefix . ".png"
set border 3 linewidth 0.7
set tics nomirror
set grid linecolor rgb "#e4e4e4" linetype 1 linewidth 0.7
ns = 1e9 # per second

stats record using ($3 == $3 ? $1 * ns : NaN) nooutput
start = STATS_min
stats record using (abs($2)) nooutput
peak = STATS_max
count = 0
far = 4 # the largest error, in standard errors
do for [k = 5:17:4] {
    stats modes using (abs(column(k) / column(k + 1))) nooutput
    count = STATS_records
    far = STATS_max + 1 > far ? STATS_max + 1 : far
}

set multiplot
set autoscale xfix
set lmargin at screen 0.065
set rmargin at screen 0.985
set tmargin at screen 0.94
set bmargin at screen 0.6
set title "The record, and the model over it" font ",15"
set ylabel "E_z at the probe [V/m]" offset 1
set xlabel "time [ns]" offset 0, 0.5
set key top right horizontal
set yrange [-1.2 * peak : 1.5 * peak]
set arrow 1 from start, graph 0 to start, graph 1 nohead dashtype 2 linecolor rgb "#505050"
set label 1 "first sample used" at start, graph 0.95 offset 0.6, 0 textcolor rgb "#505050"
plot record using ($1 * ns):2 with lines linecolor rgb "#b5b5b5" linewidth 3 title "record", \
     record using ($1 * ns):3 with lines linecolor rgb "#c0392b" linewidth 1 title "model"

set rmargin at screen 0.40
set tmargin at screen 0.465
set bmargin at screen 0.1
set title "The error at every sample, below the record in grey"
set ylabel "|model - record|, |record| [V/m]"
set yrange [*:*]
set logscale y
set format y "10^{%T}"
unset key
unset label 1
plot record using ($1 * ns):(abs($2)) with lines linecolor rgb "#d4d4d4", \
     record using ($1 * ns):($4 > 0 ? $4 : NaN) with lines linecolor rgb "#1f618d"
unset arrow 1

set lmargin at screen 0.465
set rmargin at screen 0.985
unset logscale y
set format y "%g"
set title "Errors of the modes found, in standard errors, with bars of one"
# The scale is linear up to one standard error and logarithmic beyond: a few modes that are far off do not squeeze the rest.
set ylabel "(found - exact) / standard error" offset 1
set nonlinear y via asinh(y) inverse sinh(y)
set ytics (-100, -50, -20, -10, -5, -2, -1, 0, 1, 2, 5, 10, 20, 50, 100)
set xlabel "m, n of the mode, by rising frequency" offset 0, 0
set xrange [-0.7 : count - 0.3]
set xtics rotate by 90 right font ",10"
set yrange [-far : 3 * far]
set grid noxtics
set key top left horizontal reverse Left samplen 1 width 1
set object 1 rectangle from graph 0, first -2 to graph 1, first 2 behind fillcolor rgb "#f0f0f0" fillstyle solid noborder
shifted(k) = column(0) + 0.2 * k - 0.3
plot modes using (shifted(0)):($5 / $6):(1):xtic(sprintf("%d, %d", $1, $2)) with yerrorbars \
         pointtype 7 pointsize 0.6 linewidth 0.7 linecolor rgb "#c0392b" title "frequency", \
     modes using (shifted(1)):($9 / $10):(1) with yerrorbars \
         pointtype 5 pointsize 0.6 linewidth 0.7 linecolor rgb "#1f618d" title "Q", \
     modes using (shifted(2)):($13 / $14):(1) with yerrorbars \
         pointtype 9 pointsize 0.7 linewidth 0.7 linecolor rgb "#239b56" title "amplitude", \
     modes using (shifted(3)):($17 / $18):(1) with yerrorbars \
         pointtype 11 pointsize 0.7 linewidth 0.7 linecolor rgb "#e67e22" title "phase"
unset multiplot
