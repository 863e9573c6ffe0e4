#!/usr/bin/python3
"""Makes seeded records of many kinds with known modes, and the Cramer-Rao bound of every mode.

    records.py --out DIR [--seed S] [--count N] [--kinds KIND,...]

DIR gets text files with the columns time and value (real and imaginary part of a complex record) and truth.json. There
a record has file, kind, group, variant, dt, samples, end (first free sample), level and sigma of the noise, complex,
span of the free part, and modes: frequency, decay, amplitude and phase at the first sample (exponentials.py), q, bounds
(sd_frequency, ... at sample `end`), and identifiable: whether a program is expected to find the mode. `background` is a
rate: what is reported with a pole below it, beside an offset or a drift, counts neither for nor against.

N records of each basic kind, as many or fewer of the others; `million`, `by-length` and `by-modes`, which show how time
grows, are made only when they are named. A record depends on the seed, its kind and its number within the kind alone.
"""
import argparse
import json
import pathlib
import zlib

import numpy as np

import cavities
from exponentials import LD, PI, Colour, bound_factor, evaluate, powers, resolved

GROUPS = {
    "basic": ("clean", "driven", "low", "mid", "high", "pairs", "weak", "driven-noise", "single"),
    "unusual": ("offset", "drift", "slow", "growing", "low-q", "few", "long", "coarse", "fine", "quantised", "comb",
                "complex"),
    "drives": ("drive-burst", "drive-step", "drive-chirp", "drive-cosine", "drive-pulses", "late"),
    "coloured": ("coloured",),
    "nothing": ("nothing",),
    "simulated": ("yee-0.5-double", "yee-0.9-double", "yee-0.5-single", "yee-0.9-single", "cavity-double",
                  "cavity-single"),
    "published": ("published",),
    "million": ("million",),
    "growth": ("by-length", "by-modes"),
}
GROUP_OF = {kind: group for group, kinds in GROUPS.items() for kind in kinds}
ON_REQUEST = (*GROUPS["million"], *GROUPS["growth"])
FEWER = {"long": 3, "cavity-double": 4, "cavity-single": 4}  # a part of the count
PUBLISHED = ("crowded", "cosines", "cosines-noise", "decays-14", "decays-6")
FIXED = {"published": len(PUBLISHED), "million": 1, "by-length": 11, "by-modes": 7}  # whatever the count
COLOURS = ("red", "blue", "hump", "pink")
NOTHING = ("white", "constant", "red", "pulse", "blue", "step", "hump", "zeros", "pink", "ramp", "constant-noise",
           "burst", "pulse-noise", "step-noise", "ramp-noise")
SMALLEST_SEEN = 1e-6  # of the strongest mode of a simulation: above it every one is to be found
NO_NOISE = 1e-16  # of the peak: what stands for the noise in the bound of an exact record


def spread(rng, low, high):
    """Evenly over the logarithm."""
    return low * (high / low) ** rng.random()


def phase(rng):
    return rng.uniform(-np.pi, np.pi)


