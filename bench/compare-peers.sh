#!/usr/bin/env bash
# Whole-process comparison on real music (the bench tracks of
# ../shared/tools/make-bench-music.sh): Oxa's compress against lame -V2,
# oggenc -q3 and opusenc --bitrate 96, its decompress against flac -d, all
# side by side in one run, in CPU seconds (user + system) of each process,
# median of several rounds. Then the start-up cost (a 0.2 s file against
# /bin/true and a trivial C++ program) and Oxa's peak resident memory for
# a 10-second and a 10-minute input.
#
# usage: compare-peers.sh [BUILD_DIR] [MUSIC_DIR] [ROUNDS]
# Installs the peer programs (Debian packages) when they are missing.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-build-bench}
music=${2:-$here/../../bench-music}
rounds=${3:-7}
oxa="$build/Oxa"
[[ -x $oxa ]] || { echo "no $oxa; build first"; exit 1; }

# The targets: compress at least 5 times as fast as the fastest lossy peer,
# decompress at least twice as fast as flac -d.
compressTarget=5
decompressTarget=2

peers=(lame vorbis-tools opus-tools flac sox time)
missing=()
for p in "${peers[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [[ ${#missing[@]} -gt 0 ]]; then
  sudo=""; [[ $(id -u) -eq 0 ]] || sudo="sudo"
  $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi
"$here/../../shared/tools/make-bench-music.sh" "$music" >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cputime() { /usr/bin/python3 "$here/cputime.py" "$@"; }
seconds() { soxi -D "$1"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }'; }
realtime() { awk -v s="$1" -v t="$2" 'BEGIN { printf "%5.0fx real time", (t > 0 ? s / t : 0) }'; }

# One track: every command in turn, `rounds` times; prints the table.
compare() {  # wav, title
  local wav=$1 title=$2 length
  length=$(seconds "$wav")
  "$oxa" -f "$wav" -o "$work/ref.oxa"
  flac -s -f "$wav" -o "$work/ref.flac"
  cputime "$rounds" \
    "oxa-compress=$oxa -f $wav -o $work/out.oxa" \
    "lame=lame --quiet -V2 $wav $work/out.mp3" \
    "oggenc=oggenc -Q -q3 $wav -o $work/out.ogg" \
    "opusenc=opusenc --quiet --bitrate 96 $wav $work/out.opus" \
    "oxa-decompress=$oxa -f -d $work/ref.oxa -o $work/oxa.wav" \
    "flac-d=flac -s -f -d $work/ref.flac -o $work/flac.wav" >"$work/times"
  t() { awk -v n="$1" '$1 == n { print $2 }' "$work/times"; }
  local fastest
  fastest=$(printf "%s\n%s\n%s\n" "$(t lame)" "$(t oggenc)" "$(t opusenc)" | sort -g | head -1)
  printf "%s: %s, %.0f s, CPU seconds per process, median of %d\n" "$title" "$(basename "$wav")" "$length" "$rounds"
  printf "  compress    Oxa            %.3f s  (%s)\n" "$(t oxa-compress)" "$(realtime "$length" "$(t oxa-compress)")"
  printf "              lame -V2       %.3f s  (%s)\n" "$(t lame)" "$(realtime "$length" "$(t lame)")"
  printf "              oggenc -q3     %.3f s  (%s)\n" "$(t oggenc)" "$(realtime "$length" "$(t oggenc)")"
  printf "              opusenc 96k    %.3f s  (%s)\n" "$(t opusenc)" "$(realtime "$length" "$(t opusenc)")"
  echo "              Oxa is $(ratio "$fastest" "$(t oxa-compress)") times as fast as the fastest peer" \
    "(target $compressTarget)"
  printf "  decompress  Oxa            %.3f s  (%s)\n" "$(t oxa-decompress)" \
    "$(realtime "$length" "$(t oxa-decompress)")"
  printf "              flac -d        %.3f s  (%s)\n" "$(t flac-d)" "$(realtime "$length" "$(t flac-d)")"
  echo "              Oxa is $(ratio "$(t flac-d)" "$(t oxa-decompress)") times as fast as flac -d" \
    "(target $decompressTarget)"
}

compare "$music/mainzik-60s.wav" "Target figures"
compare "$music/introzik.wav" "Beside them, a whole track"

# Start-up: a process that decodes a fifth of a second, against processes
# that do nothing.
sox "$music/mainzik-60s.wav" "$work/short.wav" trim 0 0.2
"$oxa" -f "$work/short.wav" -o "$work/short.oxa"
printf '#include <string>\nint main(int, char** argv) { return std::string(argv[0]).empty(); }\n' >"$work/trivial.cpp"
g++ -O2 "$work/trivial.cpp" -o "$work/trivial"
cputime 50 "true=/bin/true" "trivial=$work/trivial" "usage=$oxa" \
  "decompress=$oxa -f -d $work/short.oxa -o $work/x.wav" "compress=$oxa -f $work/short.wav -o $work/y.oxa" \
  >"$work/times"
echo "start-up: CPU milliseconds per process, median of 50"
while read -r name cpu; do
  case $name in
    true) label="/bin/true" ;; trivial) label="trivial C++ program (g++ -O2)" ;;
    usage) label="Oxa (usage text)" ;; decompress) label="Oxa -f -d short.oxa (0.2 s)" ;;
    compress) label="Oxa -f short.wav (0.2 s)" ;;
  esac
  printf "  %-32s %6.2f ms\n" "$label" "$(awk -v s="$cpu" 'BEGIN { print s * 1000 }')"
done <"$work/times"

# Memory does not grow with the input.
sox "$music/mainzik-60s.wav" "$work/a10.wav" trim 0 10
sox "$music/mainzik-60s.wav" "$work/a600.wav" repeat 9
peakKib() { /usr/bin/time -f "%M" -o "$work/rss" "$@" >/dev/null 2>&1; cat "$work/rss"; }
for n in 10 600; do
  c=$(peakKib "$oxa" -f "$work/a$n.wav" -o "$work/m$n.oxa")
  d=$(peakKib "$oxa" -f -d "$work/m$n.oxa" -o "$work/m$n.wav")
  echo "peak RSS for ${n} s input: compress ${c} KiB, decompress ${d} KiB"
done
