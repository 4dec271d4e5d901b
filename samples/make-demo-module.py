#!/usr/bin/env python3
"""Writes demo.mod: a short 4-channel module made here from nothing but
arithmetic (no recorded material, CC0). Eight bars over C, A minor, F and G:
a pulse-wave melody, a sawtooth bass, a triangle arpeggio and synthesised
kick, snare and hi-hat. Standard library only; run from this folder.

The layout is the 31-sample "M.K." form: a 20-byte title, 31 sample headers
of 30 bytes, song length, restart byte, 128 orders, the tag, then 64-row
patterns of 4-byte cells and the 8-bit signed sample data."""
import math
import struct

# Amiga periods, finetune 0, for C-1 .. B-3.
PERIODS = [856, 808, 762, 720, 678, 640, 604, 570, 538, 508, 480, 453,
           428, 404, 381, 360, 339, 320, 302, 285, 269, 254, 240, 226,
           214, 202, 190, 180, 170, 160, 151, 143, 135, 127, 120, 113]
NAMES = ["C-", "C#", "D-", "D#", "E-", "F-", "F#", "G-", "G#", "A-", "A#", "B-"]


def period(note):
    """'C-2' -> its period; octaves 1..3 as the format allows."""
    return PERIODS[NAMES.index(note[:2]) + 12 * (int(note[2]) - 1)]


class Noise:
    """A fixed-seed linear congruential generator, so the file never changes."""
    def __init__(self, seed):
        self.state = seed

    def next(self):
        self.state = (self.state * 1103515245 + 12345) & 0x7FFFFFFF
        return self.state / 0x3FFFFFFF - 1.0


def to_bytes(values):
    return bytes((max(-128, min(127, round(v * 127))) & 0xFF) for v in values)


def pulse():  # one cycle, 25 % duty, softened edges
    return [0.55 if 2 <= i < 14 else (-0.55 if i >= 16 else 0.0) for i in range(64)]


def saw():
    return [0.8 * (1 - 2 * i / 32) for i in range(32)]


def triangle():
    return [0.7 * (1 - abs(4 * i / 32 - 2)) for i in range(32)]


def kick(rate=8287):  # a sine falling from 150 Hz to 45 Hz, decaying
    out, phase = [], 0.0
    for i in range(1600):
        t = i / rate
        phase += 2 * math.pi * (45 + 105 * math.exp(-t * 30)) / rate
        out.append(math.sin(phase) * math.exp(-t * 9))
    return out


def snare(rate=8287):
    noise, out = Noise(7), []
    for i in range(1400):
        t = i / rate
        out.append(0.6 * noise.next() * math.exp(-t * 16) + 0.4 * math.sin(2 * math.pi * 190 * t) * math.exp(-t * 25))
    return out


def hihat():
    noise, out, last = Noise(11), [], 0.0
    for i in range(400):
        n = noise.next()
        out.append((n - last) * 0.5 * math.exp(-i / 70))  # a difference leaves the highs
        last = n
    return out


# (name, data, looped, volume 0..64)
SAMPLES = [
    ("lead: pulse", pulse(), True, 40),
    ("bass: sawtooth", saw(), True, 52),
    ("arp: triangle", triangle(), True, 28),
    ("kick", kick(), False, 64),
    ("snare", snare(), False, 44),
    ("hat", hihat(), False, 30),
    ("made for Oxa, CC0", [], False, 0),
]
LEAD, BASS, ARP, KICK, SNARE, HAT = 1, 2, 3, 4, 5, 6

CHORDS = [("C-1", 0x47), ("A-1", 0x37), ("F-1", 0x47), ("G-1", 0x47)]  # root, arpeggio
MELODY_A = ["E-3", None, "G-3", None, "C-3", None, "D-3", "E-3",
            "C-3", None, "E-3", None, "A-2", None, "B-2", "C-3",
            "A-2", None, "C-3", None, "F-2", None, "A-2", "C-3",
            "B-2", None, "D-3", None, "G-2", None, "B-2", "D-3"]
MELODY_B = ["G-3", None, "E-3", "G-3", "A-3", None, "G-3", None,
            "E-3", None, "C-3", "E-3", "A-2", None, None, None,
            "F-2", "A-2", "C-3", "F-3", "E-3", None, "D-3", "C-3",
            "D-3", None, "B-2", None, "G-2", None, None, None]


def empty_pattern():
    return [[None] * 4 for _ in range(64)]


def fill(pattern, melody, last=False):
    for row in range(64):
        bar, beat_row = row // 16, row % 16
        root, arp = CHORDS[bar]
        cells = pattern[row]
        step = row // 2
        if row % 2 == 0 and melody[step]:
            cells[0] = (melody[step], LEAD, 0, 0)
        if beat_row in (0, 8):
            cells[1] = (root, BASS, 0, 0)
        elif beat_row in (6, 14):
            octave_up = root[:2] + str(int(root[2]) + 1)
            cells[1] = (octave_up, BASS, 0xC, 36)
        if beat_row == 0:
            cells[2] = (root[:2] + "2", ARP, 0, arp)
        else:
            cells[2] = (None, 0, 0, arp)  # the arpeggio runs on
        if beat_row in (0, 8) or (beat_row == 10 and bar % 2):
            cells[3] = ("C-2", KICK, 0, 0)
        elif beat_row in (4, 12):
            cells[3] = ("C-2", SNARE, 0, 0)
        elif beat_row % 2 == 0:
            cells[3] = ("C-3", HAT, 0, 0)
    if last:  # let the final chord ring: no drums, a long bass and lead note
        for row in range(56, 64):
            pattern[row] = [None, None, pattern[row][2], None]
        pattern[56] = [("C-3", LEAD, 0, 0), ("C-1", BASS, 0, 0), ("C-2", ARP, 0, 0x47), None]
    return pattern


def cell_bytes(cell):
    if cell is None:
        return bytes(4)
    note, sample, effect, parameter = cell
    p = period(note) if note else 0
    return bytes([(sample & 0xF0) | (p >> 8), p & 0xFF, ((sample & 0x0F) << 4) | effect, parameter])


def sample_header(name, data, looped, volume):
    words = len(data) // 2
    loop = (0, words) if looped else (0, 1)
    return name.encode("ascii").ljust(22, b"\0") + struct.pack(">HBBHH", words, 0, volume, *loop)


def main():
    patterns = [fill(empty_pattern(), MELODY_A), fill(empty_pattern(), MELODY_B),
                fill(empty_pattern(), MELODY_B, last=True)]
    patterns[0][0][3] = ("C-2", KICK, 0xF, 5)  # speed 5: 0.1 s per row at 125 BPM
    orders = [0, 1, 0, 2]
    out = bytearray(b"oxa demo".ljust(20, b"\0"))
    for i in range(31):
        out += sample_header(*SAMPLES[i]) if i < len(SAMPLES) else bytes(29) + b"\1"
    out += bytes([len(orders), 127]) + bytes(orders).ljust(128, b"\0") + b"M.K."
    for pattern in patterns:
        for row in pattern:
            for cell in row:
                out += cell_bytes(cell)
    for _, data, _, _ in SAMPLES:
        out += to_bytes(data[: len(data) // 2 * 2])
    with open("demo.mod", "wb") as f:
        f.write(out)
    print(f"demo.mod: {len(out)} bytes, {len(orders)} orders")


if __name__ == "__main__":
    main()
