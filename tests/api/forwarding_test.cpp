// Every argument of an operation reaches its routine: in its place, lengths behind all others and widened by zeros. The
// routines of this program only note the words that arrive; the words that are passed are tokens.
#include "api/fdtd_calc_impl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace {

using tessel::Integer;
using tessel::Real;
using Word = std::uintptr_t;

internal::FDTDCalcImpl object;
std::string routine;       ///< the last one that was called
std::vector<Word> arrived; ///< its arguments
Integer rvec_value = 77;

} // namespace

// A function of variable arguments finds pointers and lengths where the caller of any function puts them.
#define TESSEL_NOTE(name, count)                              \
    extern "C" void name(const void* first, ...)              \
    {                                                         \
        routine = #name;                                      \
        arrived = {reinterpret_cast<Word>(first)};            \
        va_list rest;                                         \
        va_start(rest, first);                                \
        while (arrived.size() < (count))                      \
            arrived.push_back(va_arg(rest, Word));            \
        va_end(rest);                                         \
        if (routine == "dneupd_")                             \
            rvec_value = *static_cast<const Integer*>(first); \
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

template <std::size_t... I>
void call(int entry, const std::vector<Word>& words, std::index_sequence<I...>)
{
    using Operation = void(void*, decltype(static_cast<void>(I), Word())...);
    auto* const operation = reinterpret_cast<Operation*>((*reinterpret_cast<void***>(&object))[entry]);
    operation(&object, words[I]...);
}

/// Calls an entry of the virtual table and compares what arrives. Positions count from 1: `lengths` are those of the
/// lengths, whose upper half is garbage here; `read` gives real addresses for arguments that the operation reads.
template <std::size_t Count>
void expect_forwarding(int entry, const char* name, std::initializer_list<std::size_t> lengths,
                       std::initializer_list<std::pair<std::size_t, const void*>> read = {})
{
    SCOPED_TRACE(name);
    std::vector<Word> words, expected, behind;
    for (std::size_t k = 1; k <= Count; ++k)
        words.push_back(0x7000000000000000u + 16 * k);
    for (const auto& [position, address] : read)
        words[position - 1] = reinterpret_cast<Word>(address);
    for (std::size_t k = 1; k <= Count; ++k) {
        if (std::find(lengths.begin(), lengths.end(), k) == lengths.end()) {
            expected.push_back(words[k - 1]);
        } else {
            words[k - 1] = 0xdeadbeef80000000u + k;
            behind.push_back(0x80000000u + k);
        }
    }
    expected.insert(expected.end(), behind.begin(), behind.end());
    call(entry, words, std::make_index_sequence<Count>());
    EXPECT_EQ(routine, name);
    if (routine == "dneupd_")
        arrived[0] = expected[0]; // RVEC is a value of the operation's own
    if (routine == "LEASTSQ_PRONY_SVD")
        arrived.back() &= 0xffffffffu; // a routine of the library's own takes 32 bits
    EXPECT_EQ(arrived, expected);
}

TEST(Forwarding, EveryArgumentReachesItsPlace)
{
    const Integer n = 1, lwa = 7;
    const Real tol = 0.0;
    Integer info = 77;
    expect_forwarding<28>(2, "dneupd_", {3, 13, 16}, {{1, &n}});
    expect_forwarding<18>(3, "dnaupd_", {3, 6});
    expect_forwarding<10>(4, "hybrj1_", {}, {{2, &n}, {6, &n}, {7, &tol}, {8, &info}, {10, &lwa}});
    expect_forwarding<16>(6, "LEASTSQ_PRONY_SVD", {16});
    expect_forwarding<17>(7, "zgesvd_", {16, 17});
    expect_forwarding<8>(8, "zgesv_", {});
    expect_forwarding<16>(9, "dgesvd_", {15, 16});
    EXPECT_EQ(object.dpmpar(&lwa), 7.0);
}

// A logical is true when its lowest bit is set, whatever the others; ARPACK itself takes 2 for true.
TEST(Forwarding, RvecBecomesExactlyZeroOrOne)
{
    for (const Integer rvec : {0, 2, -2, 1, 3, -1}) {
        expect_forwarding<28>(2, "dneupd_", {3, 13, 16}, {{1, &rvec}});
        EXPECT_EQ(rvec_value, rvec & 1) << rvec;
    }
}

} // namespace
