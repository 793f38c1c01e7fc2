# Draws results.svg from measure.py's figures: gnuplot -e 'folder = "..."; picture = "..."' THIS
set terminal svg size 900,760 font "sans,12" background "white" noenhanced
set output picture
runs = folder."/runs"
files = folder."/files"
set multiplot layout 2,1
set tics nomirror
set ytics scale 0
set yrange [] reverse
set key bmargin center horizontal
set grid x

set title "Whole runs with board-a.hex on a bus of 400 kHz, in ms"
set offsets 0, graph 0.08, 0.6, 0.6
set xrange [0:*]
set style fill solid noborder
plot runs using 0:0:(0):2:($0-0.35):($0+0.35):ytic(1) with boxxyerror \
         linecolor rgb "#b0b0b0" title "bus and waits", \
     runs using 0:0:2:($2+$3):($0-0.35):($0+0.35) with boxxyerror \
         linecolor rgb "#204880" title "start of a process", \
     runs using 0:0:($2+$3):($2+$3+$4):($0-0.35):($0+0.35) with boxxyerror \
         linecolor rgb "#d06020" title "the rest", \
     runs using ($2+$3+$4):0:(sprintf(" %.1f", $2+$3+$4)) with labels left notitle

set title "Whole processes with a file, in ms, on a logarithmic axis"
set offsets 0, 0, 0.6, 0.6
set logscale x
set xrange [0.5:*]
set grid y
plot files using 2:0:ytic(1) with points pointtype 7 pointsize 0.8 \
         linecolor rgb "#5890c8" title "10 KB", \
     files using 3:0 with points pointtype 5 pointsize 0.8 linecolor rgb "#204880" title "100 KB", \
     files using 4:0 with points pointtype 9 pointsize 0.9 linecolor rgb "#d06020" title "1 MB"
