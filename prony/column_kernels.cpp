// Compiled once for each width of the vector units, with
//
//     TESSEL_KERNELS       the name of the table
//     TESSEL_VECTOR_BYTES  the width of a vector
//
// Everything is in an unnamed namespace, and no other header with code is included: the linker could otherwise choose
// the wide version of a shared inline function, which then runs on a machine without these units.

#include "prony/column_kernels.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <immintrin.h> // functions that are always inlined

namespace tessel {

namespace {

using Index = std::ptrdiff_t;

#define TESSEL_INLINE inline __attribute__((always_inline))
#define TESSEL_UNROLL _Pragma("GCC unroll 16")

typedef double Vector2 __attribute__((vector_size(16)));
#if TESSEL_VECTOR_BYTES >= 32
typedef double Vector4 __attribute__((vector_size(32)));
#endif
#if TESSEL_VECTOR_BYTES >= 64
typedef double Vector8 __attribute__((vector_size(64)));
#endif
typedef double Widest __attribute__((vector_size(TESSEL_VECTOR_BYTES)));

template <class V>
constexpr int kLanes = sizeof(V) / sizeof(double);

template <class V>
TESSEL_INLINE V load(const double* from)
{
    V v;
    __builtin_memcpy(&v, from, sizeof v); // not aligned
    return v;
}

template <class V>
TESSEL_INLINE void store(double* to, V v)
{
    __builtin_memcpy(to, &v, sizeof v);
}

template <class V>
TESSEL_INLINE V broadcast(double x)
{
    if constexpr (kLanes<V> == 1) {
        return x;
    } else {
        V v{};
        TESSEL_UNROLL
        for (int k = 0; k < kLanes<V>; ++k)
            v[k] = x;
        return v;
    }
}

// Operations on complex elements. `subtract_add` is a - b at real and a + b at imaginary parts.

TESSEL_INLINE Vector2 subtract_add(Vector2 a, Vector2 b)
{
    const __m128i minus = _mm_set_epi64x(0, INT64_MIN);
    return a + reinterpret_cast<Vector2>(reinterpret_cast<__m128i>(b) ^ minus);
}

TESSEL_INLINE Vector2 swapped(Vector2 v)
{
    return __builtin_shufflevector(v, v, 1, 0);
}
TESSEL_INLINE Vector2 real_parts(Vector2 v)
{
    return __builtin_shufflevector(v, v, 0, 0);
}
TESSEL_INLINE Vector2 imaginary_parts(Vector2 v)
{
    return __builtin_shufflevector(v, v, 1, 1);
}

// Transposes. A group of vectors, one for each column, becomes one for each row.

TESSEL_INLINE void transpose(double*) {}
TESSEL_INLINE void transpose(Vector2* v)
{
    const Vector2 a = v[0], b = v[1];
    v[0] = __builtin_shufflevector(a, b, 0, 2);
    v[1] = __builtin_shufflevector(a, b, 1, 3);
}
TESSEL_INLINE void transpose_pairs(Vector2*) {}

#if TESSEL_VECTOR_BYTES >= 32
TESSEL_INLINE Vector4 subtract_add(Vector4 a, Vector4 b)
{
    return _mm256_addsub_pd(a, b);
}
TESSEL_INLINE Vector4 swapped(Vector4 v)
{
    return __builtin_shufflevector(v, v, 1, 0, 3, 2);
}
TESSEL_INLINE Vector4 real_parts(Vector4 v)
{
    return __builtin_shufflevector(v, v, 0, 0, 2, 2);
}
TESSEL_INLINE Vector4 imaginary_parts(Vector4 v)
{
    return __builtin_shufflevector(v, v, 1, 1, 3, 3);
}
TESSEL_INLINE void transpose_pairs(Vector4* v)
{
    const Vector4 a = v[0], b = v[1];
    v[0] = __builtin_shufflevector(a, b, 0, 1, 4, 5);
    v[1] = __builtin_shufflevector(a, b, 2, 3, 6, 7);
}
TESSEL_INLINE void transpose(Vector4* v)
{
    const Vector4 ab0 = __builtin_shufflevector(v[0], v[1], 0, 4, 2, 6); // rows 0 and 2 of columns 0 and 1
    const Vector4 ab1 = __builtin_shufflevector(v[0], v[1], 1, 5, 3, 7);
    const Vector4 cd0 = __builtin_shufflevector(v[2], v[3], 0, 4, 2, 6);
    const Vector4 cd1 = __builtin_shufflevector(v[2], v[3], 1, 5, 3, 7);
    v[0] = __builtin_shufflevector(ab0, cd0, 0, 1, 4, 5);
    v[1] = __builtin_shufflevector(ab1, cd1, 0, 1, 4, 5);
    v[2] = __builtin_shufflevector(ab0, cd0, 2, 3, 6, 7);
    v[3] = __builtin_shufflevector(ab1, cd1, 2, 3, 6, 7);
}
#endif

#if TESSEL_VECTOR_BYTES >= 64
TESSEL_INLINE Vector8 subtract_add(Vector8 a, Vector8 b)
{
    return _mm512_fmaddsub_pd(a, broadcast<Vector8>(1.0), b); // one rounding, that of the sum
}
TESSEL_INLINE Vector8 swapped(Vector8 v)
{
    return __builtin_shufflevector(v, v, 1, 0, 3, 2, 5, 4, 7, 6);
}
TESSEL_INLINE Vector8 real_parts(Vector8 v)
{
    return __builtin_shufflevector(v, v, 0, 0, 2, 2, 4, 4, 6, 6);
}
TESSEL_INLINE Vector8 imaginary_parts(Vector8 v)
{
    return __builtin_shufflevector(v, v, 1, 1, 3, 3, 5, 5, 7, 7);
}
TESSEL_INLINE void transpose_pairs(Vector8* v)
{
    const Vector8 ab0 = __builtin_shufflevector(v[0], v[1], 0, 1, 2, 3, 8, 9, 10, 11); // rows 0, 1 of columns 0, 1
    const Vector8 ab2 = __builtin_shufflevector(v[0], v[1], 4, 5, 6, 7, 12, 13, 14, 15);
    const Vector8 cd0 = __builtin_shufflevector(v[2], v[3], 0, 1, 2, 3, 8, 9, 10, 11);
    const Vector8 cd2 = __builtin_shufflevector(v[2], v[3], 4, 5, 6, 7, 12, 13, 14, 15);
    v[0] = __builtin_shufflevector(ab0, cd0, 0, 1, 4, 5, 8, 9, 12, 13);
    v[1] = __builtin_shufflevector(ab0, cd0, 2, 3, 6, 7, 10, 11, 14, 15);
    v[2] = __builtin_shufflevector(ab2, cd2, 0, 1, 4, 5, 8, 9, 12, 13);
    v[3] = __builtin_shufflevector(ab2, cd2, 2, 3, 6, 7, 10, 11, 14, 15);
}
#endif

// Products by kind of element. V is a vector along a column.

struct RealElements
{
    static constexpr int kParts = 1;
    using Narrowest = double;

