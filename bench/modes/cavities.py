"""Records of simulated cavities and the modes that the simulations really have: those of the program's coefficients as
rounded, in extended precision. With the magnetic field eliminated, every mode of a Yee grid obeys

    e(k+1) - (1 + c - q) e(k) + c e(k-1) = kick(k),   q = h b 4 (sin^2(m pi / (2 Nx)) [+ sin^2(n pi / (2 Ny))]),

with the coefficients of the program H += h dE, E = c E + b dH. For 0 < q < 4, z = sqrt(c) exp(+-i theta),
2 sin^2(theta / 2) = (q - (1 - sqrt(c))^2) / (2 sqrt(c)).
"""
import numpy as np

from exponentials import LD, PI

LIGHT_SPEED = 299792458.0
MU0 = 4e-7 * np.pi
EPSILON0 = 1.0 / (MU0 * LIGHT_SPEED**2)


def sine(waves, node, cells):
    """sin(pi waves node / cells), the argument reduced in integers."""
    return np.sin(PI * ((np.asarray(waves) * node) % (2 * cells)).astype(LD) / cells)


def poles(c, q):
    """log z of the upper roots: (decay, angle) per step."""
    root = np.sqrt(c)
    less = (1 - c) / (1 + root)  # 1 - sqrt(c) without cancellation
    half = np.sqrt((q - less**2) / (4 * root))
    return -np.log1p(-(1 - c)) / 2, 2 * np.arcsin(half)


def unit_response(decay, angle):
    """1 / (z - conj(z)): a kick of one at step 0 answers z^k / (z - conj(z)) + its conjugate."""
    return -0.5j / (np.exp(-decay) * np.sin(angle))


def as_modes(decay, angle, residue, dt):
    """Rows (f, g, A, p) of the modes whose amplitude is above 1e-15 of the strongest; `residue` counts from step 0."""
    kept = np.abs(residue) > 1e-15 * np.abs(residue).max()
    dt = LD(dt)
    rows = (angle / (2 * PI * dt), np.broadcast_to(decay / dt, angle.shape), 2 * np.abs(residue),
            np.arctan2(residue.imag, residue.real))
    modes = np.stack(rows, axis=1)[kept]
    return modes[np.argsort(modes[:, 0])]


def kicks_sum(kicks, decay, angle):
    """sum_l kick(l) z^-l of every mode, by Horner's rule."""
    back = np.exp(decay) * (np.cos(angle) - 1j * np.sin(angle))
    total = np.zeros(len(angle), np.clongdouble)
    for kick in kicks[::-1]:
        total = total * back + kick
    return total


def line_cavity(rng, courant, real, driven, probes=None):
    """A lossy line between two walls, in arithmetic of the type `real`: rung from a Gaussian field, or driven at a node
    by a short pulse. Returns samples, (decay, angle, residue) of its modes and the first free sample. With `probes`, so
    many random nodes are recorded: samples and residues get a row for each."""
    cells = int(rng.integers(8, 41))
    loss = real(rng.choice([0.0, 10.0 ** rng.uniform(-5, -2)]))
    one, s = real(1), real(courant)
    c, b = (one - loss) / (one + loss), s / (one + loss)
    steps = int(800 * 8 ** rng.random())
    nodes = np.arange(cells + 1)
    source, probe = (int(rng.integers(1, cells)) for _ in range(2))
    if probes:
        probe = rng.integers(1, cells, probes)
    e, h = np.zeros(cells + 1, real), np.zeros(cells, real)
    width = rng.uniform(0.8, 2.5)
    currents = np.zeros(0, real)
    if driven:
        at = np.arange(int(np.ceil(16 * width / courant)))
        currents = np.exp(-0.5 * ((at + 0.5 - len(at) / 2) * courant / width) ** 2).astype(real)
    else:
        e[1:-1] = np.exp(-(((nodes[1:-1] - rng.uniform(1, cells - 1)) / width) ** 2))
    start = e.astype(LD)
    samples = np.empty((*np.shape(probe), steps), real)
    for k in range(steps):
        samples[..., k] = e[probe]
        h += s * (e[1:] - e[:-1])
        e[1:-1] = c * e[1:-1] + b * (h[1:] - h[:-1])
        if k < len(currents):
            e[source] += currents[k]

    m = np.arange(1, cells)
    c, b, s = LD(c), LD(b), LD(s)
    q = s * b * 4 * sine(m, 1, 2 * cells) ** 2
    decay, angle = poles(c, q)
    if driven:
        kicks = np.diff(np.concatenate(([0.0], currents, [0.0])).astype(LD))
        residue = kicks_sum(kicks, decay, angle) * unit_response(decay, angle) * sine(m, source, cells)
    else:
        e0 = np.array([(start * sine(j, nodes, cells)).sum() for j in m])
        e1 = (c - q) * e0
        z_conj = np.exp(-decay) * (np.cos(angle) - 1j * np.sin(angle))
        residue = (e1 - z_conj * e0) * unit_response(decay, angle)
    shape = sine(m, np.expand_dims(probe, -1), cells)
    return samples, (decay, angle, residue * shape * LD(2) / cells), len(currents)


