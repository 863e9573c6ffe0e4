#include "common/vector_width.h"

namespace tessel {

VectorWidth widest_vectors()
{
    __builtin_cpu_init(); // this may run before the constructors of the compiler's library
    if (__builtin_cpu_supports("avx512f"))
        return VectorWidth::avx512;
    if (__builtin_cpu_supports("avx2"))
        return VectorWidth::avx2;
    return VectorWidth::baseline;
}

} // namespace tessel
