#!/usr/bin/python3
"""Makes seeded sets of records of one structure with known modes, and the joint Cramer-Rao bound of every mode.

    joint_records.py --out DIR [--seed S] [--count N] [--kinds KIND,...] [--probes P]

DIR gets a text file for each set, a block of lines "time value" a record, and truth.json, which score.py reads. Kinds:

missing   every mode is missing in some of the probes
weak      some modes are weak in all probes: none would show them alone
pairs     some modes stand closer to another than one probe resolves
driven    the probes see a drive, each its own, that ends at one instant
uneven    noise, length and start differ from probe to probe
clean     no noise, modes missing
On request alone:
differ    one probe belongs to another structure
coloured  the noise of each probe has a spectrum of its own
single    as clean, rounded to single precision
yee-single, yee-double  a simulated line in single or double precision, all of its modes above a millionth of the
          strongest to be found

A mode is to be found if the bound resolves its pole (exponentials.py) and chance does not hide it: its amplitude stands
five of its standard errors above nothing in one probe, or in all R of them together 5 R^(1/4), as the sum of R squares of
noise varies with the root of R.
"""
import argparse
import json
import pathlib
import zlib

import numpy as np
import scipy.linalg

import cavities
import records
from exponentials import LD, Colour, evaluate, powers, resolved

KINDS = ("missing", "weak", "pairs", "driven", "uneven", "clean")
COLOURS = ("red", "blue", "hump", "pink")
NO_NOISE = 1e-16  # of the peak: what stands for the noise in the bound of an exact set


def columns(modes, dt, samples):
    """L and B: derivatives of the samples by real and imaginary part of each residue, and by (decay, omega) at c = 1."""
    e = powers(modes, dt, np.arange(samples)).astype(complex)
    t = (np.arange(samples) * dt)[:, None]
    both = lambda a, b: np.stack((a, b), axis=2).reshape(samples, -1)
    return both(e.real, -e.imag), both(-t * e.real, -t * e.imag)  # c = 1: d/d decay, d/d omega = -t Im(E)


def bound(modes, residues, dt, lengths, sigmas, colours):
    """Standard errors of frequency and decay by the joint bound, and the error of ln|c| of each probe (rows)."""
    count = len(modes)
    known, information, parts = {}, np.zeros((2 * count, 2 * count)), []
    for c, samples, sigma, colour in zip(residues, lengths, sigmas, colours):
        if (samples, colour) not in known:
            both = np.hstack(columns(modes, dt, samples))
            if colour:
                both = colour.whiten(both)
            norms = np.sqrt((both**2).sum(0))
            norms[norms == 0.0] = 1e-300
            r = np.linalg.qr(both / norms, "r")
            known[samples, colour] = r, norms
        r, norms = known[samples, colour]
        k = 2 * count
        # B at c: the column of decay is -t Re(c E), that of omega -t Im(c E)
        turn = np.zeros((k, k))
        for j, value in enumerate(c):
            turn[2 * j:2 * j + 2, 2 * j:2 * j + 2] = [[value.real, value.imag], [-value.imag, value.real]]
        b22 = r[k:, k:] @ (norms[k:, None] * turn) / sigma
        information += b22.T @ b22
        parts.append((r, norms, turn, sigma))
    size = np.sqrt(np.diag(information))
    size[size == 0.0] = 1e-300
    covariance = np.linalg.pinv(information / np.outer(size, size), rcond=1e-15, hermitian=True) / np.outer(size, size)
    relative = []
    for (r, norms, turn, sigma), c in zip(parts, residues):
        k = 2 * count
        r11 = scipy.linalg.solve_triangular(r[:k, :k], np.eye(k)) / norms[:k, None]
        answer = r11 @ (r[:k, k:] @ (norms[k:, None] * turn))
        own = sigma**2 * (r11 @ r11.T) + answer @ covariance @ answer.T
        unit = np.where(np.abs(c) > 0, c / np.where(np.abs(c) > 0, np.abs(c), 1), 1)
        along = np.array([u.real**2 * own[2 * j, 2 * j] + 2 * u.real * u.imag * own[2 * j, 2 * j + 1]
                          + u.imag**2 * own[2 * j + 1, 2 * j + 1] for j, u in enumerate(unit)])
        relative.append(np.sqrt(along) / np.maximum(np.abs(c), 1e-300))
    sd = np.sqrt(np.diag(covariance)).reshape(-1, 2)
    return sd[:, 1] / (2 * np.pi), sd[:, 0], np.array(relative)


