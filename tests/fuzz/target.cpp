// A fuzz target: the exercise of one group of routines, its shapes and values drawn from the bytes of the input. A
// breach of contract is an exception that nobody catches.
#include "tests/support/exercises.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace tessel::testing;
    static CallArrays arrays;
    Random random({data, size});
    TESSEL_EXERCISE(random, arrays);
    return 0;
}
