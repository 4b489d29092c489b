#!/bin/sh
# Makes docs/terminal.svg, the picture in README.md, from what kelviklog, kelvikctl and the example
# sysmon print on a pseudo-terminal. Times apart, it comes out the same each time.
#   docs/make-terminal-picture.sh BUILD-FOLDER [SVG-FILE]
# Needs script (package bsdutils) and Rich (package python3-rich), which draws the terminal.
set -eu
docs=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
svg=${2:-$docs/terminal.svg}
columns=86

work=$(mktemp -d)
sysmon_pid=
finish() {
  [ -z "$sysmon_pid" ] || kill "$sysmon_pid" 2> /dev/null || true
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM
PATH=$build/tools/kelviklog:$build/tools/kelvikctl:$build/examples:$PATH
export PATH

cat > "$work/pump.txt" <<'TEXT'
<6>pump 1 runs at 1480 rpm
<7>valve 3: 41 % open, asked for 42 %
<4>pressure 5.8 bar, the limit is 6.0
<3>flow meter does not answer, 1 of 3 tries
<2>pressure 6.3 bar: pump 1 is stopped
TEXT

# What is typed is what runs, but for the port.
cat > "$work/session.sh" <<'TEXT'
kelvikctl() { command kelvikctl --port $port "$@"; }
run() { printf '\033[1;32m$\033[0m \033[1m%s\033[0m\n' "$1"; eval "$1"; }
run 'kelviklog --module pump --title control --priority-prefix pump.txt'
run 'kelvikctl status'
run 'kelvikctl focus net'
run 'kelvikctl attach --for 3 &'
sleep 1
run 'kelvikctl set net interval 20'
sleep 0.5
run 'kelvikctl set net interval 500'
wait
TEXT

printf '[Global]\nLevelInfo=1\n' > "$work/sysmon.ini"
port=$((20000 + $$ % 10000))
while grep -qi ":$(printf '%04X' $port) " /proc/net/udp; do port=$((port + 1)); done
export port
sysmon --config "$work/sysmon.ini" --port $port < /dev/null > "$work/sysmon.out" 2>&1 &
sysmon_pid=$!
tries=50
until kelvikctl --port $port status > /dev/null 2>&1; do
  tries=$((tries - 1))
  [ $tries -gt 0 ] || { echo "sysmon does not answer"; exit 1; }
  sleep 0.1
done

(cd "$work" && script -qec "stty cols $columns; sh session.sh" typescript < /dev/null > /dev/null)
sed '1d; $d' "$work/typescript" > "$work/session.ansi" # what script itself says

/usr/bin/python3 - "$work/session.ansi" "$svg" $columns <<'PYTHON'
import io, re, sys
from rich._export_format import CONSOLE_SVG_FORMAT
from rich.console import Console
from rich.text import Text

ansi, svg, columns = sys.argv[1], sys.argv[2], int(sys.argv[3])
with open(ansi, newline="") as file:
    text = file.read().replace("\r", "").rstrip("\n")
console = Console(record=True, width=columns, file=io.StringIO(), force_terminal=True)
console.print(Text.from_ansi(text), soft_wrap=True)
# No font from elsewhere: a picture in a page may load nothing.
form = re.sub(r"@font-face \{\{.*?\}\}\s*", "", CONSOLE_SVG_FORMAT, flags=re.S)
form = form.replace("Fira Code, monospace", "Fira Code, Menlo, Consolas, DejaVu Sans Mono, monospace")
console.save_svg(svg, title="Kelvik", code_format=form, unique_id="kelvik")
PYTHON
echo "$svg: $(wc -c < "$svg") bytes"
