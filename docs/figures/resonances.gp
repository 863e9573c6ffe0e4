# Draws the pictures of docs/guide-resonances.md: gnuplot -c resonances.gp DATA-FOLDER PICTURE-FOLDER
data(name) = ARG1 . "/" . name . ".dat"
picture(name) = ARG2 . "/" . name . ".png"

set terminal pngcairo size 1400,480 font "sans,12" linewidth 1.6
set border 3 linewidth 0.7
set tics nomirror
set grid linecolor rgb "#e4e4e4" linetype 1 linewidth 0.7
red = "#c0392b"; blue = "#1f618d"; grey = "#a8a8a8"; orange = "#e67e22"

# Decimation: accuracy, and where the zeros lie.
stats data("decimation") using 2 nooutput
period = STATS_max # of the highest mode, in steps
set output picture("decimation")
set multiplot layout 1,3 margins 0.06,0.99,0.13,0.9 spacing 0.06,0
set title "Worst error of twelve modes"
set xlabel "stride"
set logscale y
set format y "10^{%T}"
set yrange [1e-10:10]
set arrow 1 from period / 5, graph 0 to period / 5, graph 1 nohead linecolor rgb grey dashtype 2
set arrow 2 from period / 2.5, graph 0 to period / 2.5, graph 1 nohead linecolor rgb grey dashtype 2
set arrow 3 from period / 2, graph 0 to period / 2, graph 1 nohead linecolor rgb red dashtype 3
set label 1 "5 … 2.5 samples\nper period" at period / 4.9, 4e-3 left offset 0.5, 0 textcolor rgb "#606060" font ",10"
set label 2 "2: folding" at period / 2, 2e-4 left offset 0.5, 0 textcolor rgb red font ",10"
set key bottom right opaque samplen 2
plot [0:44] data("decimation") using 1:3 with linespoints pt 7 ps 0.7 lc rgb red title "200 samples", \
     data("decimation") using 1:5 with linespoints pt 6 ps 0.9 lc rgb blue title "6000 steps"
unset for [k = 1:3] arrow k
unset label 1
unset label 2
unset logscale y
set format y "%g"
set size ratio -1
set xlabel "Re z"
set ylabel "Im z" offset 1.5
set parametric
set trange [0:2 * pi]
set xrange [-1.25:1.25]
set yrange [-1.25:1.25]
set key center center Left reverse
do for [q in "1 16"] {
    set title sprintf("Zeros at stride %s", q)
    plot cos(t), sin(t) with lines lc rgb "#d0d0d0" notitle, \
         data("zeros-" . q) using 1:2 with points pt 7 ps 0.6 lc rgb red title "fitted, M = 66", \
         data("modes-" . q) using 1:2 with points pt 6 ps 1.5 lc rgb blue title "modes"
}
unset multiplot
unset parametric
set size noratio
set autoscale
unset ylabel

# Order: accuracy, the measure, and growing poles.
set output picture("order")
set multiplot layout 1,3 margins 0.06,0.99,0.13,0.9 spacing 0.055,0
set xlabel "order M"
set logscale y
set format y "10^{%T}"
set xrange [0:128]
set title "Worst error of four modes"
set key top right
set arrow 1 from 8, graph 0 to 8, graph 1 nohead linecolor rgb grey dashtype 2
set arrow 2 from 250 / 4., graph 0 to 250 / 4., graph 1 nohead linecolor rgb grey dashtype 2
set arrow 3 from 250 / 3., graph 0 to 250 / 3., graph 1 nohead linecolor rgb grey dashtype 2
set label 1 "true order" at 8, graph 0.45 rotate left offset 0.9, 0 textcolor rgb "#606060" font ",10"
set label 2 "N/4" at 250 / 4., graph 0.52 left offset 0.3, 0 textcolor rgb "#606060" font ",10"
set label 3 "N/3" at 250 / 3., graph 0.52 left offset 0.3, 0 textcolor rgb "#606060" font ",10"
plot [][1e-15:3] data("order") using 1:8 with linespoints pt 7 ps 0.7 lc rgb red title "noise 1e-3", \
     data("order") using 1:5 with linespoints pt 7 ps 0.7 lc rgb orange title "noise 1e-5", \
     data("order") using 1:2 with linespoints pt 7 ps 0.7 lc rgb blue title "no noise"
unset label 1
unset label 2
unset label 3
set title "ERR\\_L2, the worst of twenty records"
unset key
plot [][1e-15:3] data("order") using 1:10 with linespoints pt 7 ps 0.7 lc rgb red, \
     data("order") using 1:7 with linespoints pt 7 ps 0.7 lc rgb orange, \
     data("order") using 1:4 with linespoints pt 7 ps 0.7 lc rgb blue
unset logscale y
set format y "%g"
set title "Growing poles"
plot [][0:*] data("order") using 1:9 with linespoints pt 7 ps 0.7 lc rgb red, \
     data("order") using 1:6 with linespoints pt 7 ps 0.7 lc rgb orange, \
     data("order") using 1:3 with linespoints pt 7 ps 0.7 lc rgb blue
unset multiplot
unset for [k = 1:3] arrow k
set autoscale

# Window: where the record is fitted from, and how much of it.
set output picture("window")
set multiplot layout 1,2 margins 0.06,0.99,0.13,0.9 spacing 0.07,0
set title "First fitted sample; the driven record in grey"
set xlabel "step"
set logscale y
set format y "10^{%T}"
set key bottom left opaque
set arrow 1 from 1000, graph 0 to 1000, graph 1 nohead linecolor rgb grey dashtype 2
set label 1 "pulse over" at 1000, graph 0.5 right offset -0.6, 0 textcolor rgb "#606060" font ",10"
plot [0:1200][1e-10:3] data("start-record") using 1:(abs($2)) with lines lc rgb "#d4d4d4" notitle, \
     data("start") using 1:2 with linespoints pt 7 ps 0.7 lc rgb red title "worst error of the modes", \
     data("start") using 1:3 with linespoints pt 7 ps 0.7 lc rgb blue title "ERR\\_L2"
unset arrow 1
unset label 1
set title "Number of samples, noise of 1e-3, M = N/3"
set xlabel "N"
set key top right
plot [0:420][1e-4:0.1] data("length") using 1:3 with linespoints pt 7 ps 0.7 lc rgb red title "worst error of four modes", \
     data("length") using 1:4 with lines lc rgb blue title "least error of any unbiased method"
unset multiplot
