# The chart of docs/benchmarks.md: four panels of bars, the library's own in colour.
#   gnuplot -e "medians='medians.tsv'; chart='benchmarks.svg'" bench/chart.gp
set terminal svg size 960,600 font "Helvetica,13" background "#ffffff"
set output chart

Figure(work, who) = system("awk -F '\t' '$1 == \"" . work . "\" && $2 == \"" . who . "\" { print $3 }' " . medians)

unset key
unset border
unset xtics
set style fill solid noborder
set multiplot layout 2,2 margins 0.12,0.97,0.03,0.84 spacing 0.15,0.14 \
  title "The same log line, written by each: shorter is better" font ",17"

# works, whos and names are lists of the same length, parted by '|'; the first is the library.
panels = 4
array Title[4] = ["Instructions of one record", "Processor nanoseconds of one record's call", \
  "Processor seconds end to end, every record in a file", "Wall seconds of lines through a pipe"]
array Works[4] = ["instructions|instructions|instructions|instructions|instructions", \
  "ns Record|ns Floor|ns Record|ns Record|ns Record", "end to end processor|end to end processor", \
  "pipe wall|pipe wall|pipe wall"]
array Whos[4] = ["record|floor|spdlog|log4cplus|glog", "Kelvik|-|Spdlog|Log4cplus|Glog", "kelvik|spdlog", \
  "kelviklog,|multilog|svlogd"]
array Names[4] = ["Kelvik|floor|spdlog|log4cplus|glog", "Kelvik|floor|spdlog|log4cplus|glog", \
  "Kelvik|spdlog rotating", "kelviklog|multilog|svlogd"]

do for [panel = 1:panels] {
  Part(list, i) = system("echo '" . list . "' | cut -d '|' -f " . i)
  bars = int(system("echo '" . Works[panel] . "' | awk -F '|' '{ print NF }'"))
  largest = 0
  array Value[bars]
  array Name[bars]
  do for [i = 1:bars] {
    text = Figure(Part(Works[panel], i), Part(Whos[panel], i))
    Value[i] = (strlen(text) > 0) ? real(text) : 0
    Name[i] = Part(Names[panel], i)
    largest = (Value[i] > largest) ? Value[i] : largest
  }
  largest = (largest > 0) ? largest : 1
  set title Title[panel] font ",13" offset 0,-0.3
  set xrange [0:largest * 1.22]
  set yrange [bars + 0.6:0.4] noreverse
  unset ytics
  set ytics nomirror scale 0 ()
  unset label
  do for [i = 1:bars] {
    set ytics add (Name[i] i)
    amount = (Value[i] == 0) ? "not installed" : (Value[i] >= 100) ? sprintf("%.0f", Value[i]) : sprintf("%.3g", Value[i])
    set label i amount at Value[i] + largest * 0.015, i left font ",12"
  }
  plot Value using (0):1:(0):2:($1 - 0.34):($1 + 0.34):($1 == 1 ? 0x0072b2 : 0xb8bec6) \
    with boxxyerror lc rgb variable
}
unset multiplot
