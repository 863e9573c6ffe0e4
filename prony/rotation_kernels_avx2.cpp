#define TESSEL_KERNELS kAvx2Kernels
#define TESSEL_VECTOR_BYTES 32
#define TESSEL_BLOCK 2
#include "prony/rotation_kernels.inc"
