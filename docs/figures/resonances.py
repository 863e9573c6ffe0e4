"""The experiments behind docs/guide-resonances.md: data for its pictures, and its tables.

Usage: resonances.py LIBRARY FOLDER GUIDE. Data files go to FOLDER; the tables are written into GUIDE, between the marks
that carry their names.
"""

import sys
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "examples" / "consumers" / "python"))
import tables  # noqa: E402
from host import load_fit  # noqa: E402


# ---- records whose poles are known ----------------------------------------------------------------------------------


class Cavity:
    """A lossy one-dimensional cavity on a Yee grid, E = 0 at both ends, driven by a pulse at one node.

    Once the pulse is over, the record of a node is exactly a sum of damped exponentials: the zeros of
    (1 + a) z^2 - (2 - 4 S^2 sin^2(m pi / (2 cells))) z + (1 - a), m = 1 .. cells - 1. The time step is 1.
    """

    cells, courant, loss, steps = 400, 0.9, 2e-4, 9000
    source, probe = 151, 163
    carrier, bandwidth = 0.09, 0.012
    pulse_steps = int(12 / bandwidth)

    def record(self):
        e, h = np.zeros(self.cells + 1), np.zeros(self.cells)
        y = np.empty(self.steps)
        for k in range(self.steps):
            y[k] = e[self.probe]
            h += self.courant * (e[1:] - e[:-1])
            e[1:-1] = ((1 - self.loss) * e[1:-1] + self.courant * (h[1:] - h[:-1])) / (1 + self.loss)
            if k < self.pulse_steps:
                t = k - self.pulse_steps / 2
                e[self.source] += np.exp(-((t * self.bandwidth) ** 2) / 2) * np.sin(self.carrier * t)
        return y

    def poles(self, share=1e-3):
        """Those in the upper half plane that the pulse excites and the probe sees, to this share of the strongest."""
        m = np.arange(1, self.cells)
        half = (1 - 2 * (self.courant * np.sin(m * np.pi / (2 * self.cells))) ** 2) / (1 + self.loss)
        s = np.log(half + 1j * np.sqrt((1 - self.loss) / (1 + self.loss) - half**2))
        strength = np.exp(-(((s.imag - self.carrier) / self.bandwidth) ** 2) / 2)
        strength *= np.abs(np.sin(m * np.pi * self.source / self.cells) * np.sin(m * np.pi * self.probe / self.cells))
        return s[strength >= share * strength.max()]


def exponentials(poles, residues, dt, n):
    return np.exp(np.outer(dt * np.arange(n), poles)) @ residues


class Cosines:
    """Four damped cosines: eight exponentials."""

    dt, n = 1 / 2205, 250
    f, a, d = np.array([80, 120, 250, 560]), np.array([0.4, 1, 0.89, 0.65]), np.array([70, 50, 90, 80])
    poles = np.concatenate([-d + 2j * np.pi * f, -d - 2j * np.pi * f])
    residues = np.concatenate([a, a]) / 2

    def record(self, n=n):
        return exponentials(self.poles, self.residues, self.dt, n).real

    def bound(self, deviation, n=n):
        """Cramer-Rao bound: least standard deviation of each of the first four poles from n real samples."""
        t = self.dt * np.arange(n)
        wave = np.exp(np.outer(t, self.poles[:4]))
        slope = t[:, None] * wave * self.a
        jacobian = np.hstack([slope.real, -slope.imag, wave.real, -wave.imag])
        variance = deviation**2 * np.diag(np.linalg.inv(jacobian.T @ jacobian))
        return np.sqrt(variance[:4] + variance[4:8])


def worst_error(known, found):
    return max(np.min(np.abs(found - s)) / abs(s) for s in known)


def attempt(fit, *arguments):
    """The fit's outcome, or None: orders far beyond what a record holds may reach a limit on iterations."""
    try:
        return fit(*arguments)
    except RuntimeError:
        return None


# ---- experiments ----------------------------------------------------------------------------------------------------


