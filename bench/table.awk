# The table of docs/benchmarks.md from the figures (bench/figures.awk), each the median of its
# rounds. With -v figures=1 the medians alone, for the chart.
BEGIN { FS = "\t"; OFS = "\t" }
{
  key = $1 OFS $2
  if (!(key in count)) order[++keys] = key
  value[key, ++count[key]] = $3
}

# The median, or what `part` says: the value that this part of the rounds does not exceed.
function Figure(work, who, part,    key, i, j, n, kept, sorted) {
  key = work OFS who
  n = count[key]
  if (n == 0) return -1
  for (i = 1; i <= n; ++i) {
    kept = value[key, i] + 0
    for (j = i - 1; j >= 1 && sorted[j] > kept; --j) sorted[j + 1] = sorted[j]
    sorted[j + 1] = kept
  }
  return sorted[int((n - 1) * part + 1.5)]
}
function Median(work, who) { return Figure(work, who, 0.5) }
# Threads that other programs disturb show less than they can: the best round.
function Best(work, who) { return Figure(work, who, 1) }

function Text(number) {
  if (number < 0) return "-"
  if (number >= 100000) return sprintf("%.2f M", number / 1e6)
  if (number >= 100) return sprintf("%.0f", number)
  return sprintf(number >= 10 ? "%.1f" : "%.2f", number)
}
# One row; goal is the largest ratio, with a sign '>' in front the smallest, "" when there is none.
# Without a figure of the peer the row says so.
function Row(label, own, beside, other, goal,    ratio, limit, verdict, wanted) {
  if (own <= 0 || other <= 0) {
    printf "| %s | %s | %s: not measured | - | %s | - |\n", label, Text(own), beside, goal
    return
  }
  ratio = own / other
  limit = goal
  sub(/^>/, "", limit)
  limit += 0
  verdict = (goal ~ /^>/ ? ratio >= limit : ratio <= limit) ? "met" : "**missed**"
  wanted = (goal ~ /^>/ ? "at least " : "at most ") limit
  if (goal == "") verdict = wanted = ""
  printf "| %s | %s | %s %s | %.2f | %s | %s |\n", label, Text(own), beside, Text(other), ratio, wanted, verdict
}
# A figure beside a fixed limit.
function Limit(label, own, unit, limit) {
  if (own <= 0) printf "| %s | not measured | | - | %s %s | - |\n", label, limit, unit
  else printf "| %s | %s | | | at most %s %s | %s |\n", label, Text(own), limit, unit, \
    own <= limit ? "met" : "**missed**"
}
function Heading(title) {
  printf "\n**%s**\n\n| Work | Kelvik | Beside | Ratio | Goal | |\n|---|---|---|---|---|---|\n", title
}

