#define TESSEL_KERNELS kAvx512Kernels
#define TESSEL_VECTOR_BYTES 64
#define TESSEL_BLOCK 4
#include "prony/rotation_kernels.inc"
