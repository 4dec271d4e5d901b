#!/usr/bin/python3
"""module_metrics: how close one rendering of a tracker module is to a
reference rendering of the same module. The yardstick for OxaMod's player:
bench/compare-modules.sh renders every module with OxaMod, openmpt123 (the
reference) and xmp (a second, independent player), then calls this on the
three WAV files of each module.

Three figures, each a Pearson correlation in -1..1 (1 = the same shape):

  envelope   the loudness over time: RMS of the mono mix per 20 ms frame, in
             dB with a floor of -60 dBFS. Catches wrong tempo, rows or notes
             that start or stop at the wrong time, missing or extra notes,
             volume slides and envelopes. The shorter rendering is padded
             with the floor, so a song that ends early or late loses.
  third      the long-term spectrum in third-octave bands from 20 Hz to
             20 kHz (31 bands), in dB. Catches the overall tone: wrong
             octaves, interpolation and filtering, missing instruments.
  semitone   the long-term spectrum in bands one semitone wide, MIDI notes
             21 (A0, 27.5 Hz) to 120 (C9, 8.4 kHz), in dB. Catches wrong
             pitches: finetune, period tables, portamento, arpeggio, vibrato.

Correlations of dB values ignore the overall gain, which every player
chooses differently; the mono mix ignores stereo separation and panning
laws, which differ between players too.

Usage: module_metrics.py DIR NAME...  where DIR holds NAME.ours.wav,
NAME.openmpt.wav and NAME.xmp.wav for each NAME. Prints one row per module
and a verdict. Exit status 0 (the verdicts are in the table).
"""
import os
import sys
import wave

import numpy as np

FRAME_SECONDS = 0.020
ENVELOPE_FLOOR_DB = -60.0   # well above 16-bit dither (about -100 dBFS) and quantisation noise
SPECTRUM_FLOOR_DB = -140.0  # band power floor, for bands with nothing in them
FFT_SIZE = 65536            # 0.67 Hz bins at 44.1 kHz: finer than the lowest semitone band (1.6 Hz wide)
DURATION_TOLERANCE = 0.01   # ours within 1 % of the reference's length

# Ours passes a figure when it is at least xmp's figure minus this margin.
# Why 0.02: it is how far a change that nobody would call wrong moves the
# figures. Measured on the 16 corpus modules: xmp with spline instead of
# linear interpolation (the same player and sequencing, only the resampler
# changed) moves its figures against openmpt123 by at most 0.003 (envelope),
# 0.020 (third-octave) and 0.012 (semitone). A real fault moves them much
# further: xmp with nearest-neighbour resampling loses up to 0.24 on the
# third-octave figure; openmpt123 against itself a semitone sharp (--pitch
# 1.0595) scores 0.53 to 0.77 on the semitone figure, and 2 % fast (--tempo
# 1.02) scores 0.63 or less on the envelope of a long song (and misses the
# 1 % length).
MARGIN = 0.02


def read_wav(path):
    """(rate, samples as float64 in -1..1, shape frames x channels)."""
    with wave.open(path, "rb") as w:
        if w.getsampwidth() != 2:
            raise ValueError(f"{path}: {8 * w.getsampwidth()}-bit samples, expected 16")
        frames = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2")
        return w.getframerate(), frames.reshape(-1, w.getnchannels()).astype(np.float64) / 32768.0


def mono(samples):
    return samples.mean(axis=1)


def loudness_envelope(signal, rate):
    """RMS per 20 ms frame in dB, floored; the last partial frame is dropped."""
    size = int(round(rate * FRAME_SECONDS))
    count = len(signal) // size
    frames = signal[: count * size].reshape(count, size)
    rms = np.sqrt(np.mean(frames * frames, axis=1))
    return np.maximum(20.0 * np.log10(np.maximum(rms, 1e-12)), ENVELOPE_FLOOR_DB)