    /// A vector that coefficients are multiplied with.
    template <class V>
    struct Operand
    {
        V v;

        explicit TESSEL_INLINE Operand(V from) : v(from) {}
    };

    template <class V>
    struct Coefficient
    {
        V a;

        TESSEL_INLINE void set(const double* from) { a = broadcast<V>(*from); }
        TESSEL_INLINE V operator*(const Operand<V>& x) const { return a * x.v; }
    };

    /// h y, element by element.
    template <class V>
    struct Factors
    {
        V h;

        explicit TESSEL_INLINE Factors(V from) : h(from) {}
        TESSEL_INLINE V operator*(V y) const { return h * y; }
    };

    template <class V>
    static TESSEL_INLINE void transpose_group(V* v)
    {
        transpose(v);
    }
};

struct ComplexElements
{
    static constexpr int kParts = 2;
    using Narrowest = Vector2;

    template <class V>
    struct Operand
    {
        V v, exchanged; // real and imaginary parts in each other's place

        explicit TESSEL_INLINE Operand(V from) : v(from), exchanged(swapped(from)) {}
    };

    /// a x = (re a re x - im a im x, re a im x + im a re x)
    template <class V>
    struct Coefficient
    {
        V re, im;

        TESSEL_INLINE void set(const double* from)
        {
            re = broadcast<V>(from[0]);
            im = broadcast<V>(from[1]);
        }
        TESSEL_INLINE V operator*(const Operand<V>& x) const { return subtract_add(re * x.v, im * x.exchanged); }
    };

