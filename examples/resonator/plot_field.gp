# Draws PREFIX-profiles.png from the file of the same prefix: gnuplot -c plot_field.gp PREFIX
prefix = ARG1
profiles = prefix . "-profiles.dat"

set terminal pngcairo size 1500,570 font "sans,11" linewidth 1.4
set output prefix . "-profiles.png"
set border linewidth 0.7
set tics nomirror out scale 0.5
unset key

# The first block is a table of the modes, the others are their profiles, of nodes 1 mm apart.
stats profiles index 0 using 3 nooutput
modes = STATS_records
columns = 6
shown = modes < 2 * columns ? modes : 2 * columns - 1 # the last place is for the colours
array title[shown]
do for [k = 1:shown] {
    stats profiles index 0 every ::k-1::k-1 \
        using (title[k] = sprintf("m = %d, n = %d: %.4f GHz", $1, $2, $3 / 1e9), $3) nooutput
}

set multiplot
set palette defined (-1 "#1f4e9e", -0.5 "#8fb0dc", 0 "#ffffff", 0.5 "#e3a08f", 1 "#b03020")
set cbrange [-1:1]
set cblabel "E_z over its largest" offset 1
set cbtics 0.5
set size ratio -1
set autoscale fix
set xtics 30
set ytics 30
set xlabel "x [mm]" offset 0, 0.6
row_top(k) = k < columns ? 0.945 : 0.455
do for [k = 0:shown - 1] {
    column = k % columns
    set lmargin at screen 0.04 + column * 0.161
    set rmargin at screen 0.04 + column * 0.161 + 0.145
    set tmargin at screen row_top(k)
    set bmargin at screen row_top(k) - 0.36
    set title title[k + 1] offset 0, -0.6
    set ylabel (column == 0 ? "y [mm]" : "") offset 0.7
    set format y (column == 0 ? "%g" : "")
    if (k == shown - 1) {
        set colorbox user origin screen 0.88, 0.11 size screen 0.012, 0.33
    } else {
        unset colorbox
    }
    plot profiles index k + 1 matrix with image
}
unset multiplot
