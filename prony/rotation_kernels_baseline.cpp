#define TESSEL_KERNELS kBaselineKernels
#define TESSEL_VECTOR_BYTES 16
#define TESSEL_BLOCK 2
#include "prony/rotation_kernels.inc"