    /// conj(h) y = (re h re y - (-im h) im y, re h im y + (-im h) re y), element by element: the minus stands where it
    /// decides how a product is rounded if not to the nearest.
    template <class V>
    struct Factors
    {
        V re, im; // of conj(h)

        explicit TESSEL_INLINE Factors(V h) : re(real_parts(h)), im(-imaginary_parts(h)) {}
        TESSEL_INLINE V operator*(V y) const { return subtract_add(re * y, im * swapped(y)); }
    };

    template <class V>
    static TESSEL_INLINE void transpose_group(V* v)
    {
        transpose_pairs(v);
    }
};

// What is done to a few columns, `count` of them, in the rows from i on, as many as whole vectors V below n hold; i and
// n count doubles. Each returns where it stopped.

/// Copies of coefficients: stores to the columns might change the originals, as far as the compiler knows.
template <class Elements, class V, int count>
struct Coefficients
{
    typename Elements::template Coefficient<V> at[count + (count == 0)]; // an array is not empty

    explicit TESSEL_INLINE Coefficients(const double* a)
    {
        TESSEL_UNROLL
        for (int j = 0; j < count; ++j)
            at[j].set(a + j * Elements::kParts);
    }
};

/// y(j) := y(j) + a(j) w and d(j) := d(j) + h^H y(j). The columns come in groups of as many as a vector has rows, whose
/// products are transposed, so that every sum goes through its rows in order.
template <class Elements, class V, int count, bool updates>
TESSEL_INLINE Index update_dot_rows(Index i, Index n, double* y, Index stride, const double* w, const double* a,
                                    const double* h, double* d)
{
    constexpr int rows = kLanes<V> / Elements::kParts, groups = count / rows;
    if (n - i < kLanes<V>)
        return i;
    const Coefficients<Elements, V, updates ? count : 0> coefficients(a);
    V sum[groups];
    TESSEL_UNROLL
    for (int g = 0; g < groups; ++g)
        sum[g] = load<V>(d + g * kLanes<V>);
    for (; i + kLanes<V> <= n; i += kLanes<V>) {
        const typename Elements::template Operand<V> x(updates ? load<V>(w + i) : V{});
        const typename Elements::template Factors<V> factors(load<V>(h + i));
        V value[count]; // all are loaded before any is stored: loads wait for stores that seem to be to the same place
        TESSEL_UNROLL
        for (int j = 0; j < count; ++j)
            value[j] = load<V>(y + j * stride + i);
        if constexpr (updates) {
            TESSEL_UNROLL
            for (int j = 0; j < count; ++j) {
                value[j] += coefficients.at[j] * x;
                store(y + j * stride + i, value[j]);
            }
        }
        TESSEL_UNROLL
        for (int g = 0; g < groups; ++g) {
            V term[rows];
            TESSEL_UNROLL
            for (int k = 0; k < rows; ++k)
                term[k] = factors * value[g * rows + k];
            Elements::transpose_group(term);
            TESSEL_UNROLL
            for (int k = 0; k < rows; ++k)
                sum[g] += term[k];
        }
    }
    TESSEL_UNROLL
    for (int g = 0; g < groups; ++g)
        store(d + g * kLanes<V>, sum[g]);
    return i;
}

/// y(j) := y(j) + a(j) h and w := w + e(j) y(j).
template <class Elements, class V, int count, bool updates, bool sums>
TESSEL_INLINE Index update_sum_rows(Index i, Index n, double* y, Index stride, const double* h, const double* a,
                                    double* w, const double* e)
{
    if (n - i < kLanes<V>)
        return i;
    const Coefficients<Elements, V, updates ? count : 0> coefficients(a);
    const Coefficients<Elements, V, sums ? count : 0> weights(e);
    for (; i + kLanes<V> <= n; i += kLanes<V>) {
        const typename Elements::template Operand<V> x(updates ? load<V>(h + i) : V{});
        V sum{};
        if constexpr (sums)
            sum = load<V>(w + i);
        V value[count];
        TESSEL_UNROLL
        for (int j = 0; j < count; ++j)
            value[j] = load<V>(y + j * stride + i);
        TESSEL_UNROLL
        for (int j = 0; j < count; ++j) {
            if constexpr (updates) {
                value[j] += coefficients.at[j] * x;
                store(y + j * stride + i, value[j]);
            }
            if constexpr (sums)
                sum += weights.at[j] * typename Elements::template Operand<V>(value[j]);
        }
        if constexpr (sums)
            store(w + i, sum);
    }
    return i;
}

/// Calls `body` for vectors of falling width, so that all rows are done: `body(v, i)` does those that whole vectors
/// like v hold from i on and returns where it stopped. Columns long enough to gain by it are first brought to a
/// boundary of the widest vectors.
template <class Elements, class V, class Body>
TESSEL_INLINE void for_all_rows(const double* column, Index n, Body body)
{
    using Narrow = typename Elements::Narrowest;
    constexpr Index lanes = kLanes<V>, worth_it = 8 * lanes;
    Index i = 0;
    if constexpr (lanes > kLanes<Narrow>) {
        const auto beyond = static_cast<Index>(reinterpret_cast<std::uintptr_t>(column) / sizeof(double) % lanes);
        if (n >= worth_it && beyond != 0)
            i = body(Narrow{}, i, lanes - beyond);
        i = body(V{}, i, n);
    }
    body(Narrow{}, i, n);
}

/// The widest vector whose rows divide the number of columns. Real elements take at most four lanes: eight
/// cost more in transposes than they save in sums.
template <class Elements, int count>
constexpr int kGroupBytes = []() {
    int bytes = TESSEL_VECTOR_BYTES < 32 * Elements::kParts ? TESSEL_VECTOR_BYTES : 32 * Elements::kParts;
    while (count % (bytes / 8 / Elements::kParts) != 0)
        bytes /= 2;
    return bytes;
}();

template <int bytes>
struct VectorOf;
template <>
struct VectorOf<8>
{
    using Type = double;
};
template <>
struct VectorOf<16>
{
    using Type = Vector2;
};
#if TESSEL_VECTOR_BYTES >= 32
template <>
struct VectorOf<32>
{
    using Type = Vector4;
};
#endif
#if TESSEL_VECTOR_BYTES >= 64
template <>
struct VectorOf<64>
{
    using Type = Vector8;
};
#endif

template <class Elements, int count, bool updates>
void update_dot_block(Index n, double* y, Index stride, const double* w, const double* a, const double* h, double* d)
{
    using V = typename VectorOf<kGroupBytes<Elements, count>>::Type;
    for_all_rows<Elements, V>(
        y, n, [=](auto v, Index i, Index end) __attribute__((always_inline)) {
            return update_dot_rows<Elements, decltype(v), count, updates>(i, end, y, stride, w, a, h, d);
        });
}

template <class Elements, int count, bool updates, bool sums>
void update_sum_block(Index n, double* y, Index stride, const double* h, const double* a, double* w, const double* e)
{
    for_all_rows<Elements, Widest>(
        y, n, [=](auto v, Index i, Index end) __attribute__((always_inline)) {
            return update_sum_rows<Elements, decltype(v), count, updates, sums>(i, end, y, stride, h, a, w, e);
        });
}

// All columns, in blocks.

/// Whether columns at this distance, in doubles, fall into the same sets of the innermost cache: eight of them and the
/// vectors beside them would then evict each other.
bool share_sets(Index stride)
{
    constexpr Index page = 4096 / sizeof(double), line = 64 / sizeof(double);
    return (stride + line) % page <= 2 * line;
}

template <class Elements, bool updates>
void update_dot(Index rows, Index columns, double* y, Index ld, const double* w, const double* a, const double* h,
                double* d)
{
    constexpr Index parts = Elements::kParts;
    const Index n = rows * parts, stride = ld * parts;
    Index j = columns;
    const auto block = [&]<int count>(std::integral_constant<int, count>) {
        while (j >= count) {
            j -= count;
            update_dot_block<Elements, count, updates>(n, y + j * stride, stride, w, a + j * parts, h, d + j * parts);
        }
    };
    if (parts == 1 && !share_sets(stride)) // 64 bytes of each row
        block(std::integral_constant<int, 8>{});
    block(std::integral_constant<int, 4>{});
    block(std::integral_constant<int, 2>{});
    block(std::integral_constant<int, 1>{});
}

template <class Elements, bool updates, bool sums>
void update_sum(Index rows, Index columns, double* y, Index ld, const double* h, const double* a, double* w,
                const double* e)
{
    constexpr Index parts = Elements::kParts;
    const Index n = rows * parts, stride = ld * parts;
    Index j = 0;
    const auto block = [&]<int count>(std::integral_constant<int, count>) {
        for (; j + count <= columns; j += count)
            update_sum_block<Elements, count, updates, sums>(n, y + j * stride, stride, h, a + j * parts, w,
                                                             e + j * parts);
    };
    if (parts == 1 && !share_sets(stride)) // 64 bytes of each row
        block(std::integral_constant<int, 8>{});
    block(std::integral_constant<int, 4>{});
    block(std::integral_constant<int, 2>{});
    block(std::integral_constant<int, 1>{});
}

template <class Elements>
void scale(Index rows, double* y, const double* a)
{
    for_all_rows<Elements, Widest>(
        y, rows * Elements::kParts, [=](auto v, Index i, Index end) __attribute__((always_inline)) {
            using V = decltype(v);
            const Coefficients<Elements, V, 1> factor(a);
            for (; i + kLanes<V> <= end; i += kLanes<V>)
                store(y + i, factor.at[0] * typename Elements::template Operand<V>(load<V>(y + i)));
            return i;
        });
}

template <class Elements>
constexpr ColumnKernels kColumnKernels = {
    update_dot<Elements, true>,
    [](Index rows, Index columns, const double* y, Index ld, const double* h, double* d) {
        update_dot<Elements, false>(rows, columns, const_cast<double*>(y), ld, h, h, h, d); // y is not written
    },
    update_sum<Elements, true, true>,
    [](Index rows, Index columns, double* y, Index ld, const double* h, const double* a) {
        update_sum<Elements, true, false>(rows, columns, y, ld, h, a, nullptr, a);
    },
    [](Index rows, Index columns, const double* y, Index ld, double* w, const double* e) {
        update_sum<Elements, false, true>(rows, columns, const_cast<double*>(y), ld, w, e, w, e);
    },
    scale<Elements>};

// Rotations.

/// The rows row, row + 1, ... of the columns, as many as whole vectors V hold. Returns where it stopped.
template <int count, class V>
TESSEL_INLINE Index rotate_rows(Index row, Index n, double* last, Index stride, const Rotation* __restrict rotation)
{
    for (; row + kLanes<V> <= n; row += kLanes<V>) {
        V x[count + 1]; // from the last column on
        TESSEL_UNROLL
        for (int i = 0; i <= count; ++i) {
            x[i] = load<V>(last - i * stride + row);
            asm("" : "+v"(x[i])); // loaded once, not anew for each product
        }
        TESSEL_UNROLL
        for (int i = 0; i < count; ++i) {
            const V y = x[i];
            x[i] = rotation[i].c * y - rotation[i].s * x[i + 1];
            x[i + 1] = rotation[i].c * x[i + 1] + rotation[i].s * y; // the right column of the next rotation
        }
        TESSEL_UNROLL
        for (int i = 0; i <= count; ++i)
            store(last - i * stride + row, x[i]);
    }
    return row;
}

template <int count>
void wavefront(Index n, double* last, Index stride, const Rotation* rotation)
{
    Index row = rotate_rows<count, Widest>(0, n, last, stride, rotation);
    row = rotate_rows<count, Vector2>(row, n, last, stride, rotation);
    rotate_rows<count, double>(row, n, last, stride, rotation);
}

} // namespace

extern const Kernels TESSEL_KERNELS = {kColumnKernels<RealElements>,
                                       kColumnKernels<ComplexElements>,
                                       {wavefront<1>, wavefront<2>, wavefront<3>, wavefront<4>}};

} // namespace tessel
