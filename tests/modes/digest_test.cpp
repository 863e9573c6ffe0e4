/// Digests of the modes of records. They are the same on every processor, by every compiler and in every kind of build.
///
/// The records come from seeded integers by sums, products and quotients alone, one draw to a statement: they are the
/// same everywhere. Where digests differ, the message holds the table as it came out, ready to take the place of the
/// old one.

#include "tests/support/random.h"

#include <tessel/modes.h>

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

namespace tessel::modes {
namespace {

using testing::Random;
using Complex = std::complex<double>;
using Samples = std::vector<Complex>;

class Hash
{
public:
    void add(std::uint64_t bits)
    {
        for (int byte = 0; byte < 8; ++byte)
            value_ = (value_ ^ (bits >> 8 * byte & 255)) * 0x100000001b3u;
    }
    void add(double x) { add(std::isnan(x) ? ~std::uint64_t{0} : std::bit_cast<std::uint64_t>(x)); }
    void add(const std::vector<Remark>& remarks)
    {
        for (const Remark& remark : remarks) {
            add(static_cast<std::uint64_t>(remark.code));
            add(remark.value);
        }
    }
    std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = 0xcbf29ce484222325u; // FNV-1a
};

/// Adds a line that turns by the angle 2 arctan(t) and shrinks to `ratio` each sample.
void add_line(Samples& y, double t, double ratio, Complex amplitude, std::size_t from = 0)
{
    const double size = ratio / (1 + t * t), a = size * (1 - t * t), b = size * 2 * t;
    double re = amplitude.real(), im = amplitude.imag();
    for (std::size_t k = from; k < y.size(); ++k) {
        y[k] += Complex(re, im);
        const double next = re * a - im * b;
        im = re * b + im * a;
        re = next;
    }
}

/// Adds `count` lines of different widths below the angle 2 arctan(highest).
void add_lines(Samples& y, Random& random, int count, double highest, std::size_t from = 0)
{
    for (int j = 0; j < count; ++j) {
        const double place = (j + random.uniform(0.2, 0.8)) / count;
        const double life = random.uniform(0.05, 2.0);
        const double size = random.uniform(0.1, 1.0);
        const double t = random.uniform(-3.0, 3.0);
        const Complex amplitude(size * (1 - t * t) / (1 + t * t), size * 2 * t / (1 + t * t));
        add_line(y, highest * place, 1 - 1 / (life * static_cast<double>(y.size())), amplitude, from);
    }
}

/// Adds noise, of which the part `memory` of each value goes into the next.
void add_noise(Samples& y, Random& random, double size, double memory = 0)
{
    Complex value = 0;
    for (Complex& sample : y) {
        Complex sum = 0;
        for (int i = 0; i < 6; ++i)
            sum += random.complex();
        value = Complex(memory * value.real() + size * sum.real(), memory * value.imag() + size * sum.imag());
        sample += value;
    }
}

/// A bell-shaped burst, by which a drive begins.
void add_burst(Samples& y, double t, double height)
{
    Samples carrier(150);
    add_line(carrier, t, 1, height);
    for (std::size_t k = 0; k < carrier.size(); ++k) {
        const double u = (static_cast<double>(k) - 70) / 30, bell = 1 / (1 + u * u + u * u * u * u * u * u);
        y[k] += k < 149 ? Complex(bell * bell * bell * carrier[k].real(), 0) : Complex(0);
    }
}

std::vector<double> real(const Samples& samples)
{
    std::vector<double> out;
    for (const Complex& sample : samples)
        out.push_back(sample.real());
    return out;
}

std::uint64_t digest(const Result& result)
{
    Hash hash;
    for (const Mode& mode : result.modes) {
        for (const double v :
             {mode.frequency, mode.decay, mode.quality, mode.amplitude, mode.phase, mode.frequencyError,
              mode.decayError, mode.qualityError, mode.amplitudeError, mode.phaseError, mode.significance})
            hash.add(v);
        hash.add(static_cast<std::uint64_t>(mode.kind));
    }
    for (const double v : {result.referenceTime, result.noise, result.reducedChiSquare, result.lowest, result.highest})
        hash.add(v);
    hash.add(std::uint64_t{result.firstSample});
    hash.add(std::uint64_t{result.decimation});
    hash.add(result.remarks);
    return hash.value();
}

std::uint64_t digest(const JointResult& result)
{
    Hash hash;
    for (const JointMode& mode : result.modes) {
        for (const double v : {mode.frequency, mode.decay, mode.quality, mode.frequencyError, mode.decayError,
                               mode.qualityError, mode.significance})
            hash.add(v);
        for (const Residue& residue : mode.residues)
            for (const double v : {residue.amplitude, residue.phase, residue.amplitudeError, residue.phaseError})
                hash.add(v);
    }
    for (const JointRecord& record : result.records)
        for (const double v : {record.referenceTime, record.noise, record.reducedChiSquare})
            hash.add(v);
    hash.add(result.remarks);
    return hash.value();
}

struct Kind
{
    const char* name;
    std::uint64_t expected;
    std::uint64_t (*run)(Random& random);
};

const Kind kKinds[] = {
    {"clean", 0xd09b22fbb98530d6u,
     [](Random& random) {
         Samples y(700);
         add_lines(y, random, 6, 0.15);
         return digest(analyse(real(y), 0, 0.5));
     }},
    {"noisy", 0xf31084e929d11940u,
     [](Random& random) {
         Samples y(1500);
         add_lines(y, random, 5, 0.1);
         add_noise(y, random, 1e-4);
         return digest(analyse(real(y), 3, 0.25));
     }},
    {"close", 0xc0a7a93bcd307a4bu,
     [](Random& random) {
         Samples y(900);
         add_line(y, 0.08, 0.999, {0.6, 0.3});
         add_line(y, 0.0805, 0.9985, {-0.4, 0.8});
         add_noise(y, random, 1e-5);
         return digest(analyse(real(y), 0, 1));
     }},
    {"driven", 0xf44f69fa768ab71cu,
     [](Random& random) {
         Samples y(1200);
         add_burst(y, 0.12, 4);
         add_lines(y, random, 4, 0.15, 60);
         add_noise(y, random, 1e-6);
         return digest(analyse(real(y), 0, 1));
     }},
    {"coloured", 0x29f2a48f0e7c8ccbu,
     [](Random& random) {
         Samples y(1500);
         add_lines(y, random, 3, 0.2);
         add_noise(y, random, 1e-3, 0.9);
         return digest(analyse(real(y), 0, 1));
     }},
    {"complex", 0xa900ba9536339d35u,
     [](Random& random) {
         Samples y(500);
         add_lines(y, random, 3, 0.2);
         add_lines(y, random, 3, -0.3);
         add_noise(y, random, 1e-4);
         return digest(analyse(y, 0, 1));
     }},
    {"single", 0x62492f4eaa580e74u,
     [](Random& random) {
         Samples y(1000);
         add_lines(y, random, 4, 0.1);
         std::vector<double> rounded;
         for (const Complex& sample : y)
             rounded.push_back(static_cast<double>(static_cast<float>(sample.real())));
         return digest(analyse(rounded, 0, 1));
     }},
    {"slow", 0xfde77df80869676fu,
     [](Random& random) { // an offset, a drift and a mode that grows
         Samples y(800);
         add_line(y, 0, 1, 0.3);
         add_line(y, 0, 0.99, 0.4);
         add_line(y, 0.1, 1.001, {0.01, 0.02});
         add_lines(y, random, 2, 0.3);
         add_noise(y, random, 1e-5);
         return digest(analyse(real(y), 0, 1));
     }},
    {"fine", 0x7bb8d7a2d5108feau,
     [](Random& random) { // start values by transforms
         Samples y(2500);
         add_lines(y, random, 8, 1.1);
         add_noise(y, random, 1e-5);
         return digest(analyse(real(y), 0, 1));
     }},
    {"joint", 0x3d0cd9882d1e5ec2u,
     [](Random& random) {
         std::vector<Record> records;
         for (int p = 0; p < 3; ++p) {
             Samples y(600);
             add_line(y, 0.07, 0.997, {random.uniform(-1, 1), 0.5});
             add_line(y, 0.11, 0.999, {random.uniform(-1, 1), -0.2});
             add_noise(y, random, 1e-3);
             records.push_back({real(y), p * 2.0});
         }
         return digest(analyseJointly(records, 1));
     }},
};

TEST(Digest, OfModes)
{
    bool same = true;
    std::ostringstream table;
    for (const Kind& kind : kKinds) {
        Random random(7);
        const std::uint64_t value = kind.run(random);
        same = same && value == kind.expected;
        table << kind.name << " 0x" << std::hex << std::setfill('0') << std::setw(16) << value << "u\n";
    }
    EXPECT_TRUE(same) << table.str();
}

} // namespace
} // namespace tessel::modes
