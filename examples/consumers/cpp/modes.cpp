// A host in C++17 that asks for the modes of its record, with their standard errors.
#include <tessel/modes.h>

#include <cmath>
#include <cstdio>

int main()
try {
    const double dt = 0.1e-9, pi = std::acos(-1.0);
    std::vector<double> y; // a field that rings at 1.2 GHz and at 2.5 GHz, and a little noise
    unsigned state = 1;
    for (int k = 0; k < 500; ++k) {
        state = state * 1664525U + 1013904223U;
        y.push_back(std::exp(-4e7 * k * dt) * std::cos(2.4e9 * pi * k * dt) +
                    0.3 * std::exp(-9e7 * k * dt) * std::cos(5.0e9 * pi * k * dt) +
                    1e-3 * (state / 4294967296.0 - 0.5));
    }
    for (const tessel::modes::Mode& mode : tessel::modes::analyse(y, 0.0, dt).modes)
        std::printf("f = %.3f GHz, Q = %.0f, amplitude %.2f%s\n", mode.frequency / 1e9, mode.quality, mode.amplitude,
                    mode.qualityError < 1 ? ", Q known to better than 1" : "");
} catch (const tessel::modes::InputError& error) {
    return std::fprintf(stderr, "%s\n", error.what()), 1;
}