def long_term_spectrum(signal, rate):
    """Welch average of Hann-windowed power spectra with 50 % overlap:
    (bin frequencies, power per bin)."""
    if len(signal) < FFT_SIZE:
        signal = np.pad(signal, (0, FFT_SIZE - len(signal)))
    window = np.hanning(FFT_SIZE)
    hop = FFT_SIZE // 2
    power = np.zeros(FFT_SIZE // 2 + 1)
    starts = range(0, len(signal) - FFT_SIZE + 1, hop)
    for start in starts:
        spectrum = np.fft.rfft(signal[start : start + FFT_SIZE] * window)
        power += spectrum.real ** 2 + spectrum.imag ** 2
    return np.fft.rfftfreq(FFT_SIZE, 1.0 / rate), power / (len(starts) * np.sum(window ** 2))


def band_powers_db(frequencies, power, edges):
    """Power between consecutive edges, in dB. The power is treated as spread
    evenly over each bin, so a band narrower than a bin still gets its share."""
    bin_width = frequencies[1] - frequencies[0]
    cumulative = np.concatenate(([0.0], np.cumsum(power)))
    lower_edges = np.concatenate((frequencies - bin_width / 2, [frequencies[-1] + bin_width / 2]))
    below = np.interp(edges, lower_edges, cumulative)
    bands = np.diff(below)
    return np.maximum(10.0 * np.log10(np.maximum(bands, 1e-30)), SPECTRUM_FLOOR_DB)


def third_octave_edges():
    centres = 1000.0 * 2.0 ** (np.arange(-17, 14) / 3.0)  # 19.7 Hz .. 20.2 kHz
    return np.concatenate((centres * 2.0 ** (-1 / 6), [centres[-1] * 2.0 ** (1 / 6)]))


def semitone_edges():
    centres = 440.0 * 2.0 ** ((np.arange(21, 121) - 69) / 12.0)  # A0 .. C9
    return np.concatenate((centres * 2.0 ** (-1 / 24), [centres[-1] * 2.0 ** (1 / 24)]))


def correlation(a, b):
    """Pearson correlation; 0 when either side is flat (nothing to compare)."""
    a, b = a - a.mean(), b - b.mean()
    norm = np.sqrt(np.sum(a * a) * np.sum(b * b))
    return float(np.sum(a * b) / norm) if norm > 0 else 0.0


class Rendering:
    """What the figures need of one WAV file, computed once."""

    def __init__(self, path):
        self.rate, samples = read_wav(path)
        signal = mono(samples)
        self.seconds = len(signal) / self.rate
        self.envelope = loudness_envelope(signal, self.rate)
        frequencies, power = long_term_spectrum(signal, self.rate)
        self.third = band_powers_db(frequencies, power, third_octave_edges())
        self.semitone = band_powers_db(frequencies, power, semitone_edges())


def envelope_correlation(a, b):
    length = max(len(a), len(b))
    pad = lambda e: np.pad(e, (0, length - len(e)), constant_values=ENVELOPE_FLOOR_DB)
    return correlation(pad(a), pad(b))


def figures(candidate, reference):
    return {
        "envelope": envelope_correlation(candidate.envelope, reference.envelope),
        "third": correlation(candidate.third, reference.third),
        "semitone": correlation(candidate.semitone, reference.semitone),
    }


def verdict(ours, xmp, seconds_ours, seconds_reference):
    behind = [name for name in ours if ours[name] < xmp[name] - MARGIN]
    if abs(seconds_ours - seconds_reference) > DURATION_TOLERANCE * seconds_reference:
        behind.insert(0, "duration")
    return "ok" if not behind else "WORSE: " + ", ".join(behind)


def song_seconds(path, rendered):
    """The song length a peer reports (mm:ss.fff in a file beside its
    rendering), else the rendering's length."""
    try:
        with open(path) as f:
            minutes, seconds = f.read().strip().split(":")
        return int(minutes) * 60 + float(seconds)
    except (OSError, ValueError):
        return rendered


def main(arguments):
    if len(arguments) < 2:
        print("usage: module_metrics.py DIR NAME...", file=sys.stderr)
        return 2
    folder, names = arguments[0], arguments[1:]
    print("figures are correlations with openmpt123's rendering: ours / xmp's; "
          f"verdict ok when ours >= xmp's - {MARGIN} and the length is within 1 %")
    header = f"{'module':32} {'seconds: ours mpt xmp':>25} {'1%':>3}  {'envelope':>11}  {'third-oct':>11}  " \
             f"{'semitone':>11}  verdict"
    print(header)
    passed = 0
    for name in names:
        path = lambda kind: os.path.join(folder, f"{name}.{kind}.wav")
        missing = [kind for kind in ("ours", "openmpt", "xmp") if not os.path.exists(path(kind))]
        if missing:
            print(f"{name[:32]:32} {'':25} {'':3}  {'':11}  {'':11}  {'':11}  NO RENDERING: {', '.join(missing)}")
            continue
        reference, ours, xmp = Rendering(path("openmpt")), Rendering(path("ours")), Rendering(path("xmp"))
        ours_figures, xmp_figures = figures(ours, reference), figures(xmp, reference)
        song = song_seconds(os.path.join(folder, f"{name}.openmpt.duration"), reference.seconds)
        within = abs(ours.seconds - song) <= DURATION_TOLERANCE * song
        result = verdict(ours_figures, xmp_figures, ours.seconds, song)
        passed += result == "ok"
        cells = "  ".join(f"{ours_figures[k]:5.3f}/{xmp_figures[k]:5.3f}" for k in ("envelope", "third", "semitone"))
        print(f"{name[:32]:32} {ours.seconds:8.2f} {song:7.2f} {xmp.seconds:7.2f} "
              f"{'yes' if within else 'no':>3}  {cells}  {result}")
    print(f"{passed} of {len(names)} modules ok")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
