#include "prony/rotations.h"

extern "C" [[gnu::visibility("default")]] void use_avx2();

void use_avx2()
{
    tessel::use_vectors(tessel::VectorWidth::avx2);
}