class Draft:
    """A record in the making: grid, modes, and what else it has to tell."""

    def __init__(self, rng, per_period=(10, 50), samples=(2000, 16000)):
        self.rng = rng
        self.per_period = spread(rng, *per_period)
        self.free = int(spread(rng, *samples))  # samples of the free part
        self.dt = 10.0 ** rng.uniform(-15, -11)
        self.highest = 1 / (self.per_period * self.dt)
        self.end = 0
        self.modes = np.zeros((0, 4))
        self.early = np.zeros(0, LD)  # samples before the free part
        self.offset, self.slope, self.trend, self.background = 0.0, 0.0, 0, 0.0
        self.level, self.colour, self.complex, self.variant = 0.0, None, False, ""
        self.rounding = None
        self.drive = None

    @property
    def span(self):
        return self.free * self.dt

    def draw_modes(self, count=(2, 40), q=(5, 1e7), amplitude=(1e-2, 1), lowest=(0.1, 0.4), apart=3.0):
        """Modes spread over a band, `apart` Rayleigh widths in the mean or more."""
        rng = self.rng
        low = self.highest * rng.uniform(*lowest)
        room = (self.highest - low) * self.span
        k = int(np.clip(np.round(spread(rng, *count)), count[0], max(count[0], room / apart)))
        f = low + (self.highest - low) * (np.arange(k) + 0.5 + 0.35 * rng.uniform(-1, 1, k)) / k
        g = np.pi * f / [spread(rng, *q) for _ in f]
        self.modes = np.stack((f, g, [spread(rng, *amplitude) for _ in f], rng.uniform(-np.pi, np.pi, k)), axis=1)
        return self

    def add(self, rows):
        self.modes = np.vstack((self.modes, np.reshape(rows, (-1, 4))))

    def noisy(self, *levels):
        self.level = float(self.rng.choice(levels))
        return self


def drive_samples(rng, shape, dt, highest, modes):
    """A drive from sample 0 on and how it goes on for ever: samples and the constant behind them (a step's)."""
    period = 1 / (highest * dt)
    low = modes[:, 0].min()
    if shape == "step":
        rise = int(rng.choice([1, np.ceil(period * rng.uniform(0.3, 3))]))
        return 0.5 - 0.5 * np.cos(PI * (np.arange(rise) + 1).astype(LD) / (rise + 1)), 1.0

    def burst(width, carrier):
        t = (np.arange(int(np.ceil(10 * width)) + 1) - 5 * width).astype(LD)
        return np.exp(-0.5 * (t / LD(width)) ** 2) * np.cos(2 * PI * LD(carrier) * t)

    carrier = dt * rng.uniform(low, highest)
    if shape == "burst":
        return burst(period * rng.uniform(0.5, 2), carrier), 0.0
    if shape == "pulses":
        parts = []
        for _ in range(rng.integers(2, 5)):
            parts += [np.zeros(int(period * rng.uniform(0, 20)), LD)] if parts else []
            parts.append(rng.uniform(0.3, 1) * burst(period * rng.uniform(0.4, 1.5), dt * rng.uniform(low, highest)))
        return np.concatenate(parts), 0.0
    length = int(period * (rng.uniform(8, 40) if shape == "chirp" else rng.uniform(1, 12)))
    k = np.arange(length).astype(LD)
    if shape == "cosine":
        window = 0.5 - 0.5 * np.cos(2 * PI * (k + 1) / (length + 1))
        return window * (np.cos(2 * PI * LD(carrier) * k) if rng.random() < 0.5 else 1), 0.0
    edge = np.clip(np.minimum(k + 1, length - k) / (0.15 * length), 0, 1)
    sweep = dt * (low + (highest - low) * k / (2 * length)) * k  # cycles, from the lowest to the highest mode
    return (0.5 - 0.5 * np.cos(PI * edge)) * np.cos(2 * PI * sweep), 0.0


