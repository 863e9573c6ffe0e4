/**
 * @file
 * Least-squares Prony fit: damped complex exponentials from equally spaced samples.
 *
 * Plain C (C99) and C++ (C++11); needs the standard library alone.
 */
#ifndef TESSEL_LEASTSQ_PRONY_SVD_H
#define TESSEL_LEASTSQ_PRONY_SVD_H

#include <stdint.h>

/** @typedef tessel_complex
 *  Two doubles, real part first. */
#ifdef __cplusplus
#include <complex>
typedef std::complex<double> tessel_complex;
extern "C" {
#else
typedef double _Complex tessel_complex;
#endif

/**
 * Fits damped complex exponentials to equally spaced samples.
 *
 * Represents N samples with spacing DT as a sum of M damped complex exponentials,
 *
 *     y(k) ~ sum_j RESIDUE(j) exp(POLE(j) (k - 1) DT),    k = 1..N,
 *
 * by the two-stage Prony method in the least-squares sense. Stage 1, forward linear prediction, gives the
 * characteristic polynomial, whose zeros z_j are the discrete poles: POLE(j) = log(z_j) / DT. Stage 2 solves the
 * Vandermonde system of the z_j for the residues. Both systems are solved from a singular value decomposition with
 * three relative thresholds for small singular values (5e-17, 2.23e-16, 1e-15); the solution of the smallest residual
 * is kept.
 *
 * A pole s stands for the frequency Im(s) / (2 pi) (in 1 / units of DT), the decay -Re(s) and the quality factor
 * |Im(s)| / (-2 Re(s)). Frequencies above 1 / (2 DT) fold.
 *
 * Every argument but the last is passed by reference. With e(k) = model(k) - y(k) and SSE = sum |e(k)|^2:
 *
 * @param[in]  N              number of samples, 2 <= N <= NDIM and N >= 2 M
 * @param[in]  NDIM           declared length of Y; the work storage is sized by it
 * @param[in]  Y              samples, NDIM complex values; not modified
 * @param[in]  DT             sample spacing, at least 1e-102, in the user's unit of time
 * @param[in]  M              model order, 1 <= M <= MMAX and M <= 5000
 * @param[in]  MMAX           declared length of RESIDUE and POLE; the work storage is sized by it
 * @param[out] RESIDUE        residues, MMAX complex values of which the first M are written; in the unit of Y
 * @param[out] POLE           poles, MMAX complex values of which the first M are written; in 1 / units of DT
 * @param[out] ERR_L2         sqrt(SSE / sum |y|^2)
 * @param[out] ERR_RMS        sqrt(SSE / N) / max |y|
 * @param[out] ERR_PEAK       max |e| / max |y|
 * @param[out] ERR_RMS_MEAN   sqrt(SSE N) / sum |y|
 * @param[out] ERR_PEAK_MEAN  N max |e| / sum |y|
 * @param[out] ErrorFlag      0 on success, -1 on failure
 * @param[out] ErrorMessage   blanks on success, the text of the failure otherwise; cut or blank-padded, no terminator
 * @param[in]  ErrorMessageLength  number of characters of ErrorMessage, by value, 32 bits; nothing is written if <= 0
 *
 * The arrays must not overlap. Samples of magnitude within about 1e-130..1e150 are fitted as well as others; outside,
 * squares overflow or underflow, and the fit fails or its measures are zero. Scale such samples: poles and measures do
 * not depend on it.
 *
 * @par Errors
 *   - "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !": an argument breaks the limits above; nothing else is
 *     written. A DT of NaN passes this test.
 *   - "Sub LEASTSQ_PRONY_SVD: work storage not available !": nothing else is written. About
 *     32 NDIM MMAX + 16 MMAX^2 bytes are reserved, of which only what N and M need is touched.
 *   - "Sub RECIPES_SVBKSB: input parameters out of bounds !": M exceeds 5000.
 *   - "Sub SLATEC_CSVDC: not all singular values are correct !", "Sub NAPACK_CZERO: too many iterations necessary !",
 *     "Sub NAPACK_CZERO: work storage not available !": an iteration or a storage limit was met. A failure of the
 *     second stage leaves the new POLE; RESIDUE and the measures keep their old contents. The decomposition can meet
 *     its limit when the samples decay over more than about 25 decades and M is 40 or more: end the record where the
 *     signal has decayed. The same happens when samples lie outside the magnitudes above.
 * @par Not an error
 *   All-zero samples give measures that are NaN, and samples with NaN or infinite values give such results, both with
 *   success unless an iteration limit is met. The maximum in ERR_PEAK ignores NaN.
 * @par State
 *   None; work storage belongs to the call, which needs about 160 KiB of stack besides. Any number of threads may call
 *   at once and get the bits of serial calls. Nothing is printed and nothing is thrown.
 * @par Reproducible
 *   The same arguments give the same bits on every x86-64 processor, in the same mode of rounding. Samples without
 *   imaginary parts are fitted faster.
 * @par Source
 *   R. de Prony (1795); S. L. Marple, Digital Spectral Analysis, 1987, ch. 11; D. W. Tufts, R. Kumaresan, Proc. IEEE
 *   70 (1982) 975 (truncated singular values).
 */
__attribute__((visibility("default"))) void
LEASTSQ_PRONY_SVD(const int32_t* N, const int32_t* NDIM, const tessel_complex* Y, const double* DT, const int32_t* M,
                  const int32_t* MMAX, tessel_complex* RESIDUE, tessel_complex* POLE, double* ERR_L2, double* ERR_RMS,
                  double* ERR_PEAK, double* ERR_RMS_MEAN, double* ERR_PEAK_MEAN, int32_t* ErrorFlag, char* ErrorMessage,
                  int32_t ErrorMessageLength);

#ifdef __cplusplus
}
#endif

#endif
