#define TESSEL_KERNELS kAvx2Kernels
#define TESSEL_VECTOR_BYTES 32
#include "prony/rotation_kernels.inc"
