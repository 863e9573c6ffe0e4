"""A host in Python that asks for the modes of its record, with their standard errors."""

import numpy as np
import tessel

dt = 0.1e-9
t = dt * np.arange(500)
y = np.exp(-4e7 * t) * np.cos(2.4e9 * np.pi * t) + 0.3 * np.exp(-9e7 * t) * np.cos(5e9 * np.pi * t)
y += 1e-3 * (np.random.default_rng(1).random(500) - 0.5)
for mode in tessel.find_modes(y, dt):
    known = ", Q known to better than 1" if mode.q_se < 1 else ""
    print(f"f = {mode.frequency / 1e9:.3f} GHz, Q = {mode.q:.0f}, amplitude {mode.amplitude:.2f}{known}")