def box_cavity(real, rng=None):
    """The demonstration's cavity, filled and lossy, driven by a line current; with a generator another size, source,
    probe, loss and Courant number. Returns samples, modes, first free sample and time step."""
    nx, ny, cell, permittivity, conductivity, courant = 120, 84, 1e-3, 2.1, 2e-3, 0.7
    source, probe, carrier, bandwidth, steps = (17, 13), (71, 53), 3e9, 0.45e9, 8000
    if rng is not None:
        nx, ny = (int(rng.integers(40, 90)) for _ in range(2))
        conductivity *= 10.0 ** rng.uniform(-1.5, 0.5)
        courant = rng.uniform(0.5, 0.7)
        source, probe = (tuple(int(rng.integers(3, n - 3)) for n in (nx, ny)) for _ in range(2))
        steps = int(rng.integers(4000, 12000))
    epsilon = permittivity * EPSILON0
    dt = courant * cell * np.sqrt(permittivity) / LIGHT_SPEED
    a = conductivity * dt / (2.0 * epsilon)
    c, b, h = real((1 - a) / (1 + a)), real(dt / (epsilon * cell) / (1 + a)), real(dt / (MU0 * cell))
    deviation = 1 / (2 * np.pi * bandwidth)
    length = int(np.ceil(16 * deviation / dt))
    t = (np.arange(length) + 0.5 - 0.5 * length) * dt
    pulse = 1e-3 * np.exp(-0.5 * (t / deviation) ** 2) * np.sin(2 * np.pi * carrier * t)
    currents = (float(b) / cell * pulse).astype(real)

    ez, hx, hy = np.zeros((nx + 1, ny + 1), real), np.zeros((nx + 1, ny), real), np.zeros((nx, ny + 1), real)
    samples = np.empty(steps + 1, real)
    samples[0] = 0
    for k in range(steps):
        hx -= h * (ez[:, 1:] - ez[:, :-1])
        hy += h * (ez[1:] - ez[:-1])
        curl = (hy[1:, 1:-1] - hy[:-1, 1:-1]) - (hx[1:-1, 1:] - hx[1:-1, :-1])
        ez[1:-1, 1:-1] = c * ez[1:-1, 1:-1] + b * curl
        if k < length:
            ez[source] -= currents[k]
        samples[k + 1] = ez[probe]

    m, n = (grid.ravel() for grid in np.meshgrid(np.arange(1, nx), np.arange(1, ny), indexing="ij"))
    q = LD(b) * LD(h) * 4 * (sine(m, 1, 2 * nx) ** 2 + sine(n, 1, 2 * ny) ** 2)
    decay, angle = poles(LD(c), q)
    seen = sine(m, source[0], nx) * sine(n, source[1], ny) * sine(m, probe[0], nx) * sine(n, probe[1], ny)
    kicks = -np.diff(np.concatenate(([0.0], currents, [0.0])).astype(LD))
    residue = kicks_sum(kicks, decay, angle) * unit_response(decay, angle) * seen * LD(4) / (nx * ny)
    return samples, (decay, angle, residue), length, dt
