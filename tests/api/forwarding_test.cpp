// Every argument of an operation reaches its routine: in the right place, lengths behind all others and widened by
// zeros. The routines of this program only record the words that they get.
#include "api/FDTDCalcAPI.h"
#include "common/types.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using tessel::Integer;
using tessel::Real;
using Word = std::uintptr_t;

FDTDCalcAPI* const object = createFDTDCalcApi(); ///< for the life of the program
Word cells[29];            ///< argument k points to cells[k], which holds what every operation accepts
std::string routine;       ///< the last one that was called
std::vector<Word> arrived; ///< its arguments
Integer first_value = 77;  ///< and what the first points to

} // namespace

// A function of variable arguments finds pointers and lengths where the caller of any function puts them.
#define TESSEL_NOTE(name, count)                           \
    extern "C" void name(const void* first, ...)           \
    {                                                      \
        routine = #name;                                   \
        arrived = {reinterpret_cast<Word>(first)};         \
        first_value = *static_cast<const Integer*>(first); \
        va_list rest;                                      \
        va_start(rest, first);                             \
        while (arrived.size() < (count))                   \
            arrived.push_back(va_arg(rest, Word));         \
        va_end(rest);                                      \
    }
TESSEL_NOTE(dneupd_, 28)
TESSEL_NOTE(dnaupd_, 18)
TESSEL_NOTE(hybrj1_, 10)
TESSEL_NOTE(LEASTSQ_PRONY_SVD, 16)
TESSEL_NOTE(zgesvd_, 17)
TESSEL_NOTE(zgesv_, 8)
TESSEL_NOTE(dgesvd_, 16)
extern "C" Real dpmpar_(const Integer* i)
{
    return *i;
}

namespace {

/// Calls an operation; it takes as many of the words as it has arguments.
template <std::size_t... I>
void call(int entry, const std::vector<Word>& words, std::index_sequence<I...>)
{
    using Operation = void(void*, decltype(static_cast<void>(I), Word())...);
    auto* const operation = reinterpret_cast<Operation*>((*reinterpret_cast<void***>(object))[entry]);
    operation(object, words[I]...);
}

/// Calls an entry of the virtual table and compares what arrives. Arguments count from 1: `lengths` are those passed by
/// value, whose upper half is garbage here.
void expect_forwarding(int entry, const char* name, std::size_t count, const std::set<std::size_t>& lengths = {})
{
    std::vector<Word> words(28), expected, behind;
    for (std::size_t k = 1; k <= count; ++k)
        if (lengths.count(k) == 0) {
            expected.push_back(words[k - 1] = reinterpret_cast<Word>(&cells[k]));
        } else {
            words[k - 1] = 0xdeadbeef80000000u + k;
            behind.push_back(0x80000000u + k);
        }
    expected.insert(expected.end(), behind.begin(), behind.end());
    call(entry, words, std::make_index_sequence<28>());
    EXPECT_EQ(routine, name);
    if (routine == "dneupd_")
        arrived[0] = expected[0]; // RVEC is a value of the operation's own
    if (routine == "LEASTSQ_PRONY_SVD")
        arrived.back() &= 0xffffffffu; // a routine of the library's own takes 32 bits
    EXPECT_EQ(arrived, expected) << name;
}

TEST(Forwarding, EveryArgumentReachesItsPlace)
{
    for (std::size_t k = 1; k <= 28; ++k)
        cells[k] = k * k; // N = 4, LDFJAC = 36, LWA = 100 for HYBRJ1
    expect_forwarding(2, "dneupd_", 28, {3, 13, 16});
    expect_forwarding(3, "dnaupd_", 18, {3, 6});
    expect_forwarding(4, "hybrj1_", 10);
    expect_forwarding(6, "LEASTSQ_PRONY_SVD", 16, {16});
    expect_forwarding(7, "zgesvd_", 17, {16, 17});
    expect_forwarding(8, "zgesv_", 8);
    expect_forwarding(9, "dgesvd_", 16, {15, 16});
    const Integer seven = 7;
    EXPECT_EQ(object->dpmpar(&seven), 7.0);
}

// A logical is true when its lowest bit is set, whatever the others; ARPACK itself takes 2 for true.
TEST(Forwarding, RvecBecomesExactlyZeroOrOne)
{
    for (const Integer rvec : {0, 2, -2, 1, 3, -1}) {
        cells[1] = static_cast<std::uint32_t>(rvec);
        expect_forwarding(2, "dneupd_", 28, {3, 13, 16});
        EXPECT_EQ(first_value, rvec & 1) << rvec;
    }
}

} // namespace
