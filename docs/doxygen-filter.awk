# Doxygen's view of a header: the plain comments of this project become documentation comments.
#
# A comment above a declaration describes it, and those that follow without an empty line or a comment
# of their own; one behind a member describes that, with the lines that go on below it; the first one of
# a file describes the file; one with an empty line below stays a plain comment. A function of the
# prefixed family is described by the plain one, and a macro without a comment by its file where that
# names it or what its name begins with. Macros whose names end in '_' are nobody's business.
# Whatever Doxygen would take for a command or markup is text.

function quote(text) {
  gsub(/\\/, "&&", text)
  gsub(/[@<>#&$%"]/, "\\\\&", text)
  return text
}

function print_lines(mark,    i) {
  for (i = 1; i <= held; i++) {
    if (mark == "//" || lines[i] ~ /^ *\/\/ ---/) print lines[i]
    else print indent mark quote(substr(lines[i], length(indent) + 3))
  }
}

function is_declaration(text) {
  if (text ~ /^ *([}]|public:|protected:|private:|friend |namespace |extern "C"|__attribute__|(virtual )?~|#)/)
    return text ~ /^#define /
  return text !~ /= delete;/
}

# Net braces of a line, those in literals left out.
function braces(text) {
  gsub(/\\./, "", text)
  gsub(/"[^"]*"|'[^']*'/, "", text)
  sub(/\/\/.*/, "", text)
  return gsub(/[{]/, "", text) - gsub(/[}]/, "", text)
}

body && /^ *\/\// { print; next }

/^ *\/\// {
  match($0, /^ */)
  if (tail && RLENGTH + 1 == tail) {
    print substr($0, 1, RLENGTH) "///<" quote(substr($0, RLENGTH + 3))
    next
  }
  if (!fresh) held = 0
  if (!held) indent = substr($0, 1, RLENGTH)
  fresh = 1
  lines[++held] = $0
  tail = 0
  next
}

/^ *$/ {
  if (fresh && !described) {
    print "/// @file"
    print_lines("///")
    for (i = 1; i <= held; i++) head = head lines[i]
    described = 1
  } else if (fresh) {
    print_lines("//")
  }
  held = fresh = tail = 0
  begins = 1
  print
  next
}

{
  # A comment behind a member, or behind a value of an enumeration.
  at = !body && $0 !~ /^#/ && match($0, /[,;a-zA-Z0-9_}]  *\/\/ /) ? index(substr($0, RSTART), "//") + RSTART - 1 : 0
  if (fresh && !described) {
    print "/// @file"
    print_lines("///")
    for (i = 1; i <= held; i++) head = head lines[i]
    described = 1
    held = 0
  } else if (fresh) {
    print_lines("///")
    base = depth
  } else if (held && begins && depth == base && is_declaration($0) && !at) {
    print_lines("///")
  } else if (!held && match($0, /^KELVIK_API int Kelvik_[A-Za-z0-9]*\(/)) {
    plain = substr($0, 23, RLENGTH - 23)
    print "/// Does what " (plain == "RegisterModule" ? "registerModule" : plain) "() does."
  } else if (!held && match($0, /^#define KELVIK_[A-Z]*/) && $0 !~ /_[ (]/ &&
             index(head, substr($0, 9, RLENGTH - 8))) {
    print "/// Described with its file."
  }
  fresh = 0

  if ($0 ~ /^#define [A-Za-z0-9_]*_[ (]/ && !hidden) {
    print "/// @cond"
    hidden = 1
  }
  if (at) print substr($0, 1, at - 1) "///<" quote(substr($0, at + 2))
  else print
  if (hidden && $0 !~ /\\$/) {
    print "/// @endcond"
    hidden = 0
  }

  # What stands in a function's body describes nothing that a caller sees.
  tail = body ? 0 : at
  change = braces($0)
  if (change > 0 && !body && $0 !~ /(class|struct|union|enum|namespace|extern "C")/) {
    body = 1
    around = depth
  }
  depth += change
  if (body && depth <= around) body = 0
  code = at ? substr($0, 1, at - 1) : $0
  begins = code ~ /[;}] *$/ || ($0 ~ /^#/ && $0 !~ /\\$/) || (!begins && depth == base && code ~ /^[^(]*\) *$/)
  if (depth < base) held = 0
}
