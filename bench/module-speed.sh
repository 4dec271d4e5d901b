#!/usr/bin/env bash
# module-speed: whole-process render speed of OxaMod -o against xmp and
# openmpt123 on the corpus modules, side by side: CPU seconds (user + sys,
# from wait4, median of 5 rounds that run the three in turn, so that they
# meet the same load) as times real time of the audio each one wrote, and
# the same over all the modules together. Then OxaMod's
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

# Whole-corpus sums: audio seconds and CPU seconds per player.
declare -A audioSum=([ours]=0 [xmp]=0 [mpt]=0) cpuSum=([ours]=0 [xmp]=0 [mpt]=0)
add() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.6f", a + b }'; }
times() { awk -v a="$1" -v c="$2" 'BEGIN { printf "%.0fx", (c > 0 ? a / c : 0) }'; }

echo "render speed, x real time (CPU seconds of the whole process, median of 5 interleaved rounds)"
printf "%-30s %9s %9s %11s   %s\n" module OxaMod xmp openmpt123 "song seconds (ours / openmpt123)"
declare -A memory
for module in "${modules[@]}"; do
  name=$(basename "$module")
  cp "$module" "$work/$name"
  # One run each for the audio lengths (and OxaMod's peak memory), then the timed rounds.
  measure "$work/ours.wav" "$oxamod" -o "$work/ours.wav" "$module"
  memory[$name]="$rss $audio $cpu"
  [[ $cpu == failed ]] && { printf "%-30s %9s\n" "$name" "n/a"; continue; }
  declare -A seconds=([ours]=$audio)
  xmpCommand="xmp --quiet --nocmd --norc -d wav -f 44100 -b 16 -i linear -P 100 -z 0 -o $work/xmp.wav $module"
  mptCommand="openmpt123 --quiet --render --force --samplerate 44100 --no-float --output-type wav --subsong 0 \
--filter 2 $work/$name"
  $xmpCommand >/dev/null 2>&1 && seconds[xmp]=$(soxi -D "$work/xmp.wav") || { echo "$name: xmp failed"; continue; }
  $mptCommand >/dev/null 2>&1 && seconds[mpt]=$(soxi -D "$work/$name.wav") || { echo "$name: openmpt123 failed"; continue; }
  /usr/bin/python3 "$(dirname "$0")/cputime.py" 5 "ours=$oxamod -o $work/ours.wav $module" "xmp=$xmpCommand" \
      "mpt=$mptCommand" >"$work/times"
  row=()
  for player in ours xmp mpt; do
    cpu=$(awk -v n="$player" '$1 == n { print $2 }' "$work/times")
    audioSum[$player]=$(add "${audioSum[$player]}" "${seconds[$player]}")
    cpuSum[$player]=$(add "${cpuSum[$player]}" "$cpu")
    row+=("$(times "${seconds[$player]}" "$cpu")")
  done
  printf "%-30s %9s %9s %11s   %.1f / %.1f\n" "$name" "${row[@]}" "${seconds[ours]}" "${seconds[mpt]}"
done
row=()
for player in ours xmp mpt; do row+=("$(times "${audioSum[$player]}" "${cpuSum[$player]}")"); done
printf "%-30s %9s %9s %11s\n" "all together" "${row[@]}"
awk -v o="${audioSum[ours]}" -v oc="${cpuSum[ours]}" -v x="${audioSum[xmp]}" -v xc="${cpuSum[xmp]}" \
    -v m="${audioSum[mpt]}" -v mc="${cpuSum[mpt]}" 'BEGIN {
  ours = o / oc; best = x / xc > m / mc ? x / xc : m / mc
  printf "OxaMod renders %.2f times as fast as the faster peer (target 1.5)\n", ours / best }'

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
