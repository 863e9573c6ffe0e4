# Draws PREFIX.png from the files of the same prefix: gnuplot -c plot.gp PREFIX
prefix = ARG1
record = prefix . "-record.dat"
modes = prefix . "-modes.dat"
poles = prefix . "-poles.dat"

set terminal pngcairo size 1500,950 font "sans,13" linewidth 1.4
set output prefix . ".png"
set border 3 linewidth 0.7
set tics nomirror
set grid linecolor rgb "#e4e4e4" linetype 1 linewidth 0.7

# The view of the poles: modes stand near the axis of no decay, the others may be anywhere, a zero at the origin at minus
# infinity.
is_mode(kind) = kind eq "kept" || kind eq "conjugate"
stats record using 1 nooutput
left = -1.3 / (STATS_max - STATS_min)
negligible = growing = kept = modes_found = 0
count(kind) = (negligible = negligible + (kind eq "negligible"), growing = growing + (kind eq "growing"), \
               kept = kept + is_mode(kind), modes_found = modes_found + (kind eq "kept"), 0)
stats poles using (left = is_mode(strcol(7)) && $1 > -1e300 && $1 < left ? $1 : left, count(strcol(7))) nooutput
right = -1.7 * left
left = 5 * left
if (!kept) {
    stats poles using (right = $1 > right ? $1 : right, left = $1 > -1e300 && $1 < left ? $1 : left) nooutput
}
# see() keeps the range of what a panel shows, to widen one that is empty.
see(y) = (top = seen && top > y ? top : y, bottom = seen && bottom < y ? bottom : y, seen = seen + 1)
seen = top = bottom = 0
stats record using ($2 != 0 ? see(abs($2)) : 0, $6 > 0 ? see($6) : 0) nooutput
level = top > bottom ? 0 : top # the record and its error, if all the same
seen = top = bottom = 0
stats poles using ($1 >= left && $1 <= right ? see($2 / (2 * pi)) : 0) nooutput
compared = 0
if (modes_found) { stats modes using 1 nooutput; compared = STATS_columns > 4 }

set multiplot
set autoscale xfix
set lmargin at screen 0.065
set rmargin at screen 0.985
set tmargin at screen 0.94
set bmargin at screen 0.585
set title "The record, and the model over it" font ",15"
set ylabel "field" offset 1
set format x "%.0s %cs"
set key top right horizontal
plot record using 1:2 with lines linecolor rgb "#b5b5b5" linewidth 3 title "record", \
     record using 1:4 with lines linecolor rgb "#c0392b" linewidth 1 title "model"

set rmargin at screen 0.555
set tmargin at screen 0.465
set bmargin at screen 0.085
set title "The error at every sample, below the record in grey"
set ylabel "|model - record|"
set xlabel "time"
set logscale y
set format y "10^{%T}"
unset key
if (level) { set yrange [0.1 * level : 10 * level] }
plot record using 1:(abs($2)) with lines linecolor rgb "#d4d4d4", \
     record using 1:6 with lines linecolor rgb "#1f618d"

set lmargin at screen 0.645
set rmargin at screen 0.985
unset logscale y
set yrange [*:*]
set title "The poles s in the complex plane"
set format x "%.0s%c"
set xtics font ",10"
set format y "%.0s %cHz"
set xlabel "Re s  [1/s]"
set ylabel "Im s / 2π" offset -1.2
set xrange [left : right]
if (top == bottom) { set yrange [bottom - 0.1 * abs(bottom) - (bottom == 0) : top + 0.1 * abs(top) + (top == 0)] }
set arrow 1 from 0, graph 0 to 0, graph 1 nohead linecolor rgb "#808080"
set key on top left vertical reverse Left opaque samplen 1
# Kinds without a pole are left out, also of the key.
curves = ""
add(curve) = curves eq "" ? curve : curves . ", " . curve
points(type, size, colour, title) = \
    sprintf(" with points pointtype %d pointsize %g linecolor rgb '%s' title '%s'", type, size, colour, title)
if (negligible) {
    curves = add("poles using (strcol(7) eq 'negligible' ? $1 : NaN):($2 / (2 * pi))" . \
                 points(7, 0.6, "#a8a8a8", "negligible"))
}
if (growing) {
    curves = add("poles using (strcol(7) eq 'growing' ? $1 : NaN):($2 / (2 * pi))" . \
                 points(2, 1, "#e67e22", "growing"))
}
if (kept) {
    curves = add("poles using (is_mode(strcol(7)) ? $1 : NaN):($2 / (2 * pi))" . \
                 points(7, 1, "#c0392b", "modes"))
}
if (compared) {
    curves = add("modes using (-pi * $7 / $8):7" . points(6, 2, "#1f618d", "exact modes"))
}
eval "plot " . (seen ? curves : "NaN notitle")
unset multiplot
