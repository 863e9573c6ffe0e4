/* A host in C99 that asks, while it runs, whether its record is long enough yet, and for the modes then. */
#include <tessel/modes_c.h>

#include <math.h>
#include <stdio.h>

enum
{
    MOST = 5000,
    BLOCK = 250
}; /* time steps that the host would do at most; steps between two questions */

/* One time step of a solver: a field that rings at 1.2 GHz and at 2.5 GHz, and a little noise. */
static double step(int k, double dt)
{
    static unsigned state = 1;
    const double pi = acos(-1.0);
    state = state * 1664525u + 1013904223u;
    return exp(-4e7 * k * dt) * cos(2.4e9 * pi * k * dt) + 0.3 * exp(-9e7 * k * dt) * cos(5.0e9 * pi * k * dt) +
           1e-3 * (state / 4294967296.0 - 0.5);
}

int main(void)
{
    const double dt = 0.1e-9;
    double y[MOST];
    tessel_modes_result* result = NULL;
    for (int k = 0; k < MOST && !tessel_modes_long_enough(result, NULL);) {
        const int end = k + BLOCK;
        char message[128];
        while (k < end) {
            y[k] = step(k, dt);
            ++k;
        }
        tessel_modes_free(result);
        if (tessel_modes_analyse(y, (size_t)k, 0.0, dt, NULL, &result, message, sizeof message) != TESSEL_MODES_OK) {
            fprintf(stderr, "%s\n", message);
            return 1;
        }
    }

    tessel_mode mode[10];
    size_t modes = tessel_modes_list(result, 0, mode, 10, sizeof mode[0]);
    for (size_t j = 0; j < modes && j < 10; ++j)
        printf("f = %.3f GHz, Q = %.0f, amplitude %.2f%s\n", mode[j].frequency / 1e9, mode[j].quality,
               mode[j].amplitude, mode[j].quality_se < 1 ? ", Q known to better than 1" : "");
    tessel_modes_free(result);
    return 0;
}
