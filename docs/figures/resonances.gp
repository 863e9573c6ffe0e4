# Draws the pictures of docs/guide-resonances.md: gnuplot -c resonances.gp DATA-FOLDER PICTURE-FOLDER
data(name) = ARG1 . "/" . name . ".dat"
picture(name) = ARG2 . "/" . name . ".png"

set terminal pngcairo size 1400,480 font "sans,12" linewidth 1.6
set border 3 linewidth 0.7
set tics nomirror
set grid linecolor rgb "#e4e4e4" linetype 1 linewidth 0.7
red = "#c0392b"; blue = "#1f618d"; grey = "#a8a8a8"; orange = "#e67e22"

# Order: accuracy, the measure, and growing poles.
set output picture("order")
set multiplot layout 1,3 margins 0.065,0.99,0.13,0.9 spacing 0.07,0
set xlabel "order M"
set logscale y
set format y "10^{%T}"
set xrange [0:128]
set title "Worst error of four modes"
set ylabel "relative error of a pole" offset 1
set key at graph 0.98, graph 0.56
set arrow 1 from 8, graph 0 to 8, graph 1 nohead linecolor rgb grey dashtype 2
set arrow 2 from 250 / 4., graph 0 to 250 / 4., graph 1 nohead linecolor rgb grey dashtype 2
set arrow 3 from 250 / 3., graph 0 to 250 / 3., graph 1 nohead linecolor rgb grey dashtype 2
set label 1 "true order" at 8, graph 0.4 rotate left offset 0.9, 0 textcolor rgb "#606060" font ",10"
set label 2 "N/4" at 250 / 4., graph 0.72 left offset 0.3, 0 textcolor rgb "#606060" font ",10"
set label 3 "N/3" at 250 / 3., graph 0.72 left offset 0.3, 0 textcolor rgb "#606060" font ",10"
plot [][1e-16:3] data("order") using 1:8 with linespoints pt 7 ps 0.7 lc rgb red title "noise 1e-3", \
     data("order") using 1:5 with linespoints pt 7 ps 0.7 lc rgb orange title "noise 1e-5", \
     data("order") using 1:2 with linespoints pt 7 ps 0.7 lc rgb blue title "no noise"
unset label 1
unset label 2
unset label 3
set title "Error measure, the worst of twenty records"
set ylabel "ERR\\_L2"
unset key
plot [][1e-16:3] data("order") using 1:10 with linespoints pt 7 ps 0.7 lc rgb red, \
     data("order") using 1:7 with linespoints pt 7 ps 0.7 lc rgb orange, \
     data("order") using 1:4 with linespoints pt 7 ps 0.7 lc rgb blue
unset logscale y
set format y "%g"
set title "Growing poles"
set ylabel "number" offset -0.5
plot [][0:*] data("order") using 1:9 with linespoints pt 7 ps 0.7 lc rgb red, \
     data("order") using 1:6 with linespoints pt 7 ps 0.7 lc rgb orange, \
     data("order") using 1:3 with linespoints pt 7 ps 0.7 lc rgb blue
unset multiplot
unset for [k = 1:3] arrow k
set autoscale

# Window: where the record is fitted from, and how much of it.
set output picture("window")
set multiplot layout 1,2 margins 0.065,0.99,0.13,0.9 spacing 0.08,0
set title "First fitted sample; the driven record in grey"
set xlabel "first fitted sample [steps]"
set ylabel "relative error, |record| / peak" offset 1
set logscale y
set format y "10^{%T}"
set key default bottom right
set arrow 1 from 1000, graph 0 to 1000, graph 1 nohead linecolor rgb grey dashtype 2
set label 1 "pulse over" at 1000, graph 0.5 right offset -0.6, 0 textcolor rgb "#606060" font ",10"
stats data("start-record") using (abs($2)) nooutput
peak = STATS_max
plot [0:1200][1e-12:3] data("start-record") using 1:(abs($2) / peak) with lines lc rgb "#d4d4d4" notitle, \
     data("start") using 1:2 with linespoints pt 7 ps 0.7 lc rgb red title "worst error of a pole", \
     data("start") using 1:3 with linespoints pt 7 ps 0.7 lc rgb blue title "ERR\\_L2"
