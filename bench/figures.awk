# Turns what the benchmark programs print into figures, lines of "work<TAB>who<TAB>value":
#   Google Benchmark's CSV  -> "ns Record" or "per second Threads:2", and who
#   count-instructions.sh   -> "instructions", row
#   bench-kelviklog.sh      -> "pipe wall", first word of its row
#   lines of three columns  -> themselves
BEGIN { OFS = "\t" }
/^"/ {
  split($0, field, ",")
  name = field[1]
  gsub(/^"(BM_)?|"$/, "", name)
  isManual = name ~ /manual_time/  # measured by the program itself
  threads = ""
  if (match(name, /threads:[0-9]+/)) threads = substr(name, RSTART + 8, RLENGTH - 8)
  sub(/\/(iterations|real_time|manual_time|threads).*/, "", name)
  at = match(name, /[_\/]/)
  work = at ? substr(name, 1, at - 1) : name
  who = at ? substr(name, at + 1) : "-"
  if (threads != "") print "per second " work ":" threads, who, field[7]
  else print field[5] " " work, who, (isManual ? field[3] : field[4])
  next
}
/^[a-z0-9-]+ [0-9]+\.[0-9]$/ { print "instructions", $1, $2; next }
/ lines\/s / && match($0, /[0-9.]+ s /) {
  print "pipe wall", $1, substr($0, RSTART, RLENGTH - 3)
  next
}
/^[^\t]+\t[^\t]+\t[0-9.e+-]+$/ { print }