def decimation(fit, folder):
    """The accuracy over the stride, from a fixed number of samples and from a fixed stretch of time."""
    cavity = Cavity()
    known, y = cavity.poles(), cavity.record()[cavity.pulse_steps :]
    period = 2 * np.pi / known.imag.max()
    rows = []
    for q in [*range(1, 13), *range(14, 45, 2)]:
        row = [q, period / q]
        for samples in (y[::q][:200], y[:6000:q]):
            result = attempt(fit, samples, q, min(66, len(samples) // 3))
            row += [worst_error(known, result[0]), result[2][0]] if result else [np.nan] * 2
        rows.append(row)
    np.savetxt(folder / "decimation.dat", rows)

    for q in (1, 16):
        poles, _, measures = fit(y[::q][:200], q, 66)
        np.savetxt(folder / f"zeros-{q}.dat", np.column_stack([np.exp(poles * q).real, np.exp(poles * q).imag]))
        both = np.exp(np.concatenate([known, known.conj()]) * q)
        np.savetxt(folder / f"modes-{q}.dat", np.column_stack([both.real, both.imag]))
    chosen = [row for row in rows if row[0] in (1, 2, 4, 8, 12, 16, 20, 24, 28)]
    table = ["| stride | samples per period | error, 200 samples | its ERR_L2 | error, 6000 steps | its ERR_L2 |"]
    table += ["|---|---|---|---|---|---|"]
    table += [f"| {row[0]:.0f} | {row[1]:.1f} | {' | '.join(map(number, row[2:]))} |" for row in chosen]
    lengths = f"periods from {2 * np.pi / known.imag.min():.0f} to {period:.0f} steps"
    facts = f"- {len(known)} modes above a thousandth of the strongest, {lengths}; the pulse takes {cavity.pulse_steps}."
    return {"decimation": table, "cavity": [facts]}


def order(fit, folder, trials=20):
    """The accuracy and the number of growing poles over the order, with noise."""
    cosines, random = Cosines(), np.random.default_rng(1)
    clean, known = cosines.record(), cosines.poles[:4]
    rows = []
    for m in [*range(8, 20, 2), *range(20, 126, 5)]:
        row = [m]
        for deviation in (0, 1e-5, 1e-3):
            outcomes = []
            for _ in range(trials if deviation else 1):
                result = attempt(fit, clean + deviation * random.standard_normal(cosines.n), cosines.dt, m)
                if result:
                    outcomes.append((worst_error(known, result[0]), np.sum(result[0].real > 0), result[2][0]))
            row += [*np.median(outcomes, axis=0)[:2], np.max(outcomes, axis=0)[2]] if outcomes else [np.nan] * 3
        rows.append(row)
    np.savetxt(folder / "order.dat", rows)
    table = ["| M | no noise | noise 1e-5 | noise 1e-3 | growing poles, noise 1e-3 |", "|---|---|---|---|---|"]
    for row in rows:
        if row[0] in (8, 10, 20, 40, 60, 80, 100, 125):
            table.append(
                f"| {row[0]:.0f} | {number(row[1])} | {number(row[4])} | {number(row[7])} | {row[8]:.0f} |"
            )
    return {"order": table}


def length(fit, folder, trials=40, deviation=1e-3):
    """The accuracy over the number of samples, beside the least that any unbiased method can reach."""
    cosines, random = Cosines(), np.random.default_rng(2)
    rows = []
    for n in (40, 60, 80, 100, 125, 150, 200, 250, 300, 400):
        clean, errors = cosines.record(n), []
        for _ in range(trials):
            poles = fit(clean + deviation * random.standard_normal(n), cosines.dt, n // 3)[0]
            errors.append([np.min(np.abs(poles - s)) for s in cosines.poles[:4]])
        rms = np.sqrt(np.mean(np.square(errors), axis=0)) / np.abs(cosines.poles[:4])
        bound = cosines.bound(deviation, n) / np.abs(cosines.poles[:4])
        rows.append([n, n * cosines.dt, np.max(rms), np.max(bound), np.median(rms / bound)])
    np.savetxt(folder / "length.dat", rows)
    table = ["| N | error | bound | median of error / bound |", "|---|---|---|---|"]
    table += [f"| {row[0]:.0f} | {row[2]:.1e} | {row[3]:.1e} | {row[4]:.1f} |" for row in rows]
    return {"length": table}


def start(fit, folder):
    """The accuracy over the time at which the fit begins."""
    cavity = Cavity()
    known, y = cavity.poles(), cavity.record()
    rows = []
    for first in range(0, 1201, 40):
        poles, _, measures = fit(y[first::16][:200], 16, 60)
        rows.append([first, worst_error(known, poles), measures[0]])
    np.savetxt(folder / "start.dat", rows)
    t = np.arange(1201)
    np.savetxt(folder / "start-record.dat", np.column_stack([t, y[:1201]]))
    return {}


def measures(fit, _):
    """The five measures of fits whose fault is known."""
    n, dt, random = 200, 0.15, np.random.default_rng(3)
    poles, residues = np.array([-0.05 + 2j, -0.06 + 5j, -0.04 + 9j]), np.array([1, 0.6, 0.3])
    t = dt * np.arange(n)
    poles, residues = np.concatenate([poles, poles.conj()]), np.concatenate([residues, residues]) / 2
    clean = exponentials(poles, residues, dt, n).real
    spike = clean.copy()
    spike[150] += 0.02
    burst = 100 * np.exp(-5 * t) + 0.1 * clean
    echo = clean + 0.01 * np.where(t > 20, np.sin(15 * (t - 20)) * np.exp(-0.5 * (t - 20)), 0)
    cases = [
        ("three modes", clean, 40),
        ("the same, M = 4: one mode too few", clean, 4),
        ("noise of 1e-3", clean + 1e-3 * random.standard_normal(n), 40),
        ("one sample off by 0.02", spike, 40),
        ("an echo of 0.01 comes late", echo, 40),
        ("a burst of 100, then modes of 0.1 with noise of 0.01", burst + 0.01 * random.standard_normal(n), 40),
        ("all zero", np.zeros(n), 40),
        ("one NaN among the samples", np.where(np.arange(n) == 150, np.nan, clean), 40),
        ("only the last sample a NaN", np.where(np.arange(n) == n - 1, np.nan, clean), 40),
    ]
    table = ["| record | L2 | RMS | PEAK | RMS_MEAN | PEAK_MEAN |", "|---|---|---|---|---|---|"]
    for name, y, m in cases:
        try:
            values = " | ".join(f"{value:.1e}" if value == value else "NaN" for value in fit(y, dt, m)[2])
        except RuntimeError:
            values = "fails | | | |"
        table.append(f"| {name} | {values} |")
    return {"measures": table}


# ---- output ---------------------------------------------------------------------------------------------------------


def number(x):
    return "fails" if np.isnan(x) else f"{x:.0e}"


def main():
    library, folder, guide = sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3])
    fit = load_fit(library)
    for experiment in (decimation, order, length, start, measures):
        tables.write(guide, experiment(fit, folder))


if __name__ == "__main__":
    main()
