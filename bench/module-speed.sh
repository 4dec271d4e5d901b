#!/usr/bin/env bash
# module-speed: whole-process render speed of OxaMod -o against xmp and
# openmpt123 on the corpus modules, side by side: CPU seconds (user + sys,
# best of 3) as times real time of the audio each one wrote. Then OxaMod's
# peak resident memory per module against the module's size and the song's
# length, and for one module at 8 kHz and 192 kHz (24 times the frames), to
# show that memory follows the module, not the length of what is rendered.
#
#   bench/module-speed.sh [BUILD-DIR] [MODULE...]
#
# All three render 44100 Hz 16-bit stereo with linear interpolation. Run by
# scripts/run-benchmarks (make bench) with build-bench.
set -euo pipefail
source "$(dirname "$0")/support/module-arguments.sh"
module_arguments build-bench openmpt123 xmp soxi /usr/bin/time -- "$@"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# measure OUTPUT.wav command...: runs it 3 times; sets cpu (best user+sys
# seconds), rss (KiB of that run) and audio (seconds in OUTPUT.wav), or
# cpu=failed when the command fails.
measure() {
  local output=$1
  shift
  cpu=failed rss=0 audio=0
  local best=""
  for _ in 1 2 3; do
    rm -f "$output"
    /usr/bin/time -f "%U %S %M" -o "$work/time" "$@" >/dev/null 2>&1 && [[ -s $output ]] || return 0
    read -r user sys peak <"$work/time"
    local seconds
    seconds=$(awk -v u="$user" -v s="$sys" 'BEGIN { printf "%.3f", u + s }')
    if [[ -z $best ]] || awk -v a="$seconds" -v b="$best" 'BEGIN { exit !(a < b) }'; then
      best=$seconds rss=$peak
    fi
  done
  cpu=$best
  audio=$(soxi -D "$output")
}

# "123x" real time, or "n/a" for a render that failed. /usr/bin/time counts
# in hundredths of a second: below that, only a lower bound is known.
realtime() {
  [[ $1 == failed ]] && { echo "n/a"; return; }
  awk -v a="$2" -v c="$1" 'BEGIN { if (c < 0.01) printf ">%.0fx", a / 0.01; else printf "%.0fx", a / c }'
}

echo "render speed, x real time (CPU seconds of the whole process, best of 3)"
printf "%-30s %9s %9s %11s   %s\n" module OxaMod xmp openmpt123 "song seconds (ours / openmpt123)"
declare -A memory
for module in "${modules[@]}"; do
  name=$(basename "$module")
  cp "$module" "$work/$name"
  measure "$work/ours.wav" "$oxamod" -o "$work/ours.wav" "$module"
  ours="$(realtime "$cpu" "$audio")" ours_audio=$audio
  memory[$name]="$rss $audio $cpu"
  measure "$work/xmp.wav" xmp --quiet --nocmd --norc -d wav -f 44100 -b 16 -i linear -P 100 -z 0 \
      -o "$work/xmp.wav" "$module"
  peer_xmp="$(realtime "$cpu" "$audio")"
  measure "$work/$name.wav" openmpt123 --quiet --render --force --samplerate 44100 --no-float \
      --output-type wav --subsong 0 --filter 2 "$work/$name"
  peer_mpt="$(realtime "$cpu" "$audio")"
  printf "%-30s %9s %9s %11s   %.1f / %.1f\n" "$name" "$ours" "$peer_xmp" "$peer_mpt" "$ours_audio" "$audio"
done

echo
echo "OxaMod peak resident memory"
printf "%-30s %10s %12s %12s\n" module "size KiB" "song s" "peak KiB"
low="" high=""
for module in "${modules[@]}"; do
  name=$(basename "$module")
  read -r peak audio cpu <<<"${memory[$name]}"
  [[ $cpu == failed ]] && { printf "%-30s %10s %12s %12s\n" "$name" "$(( $(stat -c %s "$module") / 1024 ))" - "n/a"; continue; }
  printf "%-30s %10d %12.1f %12d\n" "$name" "$(( $(stat -c %s "$module") / 1024 ))" "$audio" "$peak"
  [[ -z $low || $peak -lt $low ]] && low=$peak
  [[ -z $high || $peak -gt $high ]] && high=$peak
done
[[ -n $low ]] && echo "peak resident memory from $low to $high KiB over these modules"

# The largest module OxaMod renders, with 24 times as many frames the second time.
largest=""
for module in $(ls -S "${modules[@]}"); do
  read -r _ _ cpu <<<"${memory[$(basename "$module")]}"
  [[ $cpu != failed ]] && { largest=$module; break; }
done
[[ -n $largest ]] || exit 0
for rate in 8000 192000; do
  measure "$work/rate.wav" "$oxamod" -r "$rate" -o "$work/rate.wav" "$largest"
  [[ $cpu == failed ]] && { echo "$(basename "$largest") at $rate Hz: render failed"; continue; }
  frames=$(awk -v a="$audio" -v r="$rate" 'BEGIN { printf "%.0f", a * r }')
  echo "$(basename "$largest") at $rate Hz: $frames frames, peak $rss KiB"
done