def draw(kind, rng, probes):
    """Grid, modes, each probe's amplitudes and phases, noise, lengths and starts."""
    draft = records.Draft(rng, samples=(2000, 8000))
    draft.draw_modes(count=(3, 24), q=(20, 1e6))
    modes = draft.modes
    if kind == "pairs":
        for j in rng.choice(len(modes), max(1, len(modes) // 4), replace=False):
            width = max(modes[j, 1] / np.pi, 1 / draft.span)
            twin = modes[j].copy()
            twin[0] += width * rng.uniform(0.2, 1.0)
            twin[1] *= rng.uniform(0.7, 1.4)
            modes = np.vstack((modes, twin))
    count = len(modes)
    profile = rng.uniform(-1, 1, (probes, count))  # a mode's field at the probes, some of them near its nodes
    if kind in ("missing", "clean", "uneven", "differ", "single"):
        for j in range(count):
            gone = rng.choice(probes, max(1, int(probes * rng.uniform(0.3, 0.8))), replace=False)[:probes - 1]
            profile[gone, j] = 0.0
    level = 0.0 if kind in ("clean", "single") else float(rng.choice([1e-6, 1e-4, 1e-3, 1e-2]))
    amplitude = np.abs(profile) * modes[:, 2]
    angle = modes[:, 3] + np.where(profile < 0, np.pi, 0.0)
    if kind == "weak":
        level = float(rng.choice([1e-4, 1e-3, 1e-2]))
        weak = rng.choice(count, max(1, count // 3), replace=False)
        samples = np.minimum(draft.free, 0.5 / (modes[weak, 1] * draft.dt))
        # total signal over noise of some 6 to 20 times the root of what chance needs
        total = np.array([records.spread(rng, 9, 25) for _ in weak]) * max(1.0, probes**0.25)
        share = rng.uniform(0.7, 1.3, (probes, len(weak)))
        amplitude[:, weak] = share * total / np.sqrt(probes) * level * np.sqrt(2 / samples)
    return draft, modes, amplitude, angle, level


def make(kind, rng, probes):
    draft, modes, amplitude, angle, level = draw(kind, rng, probes)
    dt, lengths = draft.dt, np.full(probes, draft.free)
    starts = np.zeros(probes, int)
    loud = np.ones(probes)
    if kind == "uneven":
        lengths = (draft.free * rng.uniform(0.6, 1.0, probes)).astype(int)
        starts = rng.integers(0, draft.free // 20, probes)
        loud = np.array([records.spread(rng, 0.1, 10) for _ in range(probes)])
    end = int(records.spread(rng, 1, 6) / (draft.highest * dt)) if kind == "driven" else 0
    foreign = rng.integers(probes) if kind == "differ" else -1
    every, blocks, sigmas, colours = [], [], [], [None] * probes
    if kind == "coloured":
        colours = [Colour.draw(rng, str(rng.choice(COLOURS))) for _ in range(probes)]
    for p in range(probes):
        rows = np.column_stack((modes[:, 0], modes[:, 1], amplitude[p], angle[p]))
        if p == foreign:
            rows[:, 0] *= 1 + 0.3 / len(modes) * rng.uniform(0.3, 0.7)
        # amplitudes count from the common time zero; the drive ends at sample `end` of it
        turn = powers(rows, dt, [-end])[0] * rows[:, 2] * np.exp(1j * rows[:, 3])
        rows[:, 2], rows[:, 3] = np.abs(turn).astype(float), np.angle(turn.astype(complex))
        exact = evaluate(rows, dt, max(starts[p], end), starts[p] + lengths[p])
        if end > 0:  # whatever the source radiates: a burst that nothing foretells
            t = np.arange(end) / end
            early = np.sin(np.pi * t) ** 2 * np.interp(t, np.linspace(0, 1, 9), rng.standard_normal(9))
            exact = np.concatenate((early.astype(LD) * float(np.abs(exact).max()) * 2, exact))
        peak = float(np.abs(exact).max()) or 1.0
        sigma = level * loud[p] * peak if kind == "uneven" else level
        sigmas.append(max(sigma, NO_NOISE * peak))
        y = exact.astype(float)
        if kind == "single":
            y = records.rounded(y, "single", "")
            sigmas[-1] = max(sigmas[-1], float(np.sqrt(np.mean((y - exact.astype(float)) ** 2))))
        elif sigma:
            y += sigma * (colours[p] or Colour([])).noise(rng, len(y))
        blocks.append((starts[p] * LD(dt) + np.arange(len(y)).astype(LD) * LD(dt), y))
        every.append(rows)
    first = np.maximum(starts, end)
    at_first = [powers(rows, dt, [k])[0].astype(complex) * rows[:, 2] * np.exp(1j * rows[:, 3])
                for rows, k in zip(every, first)]
    free = [len(y) - (k - s) for (_, y), k, s in zip(blocks, first, starts)]
    sd_f, sd_g, relative = bound(modes, at_first, dt, free, sigmas, colours)
    best = relative.min(axis=0)
    together = 1 / np.sqrt((relative**-2.0).sum(axis=0))
    seen = np.minimum(best, together * probes**0.25)
    sd = np.column_stack((sd_f, sd_g, seen, seen))
    found = resolved(modes, sd)
    # amplitude and phase at the first record's first sample
    own = powers(every[0], dt, [starts[0]])[0].astype(complex) * every[0][:, 2] * np.exp(1j * every[0][:, 3])
    shown = np.column_stack((modes[:, 0], modes[:, 1], np.abs(own), np.angle(own)))
    order = np.argsort(modes[:, 0])
    record = {"dt": dt, "samples": int(sum(len(y) for _, y in blocks)), "probes": probes, "end": int(end), "level": level,
              "complex": False, "span": float(draft.span), "background": 0.0, "foreign": int(foreign),
              "modes": records.mode_entries(shown[order], sd[order], found[order])}
    return blocks, record


def simulate(kind, rng, probes):
    """Records of one run of a solver: their distance from the exact modes, the run's own rounding, is the noise of the
    bound. All of them see the same, so that it does not average out: the bound is that of a typical record."""
    real = np.float64 if kind.endswith("double") else np.float32
    dt, driven = 10.0 ** rng.uniform(-15, -11), bool(rng.integers(2))
    samples, (decay, angle, residue), end = cavities.line_cavity(rng, rng.uniform(0.5, 0.9), real, driven, probes)
    strongest = np.abs(residue).max(axis=0)
    at_end = strongest * np.exp(-decay * end)
    share = (at_end / at_end.max()).astype(float)
    listed = share > (1e-14 if real is np.float64 else 3e-8)
    every, sigmas = [], []
    for own, y in zip(residue, samples):
        rows = np.stack((angle / (2 * np.pi * LD(dt)), np.broadcast_to(decay / LD(dt), angle.shape), 2 * np.abs(own),
                         np.arctan2(own.imag, own.real)), axis=1)
        left = y[end:].astype(LD) - evaluate(rows, dt, end, len(y))
        sigmas.append(float(np.sqrt((left**2).mean())) or NO_NOISE)
        every.append(rows[listed].astype(float))
    modes = every[0]
    at_first = [powers(rows, dt, [end])[0].astype(complex) * rows[:, 2] * np.exp(1j * rows[:, 3]) for rows in every]
    count = samples.shape[1]
    alike = [np.sqrt(probes) * sigma for sigma in sigmas]
    sd_f, sd_g, relative = bound(modes, at_first, dt, [count - end] * probes, alike, [None] * probes)
    sd = np.column_stack((sd_f, sd_g, relative.min(axis=0), relative.min(axis=0)))
    order = np.argsort(modes[:, 0])
    record = {"dt": dt, "samples": samples.size, "probes": probes, "end": end, "level": 0.0, "complex": False,
              "span": (count - end) * dt, "background": 0.0, "foreign": -1, "group": "simulated",
              "modes": records.mode_entries(modes[order], sd[order], (share[listed] > records.SMALLEST_SEEN)[order])}
    t = np.arange(count).astype(LD) * LD(dt)
    return [(t, y.astype(float)) for y in samples], record


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=8)
    parser.add_argument("--kinds", default=",".join(KINDS), help="separated by commas")
    parser.add_argument("--probes", type=int, help="2 to 64, drawn by default")
    arguments = parser.parse_args()
    arguments.out.mkdir(parents=True, exist_ok=True)
    truths = []
    for kind in arguments.kinds.split(","):
        for number in range(arguments.count):
            rng = np.random.default_rng([arguments.seed, zlib.crc32(kind.encode()), number, 7])
            probes = arguments.probes or int(round(records.spread(rng, 3 if kind == "differ" else 2, 64)))
            blocks, record = (simulate if kind.startswith("yee") else make)(kind, rng, probes)
            name = f"{kind}-{number:03d}.txt"
            with open(arguments.out / name, "w", encoding="ascii") as file:
                for t, y in blocks:
                    np.savetxt(file, np.column_stack((t.astype(float), y)), fmt="%.17g")
                    file.write("\n")
            truths.append({"file": name, "kind": kind, "group": "joint"} | record)
    (arguments.out / "truth.json").write_text(json.dumps(truths, indent=1) + "\n")
    modes = [mode for record in truths for mode in record["modes"]]
    print(f"{len(truths)} sets, {len(modes)} modes, {sum(m['identifiable'] for m in modes)} to be found")


if __name__ == "__main__":
    main()
