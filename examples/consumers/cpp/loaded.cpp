// A host in C++ that loads the library when it runs: a record whose mode amplitudes come from a dense solve.
#include <tessel/Loader.h>

#include <cmath>
#include <cstdio>

int main(int argc, char** argv)
try {
    const tessel::Library library(argc > 1 ? argv[1] : "libtessel.so.1");

    // Two modes, given by what they are at two instants: amplitudes a from B a = y, by LAPACK's ZGESV.
    const double dt = 0.1e-9, pi = std::acos(-1.0);
    const std::complex<double> s[] = {{-4e7, 2.4e9 * pi}, {-9e7, 5.0e9 * pi}};
    const std::int32_t two = 2, one = 1;
    std::complex<double> a[2] = {1.3, std::exp(s[0] * dt) + 0.3 * std::exp(s[1] * dt)};
    std::complex<double> b[] = {1.0, std::exp(s[0] * dt), 1.0, std::exp(s[1] * dt)}; // by columns
    std::int32_t pivots[2], info;
    const tessel::Api api = library.create();
    api->zgesv(&two, &one, b, &two, pivots, a, &two, &info);
    if (info != 0)
        return 1;

    // The record, and the modes back from its fit.
    const std::int32_t n = 60, m = 4; // samples; exponentials, two for each mode of a real record
    std::complex<double> y[n], residue[m], pole[m];
    for (int k = 0; k < n; ++k)
        y[k] = (a[0] * std::exp(s[0] * (k * dt)) + a[1] * std::exp(s[1] * (k * dt))).real();
    double l2, rms, peak, rms_mean, peak_mean;
    std::int32_t flag;
    char message[80];
    library.fit(&n, &n, y, &dt, &m, &m, residue, pole, &l2, &rms, &peak, &rms_mean, &peak_mean, &flag, message,
                sizeof message);
    if (flag != 0)
        return std::fprintf(stderr, "%.80s\n", message), 1;
    for (int j = 0; j < m; ++j)
        if (pole[j].imag() > 0.0)
            std::printf("f = %.6f GHz, Q = %.4f, amplitude %.6f\n", pole[j].imag() / (2e9 * pi),
                        pole[j].imag() / (-2.0 * pole[j].real()), 2.0 * std::abs(residue[j]));
} catch (const tessel::LoadError& error) {
    return std::fprintf(stderr, "%s\n", error.what()), 1;
}