def drive(draft, shape, silence=0, kick=False):
    """Makes the draft's modes the response to a drive behind `silence` samples: the drive is convolved with the sum of
    c exp(s t), which after its end is c D exp(s t), D = sum_l d(l) exp(-s l). The amplitudes that the modes were
    drawn with are roughly those where the drive ends; poorly driven modes come out weaker."""
    rng, modes, dt = draft.rng, draft.modes, draft.dt
    d, rest = (np.ones(1, LD), 0.0) if kick else drive_samples(rng, shape, dt, draft.highest, modes)
    end = len(d)
    z = powers(modes, dt, [1])[0]
    back = powers(modes, dt, -np.arange(end))
    transform = d @ back
    if rest:  # sum_{l >= end} z^(n-l) = (z^(n-end+1) - 1) / (z - 1) up to sample n: a mode and a constant
        transform = transform + powers(modes, dt, [1 - end])[0] / (z - 1)
    at_end = np.abs(transform) * np.exp(-modes[:, 1] * (end * dt))
    gain = modes[:, 2] / np.maximum(at_end, 0.03 * at_end.max())
    c = gain * (np.cos(modes[:, 3]) + 1j * np.sin(modes[:, 3]))
    residue = c * transform
    early = response(z, c, d)
    shown = np.stack((modes[:, 0], modes[:, 1], np.abs(residue), np.arctan2(residue.imag, residue.real)), axis=1)
    through = 0.0 if kick else rng.uniform(0.3, 3) * float(np.abs(evaluate(shown, dt, end, end + 2000)).max())
    early += through * d
    if rest:
        draft.offset = float((c / (1 - z)).real.sum() + through)
        draft.trend, draft.background = 1, 0.3 / draft.span
    # counted from the record's first sample; the shift rounds f and p alone
    turn = powers(shown, dt, [-silence])[0] * residue
    draft.modes = np.stack((modes[:, 0], modes[:, 1], np.abs(turn), np.arctan2(turn.imag, turn.real)), axis=1)
    draft.early = np.concatenate((np.zeros(silence, LD), early))
    draft.end = silence + end
    draft.variant = shape
    draft.drive = {"z": z, "c": c, "samples": d, "rest": rest, "through": through, "silence": silence}
    return draft


def response(z, c, drive_values):
    """The convolution of the drive with the sum of c z^k."""
    y, state = np.empty(len(drive_values), LD), np.zeros(len(z), np.clongdouble)
    for k, value in enumerate(drive_values):
        state = state * z + c * value
        y[k] = state.real.sum()
    return y


