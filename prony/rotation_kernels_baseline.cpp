#define TESSEL_KERNELS kBaselineKernels
#define TESSEL_VECTOR_BYTES 16
#include "prony/rotation_kernels.inc"
