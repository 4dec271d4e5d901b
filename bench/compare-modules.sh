#!/usr/bin/env bash
# compare-modules: the module player's yardstick. Renders sub-song 0 of each
# module once with OxaMod, with openmpt123 (the reference) and with xmp (a
# second, independent player), all at 44100 Hz, 16-bit stereo, linear
# interpolation, then prints per module the three lengths and how closely
# ours and xmp's renderings follow openmpt123's (bench/module_metrics.py says
# what each figure means and why the margin is 0.02). Durations are compared
# with the song length openmpt123 reports (--info): its renderings run a
# tenth of a second past the song's end.
#
#   bench/compare-modules.sh [BUILD-DIR] [MODULE...]
#
# BUILD-DIR (default build) holds OxaMod; without modules, every MOD, S3M and
# XM file of ../shared/corpus is compared. The peers are test oracles only
# (scripts/install-deps installs them). Always exits 0 once the table is out.
set -euo pipefail
source "$(dirname "$0")/support/module-arguments.sh"
module_arguments build openmpt123 xmp /usr/bin/python3 -- "$@"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

names=()
for module in "${modules[@]}"; do
  name=$(basename "$module")
  names+=("$name")
  # openmpt123 writes NAME.wav beside its input: give it a copy in the work folder.
  cp "$module" "$work/$name"
  openmpt123 --quiet --render --force --samplerate 44100 --no-float --output-type wav --subsong 0 --filter 2 \
      "$work/$name" >/dev/null 2>&1 && mv "$work/$name.wav" "$work/$name.openmpt.wav" \
      || echo "$name: openmpt123 failed"
  openmpt123 --info --subsong 0 "$module" 2>/dev/null | sed -n 's/^Duration\.*: *//p' >"$work/$name.openmpt.duration" || true
  # xmp: one pass (no -l) of sequence 0, full stereo separation as openmpt123 uses.
  xmp --quiet --nocmd --norc -d wav -f 44100 -b 16 -i linear -P 100 -z 0 -o "$work/$name.xmp.wav" \
      "$module" >/dev/null 2>&1 || echo "$name: xmp failed"
  "$oxamod" -o "$work/$name.ours.wav" "$module" 2>"$work/$name.ours.log" \
      || { echo "$name: OxaMod failed: $(head -1 "$work/$name.ours.log")"; rm -f "$work/$name.ours.wav"; }
done
/usr/bin/python3 "$(dirname "$0")/module_metrics.py" "$work" "${names[@]}"
