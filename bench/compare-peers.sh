#!/usr/bin/env bash
# Whole-process comparison: Oxa against other encoders and a lossless decoder
# on the same 60-second 44100 Hz stereo file, in CPU seconds of each process,
# and Oxa's peak resident memory for a 10-second and a 10-minute input.
# Installs the peer programs (Debian packages) when they are missing.
set -euo pipefail
build=${1:-build-bench}
oxa="$build/Oxa"
[[ -x $oxa ]] || { echo "no $oxa; build first"; exit 1; }

peers=(lame vorbis-tools opus-tools flac sox time)
missing=()
for p in "${peers[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [[ ${#missing[@]} -gt 0 ]]; then
  sudo=""; [[ $(id -u) -eq 0 ]] || sudo="sudo"
  $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Music-like material: the bundled sample repeated (its 4.2 s period does not
# line up with the blocks, so no two blocks are alike).
music() {  # seconds, output
  sox samples/demo.wav "$2" repeat $(( $1 / 4 + 1 )) trim 0 "$1"
}
music 60 "$work/a60.wav"
music 10 "$work/a10.wav"
music 600 "$work/a600.wav"

cpu() {  # command... -> prints user+sys seconds
  /usr/bin/time -f "%U %S %M" -o "$work/t" "$@" >/dev/null 2>&1
  awk '{printf "%.3f", $1 + $2}' "$work/t"
}
rss() { awk '{print $3}' "$work/t"; }
best() { sort -n | head -1; }
times3() { for _ in 1 2 3; do cpu "$@"; echo; done | best; }

seconds=60
oxa_c=$(times3 "$oxa" -f "$work/a60.wav" -o "$work/a60.oxa")
oxa_d=$(times3 "$oxa" -f -d "$work/a60.oxa" -o "$work/back.wav")
lame_c=$(times3 lame --quiet -V2 "$work/a60.wav" "$work/a60.mp3")
ogg_c=$(times3 oggenc -Q -q3 "$work/a60.wav" -o "$work/a60.ogg")
opus_c=$(times3 opusenc --quiet --bitrate 96 "$work/a60.wav" "$work/a60.opus")
flac -s -f "$work/a60.wav" -o "$work/a60.flac"
flac_d=$(times3 flac -s -f -d "$work/a60.flac" -o "$work/flac.wav")

rt() { awk -v s=$seconds -v t="$1" 'BEGIN { printf "%.0fx real time", (t > 0 ? s / t : 0) }'; }
fastest_peer=$(printf "%s\n%s\n%s\n" "$lame_c" "$ogg_c" "$opus_c" | best)
echo "compress   Oxa            ${oxa_c}s  ($(rt "$oxa_c"))"
echo "           lame -V2       ${lame_c}s  ($(rt "$lame_c"))"
echo "           oggenc -q3     ${ogg_c}s  ($(rt "$ogg_c"))"
echo "           opusenc 96k    ${opus_c}s  ($(rt "$opus_c"))"
awk -v a="$fastest_peer" -v b="$oxa_c" 'BEGIN { printf "           Oxa is %.2f times faster than the fastest peer (target 2.5)\n", a / b }'
echo "decompress Oxa            ${oxa_d}s  ($(rt "$oxa_d"))"
echo "           flac -d        ${flac_d}s  ($(rt "$flac_d"))"
awk -v a="$flac_d" -v b="$oxa_d" 'BEGIN { printf "           Oxa is %.2f times faster than flac -d (target > 1)\n", a / b }'

for n in 10 600; do
  cpu "$oxa" -f "$work/a$n.wav" -o "$work/m$n.oxa" >/dev/null; c=$(rss)
  cpu "$oxa" -f -d "$work/m$n.oxa" -o "$work/m$n.wav" >/dev/null; d=$(rss)
  echo "peak RSS for ${n}s input: compress ${c} KiB, decompress ${d} KiB"
done
ls -l "$work"/a60.* | awk '{print "  " $5 "\t" $9}'