unset arrow 1
unset label 1
set title "Number of samples, with noise of 1e-3 and M = N/3"
set xlabel "number of samples N"
set ylabel "relative error of a pole"
set key top right
plot [0:420][1e-4:0.1] data("length") using 1:3 with linespoints pt 7 ps 0.7 lc rgb red title "worst of four modes", \
     data("length") using 1:4 with lines lc rgb blue title "least of any unbiased method"
unset multiplot
set autoscale

# Decimation: accuracy, and where the zeros lie; those next to z = 1, where all modes are at stride 1, enlarged.
stats data("decimation") using 2 nooutput
period = STATS_max # of the highest mode, in steps
set output picture("decimation")
set multiplot
set tmargin at screen 0.9
set bmargin at screen 0.13
set lmargin at screen 0.065
set rmargin at screen 0.345
set title "Worst error of twelve modes"
set xlabel "stride [steps]"
set arrow 1 from period / 5, graph 0 to period / 5, graph 1 nohead linecolor rgb grey dashtype 2
set arrow 2 from period / 2.5, graph 0 to period / 2.5, graph 1 nohead linecolor rgb grey dashtype 2
set arrow 3 from period / 2, graph 0 to period / 2, graph 1 nohead linecolor rgb red dashtype 3
set label 1 "5 … 2.5 samples\nper period" at period / 5, 4e-3 left offset 0.5, 0 textcolor rgb "#606060" font ",10"
set label 2 "below 2 samples per\nperiod: folding" at period / 2, 2e-4 left offset 2, 0 textcolor rgb red font ",10"
set key bottom right samplen 2
plot [0:44][1e-11:10] data("decimation") using 1:3 with linespoints pt 7 ps 0.7 lc rgb red title "200 samples", \
     data("decimation") using 1:5 with linespoints pt 6 ps 0.9 lc rgb blue title "6000 steps"
unset for [k = 1:3] arrow k
unset label 1
unset label 2
unset logscale y
set format y "%g"
set size ratio -1
set xlabel "Re z"
set ylabel "Im z" offset 1.5
set key center center Left reverse
set object 1 circle at 0, 0 size 1 fillstyle empty border linecolor rgb "#d0d0d0"
set lmargin at screen 0.41
set rmargin at screen 0.675
set title "Zeros at stride 1"
set object 2 rectangle from 0.96, -0.15 to 1.02, 0.15 fillstyle empty border linecolor rgb "#707070"
set arrow 1 from 0.02, 0.63 to 0.96, 0.15 nohead linecolor rgb "#707070" linewidth 0.5
set arrow 2 from 0.02, -0.63 to 0.96, -0.15 nohead linecolor rgb "#707070" linewidth 0.5
plot [-1.25:1.25][-1.25:1.25] data("zeros-1") using 1:2 with points pt 7 ps 0.6 lc rgb red notitle
unset object 2
unset arrow 1
unset arrow 2
set lmargin at screen 0.725
set rmargin at screen 0.99
set title "Zeros at stride 16"
plot [-1.25:1.25][-1.25:1.25] data("zeros-16") using 1:2 with points pt 7 ps 0.6 lc rgb red title "fitted, M = 66", \
     data("modes-16") using 1:2 with points pt 6 ps 1.5 lc rgb blue title "modes"
unset object 1
unset key
unset title
unset xlabel
unset ylabel
set size noratio
set border 15
set tics font ",8" scale 0.5
set lmargin at screen 0.476
set rmargin at screen 0.543
set tmargin at screen 0.715
set bmargin at screen 0.315
set object 3 rectangle from graph 0, graph 0 to graph 1, graph 1 behind fillcolor rgb "white" fillstyle solid noborder
set xtics 0.97, 0.03 offset 0, 0.4
set ytics 0.1 offset 0.5
plot [0.96:1.02][-0.15:0.15] data("zeros-1") using 1:2 with points pt 7 ps 0.6 lc rgb red, \
     data("modes-1") using 1:2 with points pt 6 ps 1.2 lc rgb blue, \
     "+" using (cos($1)):(sin($1)) with lines lc rgb "#d0d0d0"
unset multiplot
