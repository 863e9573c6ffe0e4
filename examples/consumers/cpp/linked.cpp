// A host in C++ that links the library: two modes of a record that rings.
#include <tessel/leastsq_prony_svd.h>

#include <cmath>
#include <cstdio>

int main()
{
    const double dt = 0.1e-9, pi = std::acos(-1.0);
    const int32_t n = 60, m = 4; // samples; exponentials, two for each mode of a real record
    std::complex<double> y[n], residue[m], pole[m];
    for (int k = 0; k < n; ++k)
        y[k] = std::exp(-4e7 * k * dt) * std::cos(2.4e9 * pi * k * dt) +
               0.3 * std::exp(-9e7 * k * dt) * std::cos(5.0e9 * pi * k * dt);

    double l2, rms, peak, rms_mean, peak_mean;
    int32_t flag;
    char message[80];
    LEASTSQ_PRONY_SVD(&n, &n, y, &dt, &m, &m, residue, pole, &l2, &rms, &peak, &rms_mean, &peak_mean, &flag, message,
                      sizeof message);
    if (flag != 0)
        return std::fprintf(stderr, "%.80s\n", message), 1;
    for (int j = 0; j < m; ++j)
        if (pole[j].imag() > 0.0)
            std::printf("f = %.6f GHz, Q = %.4f, amplitude %.6f\n", pole[j].imag() / (2e9 * pi),
                        pole[j].imag() / (-2.0 * pole[j].real()), 2.0 * std::abs(residue[j]));
}