def pairs(draft):
    """Neighbours a fifth of to two line or Rayleigh widths away, whichever is wider."""
    rng = draft.rng
    for f, g, a, _ in draft.modes[rng.permutation(len(draft.modes))[: max(1, len(draft.modes) // 4)]]:
        width = max(1 / draft.span, g / np.pi)
        draft.add((f + width * spread(rng, 0.2, 2), g * spread(rng, 0.5, 2), a * spread(rng, 0.3, 3), phase(rng)))
    return draft.noisy(0.0, 1e-7, 1e-5, 1e-3)


def weak(draft):
    few = draft.rng.permutation(len(draft.modes))[: max(1, len(draft.modes) // 3)]
    draft.modes[:, 2] = draft.modes[:, 2] ** 0.25  # the others are of one size
    draft.modes[few, 2] = 1e-4
    return draft.noisy(0.0, 1e-8, 1e-6)


def with_trend(draft, slope):
    scale = np.abs(draft.modes[:, 2]).max()
    draft.offset = scale * spread(draft.rng, 1e-2, 10) * draft.rng.choice([-1, 1])
    draft.slope = scale * spread(draft.rng, 1e-2, 3) * draft.rng.choice([-1, 1]) / draft.span if slope else 0.0
    draft.trend, draft.background = 1 + slope, (3.0 if slope else 0.3) / draft.span
    return draft.noisy(0.0, 1e-6, 1e-4, 1e-3)


def with_slow(draft):
    rng, count = draft.rng, int(draft.rng.integers(1, 3))
    for time in draft.span * 0.4 * 6.0 ** -(np.arange(count) + rng.uniform(0, 0.5)):
        draft.add((0.0, 1 / time, spread(rng, 0.1, 3), rng.choice([0.0, np.pi])))
    return draft.noisy(0.0, 1e-6, 1e-4, 1e-3)


def with_growing(draft):
    """One mode or two that grow to about the size of the others or far beyond."""
    rng = draft.rng
    rows = rng.permutation(len(draft.modes))[: 1 + (len(draft.modes) > 4 and rng.random() < 0.4)]
    nepers = rng.uniform(1, 12, len(rows))
    draft.modes[rows, 1] = -nepers / draft.span
    draft.modes[rows, 2] = np.exp(-nepers) * [spread(rng, 0.1, 30) for _ in rows]
    return draft.noisy(0.0, 1e-6, 1e-4, 1e-3)


def low_q(draft):
    rng = draft.rng
    rows = rng.permutation(len(draft.modes))[: max(1, len(draft.modes) // 3)]
    draft.modes[rows, 1] = np.pi * draft.modes[rows, 0] / rng.uniform(0.3, 1, len(rows))
    draft.modes[rows, 2] = rng.uniform(0.3, 1, len(rows))
    if rng.random() < 0.3:
        draft.add((0.0, draft.highest * rng.uniform(0.1, 1), rng.uniform(0.3, 1), rng.choice([0.0, np.pi])))
    return draft.noisy(0.0, 1e-8, 1e-6, 1e-4)


def comb(draft):
    """Equal lines at equal distances; in step at times, as those of a train of pulses."""
    rng, k = draft.rng, int(spread(draft.rng, 5, 30))
    step = min((draft.highest * 0.8) / k, spread(rng, 1.5, 20) / draft.span)
    f = draft.highest - step * np.arange(k)[::-1]
    g = spread(rng, 0.05, 3) / draft.span * np.ones(k)
    draft.modes = np.stack((f, g, np.ones(k), np.zeros(k) if rng.random() < 0.5 else rng.uniform(-3, 3, k)), axis=1)
    return draft.noisy(0.0, 1e-6, 1e-4, 1e-2)


def quantised(draft):
    rng = draft.rng
    draft.variant = str(rng.choice(["steps", "digits"]))
    draft.rounding = int(rng.integers(10, 19)) if draft.variant == "steps" else int(rng.integers(4, 8))
    return draft


def complex_record(draft):
    draft.modes[:, 0] *= draft.rng.choice([-1, 1], len(draft.modes))
    draft.complex = True
    return draft.noisy(0.0, 1e-6, 1e-4, 1e-2)


def late(draft):
    silence = int(draft.free * draft.rng.uniform(0.05, 0.5))
    shape = str(draft.rng.choice(["onset", "burst", "cosine"]))
    return drive(draft, shape, silence, shape == "onset").noisy(0.0, 1e-6, 1e-4, 1e-3)


def coloured(draft, number):
    draft.variant = COLOURS[number % len(COLOURS)]
    draft.colour = Colour.draw(draft.rng, draft.variant)
    return draft.noisy(1e-4, 1e-3, 1e-2)


def nothing(rng, number):
    draft = Draft(rng, samples=(500, 16000))
    draft.variant = variant = NOTHING[number % len(NOTHING)]
    n, k = draft.free, np.arange(draft.free)
    size, where, width = spread(rng, 1e-3, 1e3), n * rng.uniform(0.1, 0.7), n * spread(rng, 2e-3, 0.05)
    shape = variant.split("-")[0]
    y = {
        "constant": np.full(n, rng.normal()),
        "pulse": np.exp(-0.5 * ((k - where) / width) ** 2),
        "burst": np.exp(-0.5 * ((k - where) / width) ** 2) * np.cos((k - where) * rng.uniform(0.5, 5) / width),
        "step": np.clip((k - where) / rng.choice([1.0, width]), 0, 1),
        "ramp": k / n - rng.random(),
    }.get(shape, np.zeros(n))
    if shape in ("white", *COLOURS):
        draft.colour = Colour.draw(rng, shape)
        draft.level = 1.0
    elif variant.endswith("noise"):
        draft.level = float(rng.choice([1e-6, 1e-4, 1e-2]))
    draft.early, draft.end, draft.free = size * y.astype(LD), n, 0
    return draft


def published(rng, number):
    """Sums from the literature: fifteen crowded modes (arXiv:1606.00391), four damped cosines, and NIST StRD's Lanczos
    sets, three real decays printed with 14 and with 6 digits."""
    draft = Draft(rng)
    draft.variant = PUBLISHED[number]
    if draft.variant == "crowded":
        omega = (32.85, 36.51, 38.29, 48.82, 105.63, 146.96, 183.24, 191.10, 217.34, 241.39, 253.59, 283.60, 298.20,
                 299.85, 304.95)
        gamma = (4.61, 9.44, 12.95, 0.09, 9.24, 14.88, 10.19, 7.46, 11.21, 2.18, 11.03, 9.64, 4.42, 12.25, 9.20)
        draft.add([(w / (2 * np.pi), g, 1.0, 0.0) for w, g in zip(omega, gamma)])
        draft.dt, draft.free, draft.complex = 1 / 127, 128, True
    elif draft.variant.startswith("cosines"):
        draft.add([(80, 70, 0.4, 0), (120, 50, 1, 0), (250, 90, 0.89, 0), (560, 80, 0.65, 0)])
        draft.dt, draft.free = 1 / 2205, 250
        draft.level = 1e-3 / 2.94 if draft.variant.endswith("noise") else 0.0  # of the first sample
    else:
        draft.add([(0, 1, 0.0951, 0), (0, 3, 0.8607, 0), (0, 5, 1.5576, 0)])
        draft.dt, draft.free, draft.rounding = 0.05, 24, int(draft.variant.split("-")[1])
    return draft


def free_of(kind, rng, number):
    """The draft of a record of any kind that is not simulated."""
    if kind in ("nothing", "published"):
        return nothing(rng, number) if kind == "nothing" else published(rng, number)
    shape = {"few": ((2.5, 8), (20, 201)), "long": ((10, 50), (1e5, 3e5)), "million": ((10, 30), (1e6, 1e6 + 1)),
             "coarse": ((2.5, 6), (500, 16000)), "fine": ((100, 300), (4000, 16000)),
             "low-q": ((20, 50), (500, 8000)), "by-length": ((20, 21), (1000 * 2**number, 1000 * 2**number + 1)),
             "by-modes": ((10, 11), (32000, 32001))}.get(kind, ((10, 50), (2000, 16000)))
    if kind.startswith("driv") or kind == "late":
        shape = ((10, 50), (2000, 11000))
    draft = Draft(rng, *shape)
    draw = {"few": dict(count=(1, max(1.01, draft.free / 14)), q=(3, 1e5), amplitude=(0.1, 1)),
            "long": dict(count=(5, 60), q=(100, 1e7)), "million": dict(count=(20, 20), q=(1e3, 1e7)),
            "fine": dict(count=(2, 10)), "low-q": dict(count=(2, 8), q=(5, 1e3), apart=10.0),
            "growing": dict(count=(3, 30)), "by-length": dict(count=(10, 10), q=(1e2, 1e4)),
            "by-modes": dict(count=(2 ** (number + 1),) * 2, q=(1e3, 1e6)),
            "quantised": dict(q=(50, 1e6), amplitude=(0.1, 1))}.get(kind, {})
    draft.draw_modes(**draw)
    levels = {"low": (1e-6,), "mid": (1e-4,), "high": (1e-2,), "few": (0.0, 1e-8, 1e-6, 1e-4), "million": (1e-4,),
              "by-length": (1e-4,), "by-modes": (1e-4,),
              "long": (0.0, 1e-6, 1e-4, 1e-2), "coarse": (0.0, 1e-6, 1e-4, 1e-2), "fine": (0.0, 1e-6, 1e-4, 1e-2)}
    special = {"pairs": pairs, "weak": weak, "offset": lambda d: with_trend(d, 0), "drift": lambda d: with_trend(d, 1),
               "slow": with_slow, "growing": with_growing, "low-q": low_q, "comb": comb, "quantised": quantised,
               "complex": complex_record, "late": late, "coloured": lambda d: coloured(d, number),
               "driven": lambda d: drive(d, "burst"),
               "driven-noise": lambda d: drive(d, "burst").noisy(1e-6, 1e-4, 1e-3)}
    if kind in levels:
        draft.noisy(*levels[kind])
    elif kind in special:
        special[kind](draft)
    elif kind.startswith("drive-"):
        drive(draft, kind.removeprefix("drive-")).noisy(0.0, 1e-6, 1e-4, 1e-3)
    elif kind == "single":
        draft.rounding = "single"
    return draft


def rounded(y, how, variant):
    if how == "single":
        return y.astype(np.float32).astype(float)
    if variant == "steps":  # of a converter of so many bits
        step = 2.0 ** (1 - how) * np.abs(y).max()
        return np.round(y / step) * step
    return np.array([float(f"{value:.{how - 1}e}") for value in y])  # of a printed file


def exact_samples(draft):
    """The record without noise, in extended precision."""
    free = evaluate(draft.modes, draft.dt, draft.end, draft.end + draft.free, draft.complex)
    free = free + draft.offset + draft.slope * draft.dt * (draft.end + np.arange(draft.free)).astype(LD)
    return np.concatenate((draft.early, free))


def finish(draft, rng):
    """Samples as written, and the truth."""
    draft.modes = draft.modes[np.argsort(draft.modes[:, 0], kind="stable")]
    exact = exact_samples(draft)
    y = exact.astype(complex if draft.complex else float)
    free = slice(draft.end if draft.free else 0, None)
    peak = float(np.abs(y[free]).max())
    sigma = NO_NOISE * peak
    if draft.level:
        sigma = draft.level * (peak or 1.0)
        if draft.complex:
            y = y + sigma * (rng.standard_normal(len(y)) + 1j * rng.standard_normal(len(y)))
        else:
            y = y + sigma * (draft.colour or Colour([])).noise(rng, len(y))
    elif draft.rounding:
        y = rounded(y, draft.rounding, draft.variant)
        sigma = float(np.sqrt(np.mean((y[free] - exact[free].astype(float)) ** 2)))
    record = {"dt": draft.dt, "samples": len(y), "end": draft.end, "level": draft.level, "sigma": sigma,
              "complex": draft.complex, "span": draft.span, "variant": draft.variant, "trend": draft.trend,
              "background": draft.background, "rounded": draft.rounding is not None,
              "colour": draft.colour.a[1:].tolist() if draft.colour else None}
    sd = deviations(record, draft.modes)
    record["modes"] = mode_entries(draft.modes, sd, resolved(draft.modes, sd, draft.complex)) if len(sd) else []
    # an offset or a drift as the common scorer takes it: modes at zero that need not be found
    for _ in range(draft.trend):
        record["modes"].append({"frequency": 0.0, "decay": 0.0, "amplitude": abs(draft.offset) or 1.0, "phase": 0.0,
                                "q": None, "sd_frequency": 0.1 * draft.background, "sd_decay": 0.1 * draft.background,
                                "sd_ln_amplitude": 1.0, "sd_phase": 1.0, "identifiable": False, "trend": True})
    return y, record


def factor_of(record, modes):
    """The bound's factor of a record from its truth."""
    whiten = Colour(record["colour"]).whiten if record["colour"] else None
    return bound_factor(modes, record["dt"], record["end"], record["samples"], record["sigma"], record["trend"],
                        record["complex"], whiten)


def deviations(record, modes):
    if len(modes) == 0:
        return np.zeros((0, 4))
    sd = np.sqrt((factor_of(record, modes) ** 2).sum(1)).reshape(-1, 4)
    real_decay = (modes[:, 0] == 0.0) & (not record["complex"])
    sd[real_decay, 0], sd[real_decay, 3] = sd[real_decay, 1] / (2 * np.pi), 1.0
    return sd


def mode_entries(modes, sd, identifiable):
    return [{"frequency": float(f), "decay": float(g), "amplitude": float(a), "phase": float(p),
             "q": float(np.pi * f / g) if g else None, "sd_frequency": float(s[0]), "sd_decay": float(s[1]),
             "sd_ln_amplitude": float(s[2]), "sd_phase": float(s[3]), "identifiable": bool(found)}
            for (f, g, a, p), s, found in zip(modes, sd, identifiable)]


def modes_of(record):
    """The modes of a truth as rows, without an offset's."""
    kept = [mode for mode in record["modes"] if not mode.get("trend")]
    return np.array([[m[key] for key in ("frequency", "decay", "amplitude", "phase")] for m in kept]).reshape(-1, 4)


def simulated(kind, rng, number):
    """All modes above a millionth of the strongest are to be found. The distance from the exact modes, which is the
    simulation's own rounding, stands for noise in the bound; the weakest modes are left out of it."""
    real = np.float64 if kind.endswith("double") else np.float32
    if kind.startswith("yee"):
        dt, variant = 10.0 ** rng.uniform(-15, -11), ("rung", "driven")[number % 2]
        samples, (decay, angle, residue), end = cavities.line_cavity(rng, float(kind[4:7]), real, variant == "driven")
    else:
        variant = "demonstration" if number == 0 else "drawn"
        samples, (decay, angle, residue), end, dt = cavities.box_cavity(real, rng if number else None)
    modes = cavities.as_modes(decay, angle, residue, dt)
    left = samples[end:].astype(LD) - evaluate(modes, dt, end, len(samples))
    y = samples.astype(float)
    at_end = modes[:, 2] * np.exp(-modes[:, 1] * (end * LD(dt)))
    share = (at_end / at_end.max()).astype(float)
    listed = share > (1e-14 if real is np.float64 else 3e-8)
    modes, share = modes[listed].astype(float), share[listed]
    record = {"dt": dt, "samples": len(y), "end": end, "level": 0.0, "sigma": float(np.sqrt((left**2).mean())),
              "complex": False, "span": (len(y) - end) * dt, "variant": variant, "trend": 0, "background": 0.0,
              "rounded": True, "colour": None}
    strong = share > 0.1 * SMALLEST_SEEN
    sd = np.empty((len(modes), 4))
    sd[strong] = deviations(record, modes[strong])
    sd[~strong] = np.median(sd[strong] * share[strong, None], axis=0) / share[~strong, None]
    record["modes"] = mode_entries(modes, sd, share > SMALLEST_SEEN)
    return y, record


def write(path, y, dt):
    t = (np.arange(len(y)).astype(LD) * LD(dt)).astype(float)
    columns = [t, y.real, y.imag] if np.iscomplexobj(y) else [t, y]
    np.savetxt(path, np.column_stack(columns), fmt="%.17g")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=12)
    parser.add_argument("--kinds", help="separated by commas; all but those on request by default")
    arguments = parser.parse_args()
    kinds = arguments.kinds.split(",") if arguments.kinds else [k for k in GROUP_OF if k not in ON_REQUEST]
    arguments.out.mkdir(parents=True, exist_ok=True)
    truths = []
    for kind in kinds:
        count = FIXED.get(kind, -(-arguments.count // FEWER.get(kind, 1)))
        if kind == "nothing":
            count = max(count, len(NOTHING))
        for number in range(count):
            rng = np.random.default_rng([arguments.seed, zlib.crc32(kind.encode()), number])
            y, record = simulated(kind, rng, number) if GROUP_OF[kind] == "simulated" else finish(
                free_of(kind, rng, number), rng)
            name = f"{kind}-{number:03d}.txt"
            write(arguments.out / name, y, record["dt"])
            truths.append({"file": name, "kind": kind, "group": GROUP_OF[kind]} | record)
    (arguments.out / "truth.json").write_text(json.dumps(truths, indent=1) + "\n")
    modes = [mode for record in truths for mode in record["modes"]]
    print(f"{len(truths)} records, {len(modes)} modes, {sum(m['identifiable'] for m in modes)} to be found")


if __name__ == "__main__":
    main()
