/* A host in C99 that links the library: two modes of a record that rings. */
#include <tessel/leastsq_prony_svd.h>

#include <complex.h>
#include <math.h>
#include <stdio.h>

enum
{
    N = 60,
    M = 4
}; /* samples; exponentials, two for each mode of a real record */

int main(void)
{
    const double dt = 0.1e-9, pi = acos(-1.0);
    const int32_t n = N, m = M;
    tessel_complex y[N], residue[M], pole[M];
    double l2, rms, peak, rms_mean, peak_mean;
    int32_t flag;
    char message[80];

    for (int k = 0; k < N; ++k)
        y[k] = exp(-4e7 * k * dt) * cos(2.4e9 * pi * k * dt) + 0.3 * exp(-9e7 * k * dt) * cos(5.0e9 * pi * k * dt);

    LEASTSQ_PRONY_SVD(&n, &n, y, &dt, &m, &m, residue, pole, &l2, &rms, &peak, &rms_mean, &peak_mean, &flag, message,
                      sizeof message);
    if (flag != 0) {
        fprintf(stderr, "%.80s\n", message);
        return 1;
    }
    for (int j = 0; j < M; ++j)
        if (cimag(pole[j]) > 0.0)
            printf("f = %.6f GHz, Q = %.4f, amplitude %.6f\n", cimag(pole[j]) / (2e9 * pi),
                   cimag(pole[j]) / (-2.0 * creal(pole[j])), 2.0 * cabs(residue[j]));
    return 0;
}
