#define TESSEL_KERNELS kAvx512Kernels
#define TESSEL_VECTOR_BYTES 64
#include "prony/rotation_kernels.inc"
