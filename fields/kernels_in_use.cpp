#include "fields/kernels.h"

namespace tessel::fields {

namespace {

KernelChoice<Kernels> choice(&kBaselineKernels, &kAvx2Kernels, &kAvx512Kernels);

} // namespace

void use_vectors(VectorWidth width)
{
    choice.use(width);
}

const Kernels& kernels()
{
    return choice.in_use();
}

} // namespace tessel::fields
