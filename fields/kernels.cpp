// Compiled once for each width of the vector units, with
//
//     TESSEL_KERNELS       the name of the table
//     TESSEL_VECTOR_BYTES  the width of a vector
//
// All is in an unnamed namespace and nothing else is included that has code: an inline function that these objects
// shared with others could be linked in its wide form and run on a machine that lacks it.

#include "fields/kernels.h"

#include <cstddef>

namespace tessel::fields {

namespace {

#define TESSEL_INLINE inline __attribute__((always_inline))
#define TESSEL_UNROLL _Pragma("GCC unroll 16")

typedef double Wide __attribute__((vector_size(TESSEL_VECTOR_BYTES)));
typedef float Narrow __attribute__((vector_size(TESSEL_VECTOR_BYTES / 2)));
typedef float Four __attribute__((vector_size(16)));
typedef int FourPlaces __attribute__((vector_size(16)));
typedef double Two __attribute__((vector_size(16)));
typedef long TwoPlaces __attribute__((vector_size(16)));

constexpr std::size_t kLanes = sizeof(Wide) / sizeof(double);
constexpr std::size_t kLanesOfSum = 8;

template <class V, class T>
TESSEL_INLINE V load(const T* from)
{
    V v;
    __builtin_memcpy(&v, from, sizeof v); // not aligned
    return v;
}

TESSEL_INLINE void store(double* to, Wide v)
{
    __builtin_memcpy(to, &v, sizeof v);
}

TESSEL_INLINE Wide widened(const double* from)
{
    return load<Wide>(from);
}
TESSEL_INLINE Wide widened(const float* from)
{
    return __builtin_convertvector(load<Narrow>(from), Wide);
}

template <class V, class T>
TESSEL_INLINE void put(T* to, V v)
{
    __builtin_memcpy(to, &v, sizeof v);
}

TESSEL_INLINE void turn_square(const float* in, std::size_t stride, float* out)
{
    const Four a = load<Four>(in), b = load<Four>(in + stride), c = load<Four>(in + 2 * stride),
               d = load<Four>(in + 3 * stride);
    const FourPlaces low = {0, 4, 1, 5}, high = {2, 6, 3, 7}, front = {0, 1, 4, 5}, back = {2, 3, 6, 7};
    const Four ab = __builtin_shuffle(a, b, low), cd = __builtin_shuffle(c, d, low);
    const Four ba = __builtin_shuffle(a, b, high), dc = __builtin_shuffle(c, d, high);
    put(out, __builtin_shuffle(ab, cd, front));
    put(out + kTile, __builtin_shuffle(ab, cd, back));
    put(out + 2 * kTile, __builtin_shuffle(ba, dc, front));
    put(out + 3 * kTile, __builtin_shuffle(ba, dc, back));
}

TESSEL_INLINE void turn_square(const double* in, std::size_t stride, double* out)
{
    const Two a = load<Two>(in), b = load<Two>(in + stride);
    const TwoPlaces front = {0, 2}, back = {1, 3};
    put(out, __builtin_shuffle(a, b, front));
    put(out + kTile, __builtin_shuffle(a, b, back));
}

template <class T>
void turn(std::size_t points, std::size_t steps, const T* in, std::size_t stride, T* out)
{
    constexpr std::size_t edge = 16 / sizeof(T);
    const std::size_t wholePoints = points - points % edge, wholeSteps = steps - steps % edge;
    for (std::size_t p = 0; p < wholePoints; p += edge)
        for (std::size_t k = 0; k < wholeSteps; k += edge)
            turn_square(in + p * stride + k, stride, out + k * kTile + p);
    for (std::size_t p = 0; p < points; ++p)
        for (std::size_t k = p < wholePoints ? wholeSteps : 0; k < steps; ++k)
            out[k * kTile + p] = in[p * stride + k];
}

template <class T>
void add(std::size_t points, std::size_t rows, const T* in, std::size_t stride, bool fresh, double* out)
{
    for (std::size_t begin = 0; begin < points; begin += kTile, out += kTileStride) {
        const std::size_t count = points - begin < kTile ? points - begin : kTile;
        // The rows to come lie too far away for the processor to foresee them.
        for (std::size_t k = rows; k < 2 * rows; ++k)
            for (std::size_t p = 0; p < kTile; p += 64 / sizeof(T))
                __builtin_prefetch(in + k * stride + begin + p);
        std::size_t p = 0;
        for (; p + kLanes <= count; p += kLanes) {
            Wide sum = fresh ? Wide{} : load<Wide>(out + p);
            for (std::size_t k = 0; k < rows; ++k)
                sum += widened(in + k * stride + begin + p);
            store(out + p, sum);
        }
        for (; p < count; ++p) {
            double sum = fresh ? 0 : out[p];
            for (std::size_t k = 0; k < rows; ++k)
                sum += static_cast<double>(in[k * stride + begin + p]);
            out[p] = sum;
        }
    }
}

/// The columns of one group with `width` vectors of points.
template <std::size_t columns, std::size_t width>
TESSEL_INLINE void product_group(std::size_t rows, const double* q, const double* x, double* y)
{
    Wide sum[columns][width] = {};
    for (std::size_t c = 0; c < columns; ++c) // needed at the end
        for (std::size_t j = 0; j < width * kLanes; j += 8)
            __builtin_prefetch(y + c * kTile + j);
    for (std::size_t k = 0; k < rows; ++k) {
        Wide v[width];
        TESSEL_UNROLL
        for (std::size_t j = 0; j < width; ++j)
            v[j] = load<Wide>(x + k * kTile + j * kLanes);
        TESSEL_UNROLL
        for (std::size_t c = 0; c < columns; ++c) {
            const Wide a = q[k * columns + c] - Wide{};
            TESSEL_UNROLL
            for (std::size_t j = 0; j < width; ++j)
                sum[c][j] += a * v[j];
        }
    }
    TESSEL_UNROLL
    for (std::size_t c = 0; c < columns; ++c)
        TESSEL_UNROLL
    for (std::size_t j = 0; j < width; ++j) {
        double* to = y + c * kTile + j * kLanes;
        store(to, load<Wide>(to) + sum[c][j]);
    }
}

template <std::size_t columns>
void product_columns(std::size_t rows, const double* q, const double* x, double* y)
{
    constexpr std::size_t width = kLanes == 8 ? 4 : 2; // sums that the registers hold
    for (std::size_t p = 0; p < kTile; p += width * kLanes)
        product_group<columns, width>(rows, q, x + p, y + p);
}

void product(std::size_t rows, std::size_t columns, const double* q, const double* x, double* y)
{
    for (; columns >= kColumnGroup; columns -= kColumnGroup, q += rows * kColumnGroup, y += kColumnGroup * kTile)
        product_columns<kColumnGroup>(rows, q, x, y);
    switch (columns) {
    case 3:
        return product_columns<3>(rows, q, x, y);
    case 2:
        return product_columns<2>(rows, q, x, y);
    case 1:
        return product_columns<1>(rows, q, x, y);
    default:
        return;
    }
}

void squares(std::size_t rows, const double* w, const double* x, double* e)
{
    for (std::size_t p = 0; p < kTile; p += kLanes) {
        Wide sum = {};
        for (std::size_t k = 0; k < rows; ++k) {
            const Wide v = w[k] * load<Wide>(x + k * kTile + p);
            sum += v * v;
        }
        store(e + p, load<Wide>(e + p) + sum);
    }
}

void project(std::size_t rows, const double* x, const double* sign, double* z)
{
    for (std::size_t k = 0; k < rows; ++k)
        TESSEL_UNROLL
    for (std::size_t lane = 0; lane < kLanesOfSum; lane += kLanes) {
        Wide sum = load<Wide>(z + k * kLanesOfSum + lane);
        TESSEL_UNROLL
        for (std::size_t p = lane; p < kTile; p += kLanesOfSum)
            sum += load<Wide>(sign + p) * load<Wide>(x + k * kTile + p);
        store(z + k * kLanesOfSum + lane, sum);
    }
}

} // namespace

extern const Kernels TESSEL_KERNELS = {turn<float>, turn<double>, add<float>, add<double>, product, squares, project};

} // namespace tessel::fields
