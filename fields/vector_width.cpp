#include "fields/kernels.h"

#include <algorithm>

namespace tessel::fields {

namespace {

const Kernels* kernels_for(VectorWidth width)
{
    switch (width) {
    case VectorWidth::avx512:
        return &kAvx512Kernels;
    case VectorWidth::avx2:
        return &kAvx2Kernels;
    default:
        return &kBaselineKernels;
    }
}

const Kernels* in_use = kernels_for(widest_vectors());

} // namespace

VectorWidth widest_vectors()
{
    __builtin_cpu_init(); // this may run before the constructors of the compiler's library
    if (__builtin_cpu_supports("avx512f"))
        return VectorWidth::avx512;
    if (__builtin_cpu_supports("avx2"))
        return VectorWidth::avx2;
    return VectorWidth::baseline;
}

void use_vectors(VectorWidth width)
{
    in_use = kernels_for(std::min(width, widest_vectors()));
}

const Kernels& kernels()
{
    return *in_use;
}

} // namespace tessel::fields