END {
  if (figures) {
    for (i = 1; i <= keys; ++i) {
      split(order[i], part, OFS)
      print part[1], part[2], Median(part[1], part[2])
    }
    exit
  }
  record = Median("instructions", "record")
  Heading("Instructions of one call")
  Row("record into the file buffer", record, "spdlog", Median("instructions", "spdlog"), 0.30)
  Row("", record, "glog", Median("instructions", "glog"), "")
  Row("", record, "log4cplus", Median("instructions", "log4cplus"), "")
  Row("", record, "floor", Median("instructions", "floor"), "")
  Row("record with 200 modules", Median("instructions", "record-200"), "none", record, 1.1)
  call = Median("instructions", "call")
  Limit("below the level, beyond the call", Median("instructions", "below") - call, "instructions", 60)
  Limit("the same with 1 module", Median("instructions", "below-1") - call, "instructions", 60)
  Limit("the same with 200 modules", Median("instructions", "below-200") - call, "instructions", 60)
  Row("record to standard output (a file)", Median("instructions", "terminal"), "spdlog",
      Median("instructions", "spdlog-terminal"), 0.35)

  record = Median("ns Record", "Kelvik")
  Heading("Time of one call, ns of the caller's processor time")
  Row("record into the file buffer, in bursts", record, "spdlog", Median("ns Record", "Spdlog"), 0.35)
  Row("", record, "glog", Median("ns Record", "Glog"), 0.1)
  Row("", record, "log4cplus", Median("ns Record", "Log4cplus"), 0.15)
  Row("", record, "floor", Median("ns Floor", "-"), 2.5)
  Row("in a flood, written by the caller", Median("ns Flood", "Kelvik"), "spdlog",
      Median("ns Flood", "Spdlog"), "")
  Row("record with 200 modules", Median("ns Record", "Kelvik200Modules"), "none", record, 1.1)
  Row("below the level, 200 modules", Median("ns Below", "Kelvik200Modules"), "none",
      Median("ns Below", "Kelvik"), "")
  Row("record to standard output (a file)", Median("ns Terminal", "Kelvik"), "spdlog",
      Median("ns Terminal", "Spdlog"), "")

  two = Best("per second Threads:2", "Kelvik")
  Heading("Two threads, records a second (best round)")
  Row("gain of the second thread", two / Best("per second Threads:1", "Kelvik"), "formatting alone",
      Best("per second Format:2", "Kelvik") / Best("per second Format:1", "Kelvik"), ">0.75")
  floor = Best("per second Threads:2", "Floor")
  Row("the same of the floor", floor / Best("per second Threads:1", "Floor"), "formatting alone",
      Best("per second Format:2", "Kelvik") / Best("per second Format:1", "Kelvik"), "")
  Row("both threads", two, "floor", floor, "")
  Row("both threads", two, "spdlog", Best("per second Threads:2", "Spdlog"), ">2.5")

  Heading("End to end into a rotating ring, seconds, all records there")
  Row("processor", Median("end to end processor", "kelvik"), "spdlog",
      Median("end to end processor", "spdlog"), 0.4)
  Row("wall", Median("end to end wall", "kelvik"), "spdlog", Median("end to end wall", "spdlog"), "")

  Heading("Lines through a pipe, wall seconds")
  pipe = Median("pipe wall", "kelviklog,")
  Row("kelviklog", pipe, "multilog t", Median("pipe wall", "multilog"), 0.33)
  Row("", pipe, "svlogd -tt", Median("pipe wall", "svlogd"), 0.33)

  Heading("One call while files of 64 KiB rotate, microseconds")
  Row("p50", Median("tail p50", "kelvik"), "spdlog", Median("tail p50", "spdlog"), "")
  Row("p99", Median("tail p99", "kelvik"), "spdlog", Median("tail p99", "spdlog"), "")
  Row("p99.9", Median("tail p99.9", "kelvik"), "spdlog", Median("tail p99.9", "spdlog"), 1)
  Row("worst", Median("tail worst", "kelvik"), "spdlog", Median("tail worst", "spdlog"), "")
  parts = Median("tail worst", "hand-over") + Median("tail worst", "file open")
  Row("worst", Median("tail worst", "kelvik"), "hand-over and file open, worst of each", parts, 1)
  Row("worst, with an index", Median("tail worst", "kelvik-index"), "these and an index save",
      parts + Median("tail worst", "index save"), 1)

  Heading("Size and memory, KiB")
  Limit("stripped library, x86-64", Median("stripped KiB", "x86-64"), "KiB", 130)
  Limit("stripped library, mipsel -Os", Median("stripped KiB", "mipsel"), "KiB", 150)
  Limit("new resident memory after Initialize", Median("memory", "Initialize"), "KiB", 300)
  Limit("of it private to the process", Median("memory", "Initialize, private"), "KiB", 300)
  Limit("when both buffers were filled", Median("memory", "used"), "KiB", 300)
  Limit("of it private to the process", Median("memory", "used, private"), "KiB", 300)

  Heading("Parts of it")
  Row("a line with %d %s %u, ns", Median("ns Packet", "kelvik"), "vsnprintf",
      Median("ns Packet", "vsnprintf"), "")
  Row("a message without arguments, ns", Median("ns TextOnly", "kelvik"), "vsnprintf",
      Median("ns TextOnly", "vsnprintf"), "")
  Row("INI document of 100,000 lines, load, ms", Median("ms Load", "Kelvik"), "libinih's plain parse",
      Median("ms Load", "InihPlainParse"), 3)
  Row("", Median("ms Load", "Kelvik"), "boost::property_tree", Median("ms Load", "PropertyTree"), "")
  split("Unordered HundredSections LongLines Headers Comments", shape, " ")
  split("the same, one section of unordered keys;100 sections of numbered keys;" \
    "long names and values;headers alone;comments alone", shapeText, ";")
  for (i = 1; i in shape; ++i)
    Row(shapeText[i], Median("ms Load" shape[i], "Kelvik"), "libinih's plain parse",
        Median("ms Load" shape[i], "InihPlainParse"), 3)
  Row("safe save of it, with its syncs, ms", Median("ms Save", "Kelvik"), "libinih's plain parse",
      Median("ms Load", "InihPlainParse"), 3)
  Row("of it processor time, ms", Median("ms SaveWork", "Kelvik"), "libinih's plain parse",
      Median("ms Load", "InihPlainParse"), 3)
  Row("100 lookups in it, us", Median("us HundredLookups", "Kelvik"), "boost::property_tree",
      Median("us HundredLookups", "PropertyTree"), "")
}
