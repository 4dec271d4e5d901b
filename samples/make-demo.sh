#!/usr/bin/env bash
# Regenerates demo.wav: four plucked chords with a bass line and a little
# reverb, synthesised by sox (no recorded material). Run from this folder.
set -euo pipefail
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
i=0
for chord in "C3 E3 G3 C4 E4" "A2 E3 A3 C4 E4" "F2 C3 F3 A3 C4" "G2 D3 G3 B3 D4"; do
  set -- $chord
  sox -n -r 44100 -c 1 -b 16 "$tmp/c$i.wav" synth 1.0 pluck "$1" pluck "$2" pluck "$3" pluck "$4" pluck "$5" \
      delay 0 0.04 0.08 0.12 0.16 remix - fade 0 1.0 0.05
  i=$((i + 1))
done
sox "$tmp"/c0.wav "$tmp"/c1.wav "$tmp"/c2.wav "$tmp"/c3.wav "$tmp/mono.wav"
sox "$tmp/mono.wav" -c 2 demo.wav remix 1v0.9 1v0.7 reverb 40 50 60 norm -1 pad 0 0.2
