#include "examples/resonator/cavity.h"
#include "examples/resonator/error.h"
#include "examples/resonator/record.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>

namespace resonator {
namespace {

using std::numbers::pi;

/// A file that is there for the life of this object.
struct TemporaryFile
{
    explicit TemporaryFile(const std::string& content)
    {
        char name[] = "/tmp/resonator-test-XXXXXX";
        const int descriptor = mkstemp(name);
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        path = name;
        std::ofstream(path) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    std::string path;
};

template <class Action>
std::string error_of(Action action)
{
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "no error";
}

TEST(Cavity, RingsAsTheSumOfItsExactModes)
{
    // Among them a Courant number at the limit, strong loss, and nodes beside a wall.
    Cavity strong{.cells_x = 23, .cells_y = 17, .conductivity = 0.05, .courant = 0.705, .steps = 900};
    strong.source = {1, 16}, strong.probe = {22, 9}, strong.bandwidth = 5e9;
    Cavity weak{.cells_x = 31, .cells_y = 24, .permittivity = 1.0, .conductivity = 1e-4, .courant = 0.4, .steps = 1500};
    weak.source = {11, 9}, weak.probe = {20, 15}, weak.bandwidth = 3e9;
    for (const Cavity& cavity : {strong, weak}) {
        const Record record = simulate(cavity, [](Index) {});
        ASSERT_EQ(record.size(), cavity.steps + 1);
        const Index end = cavity.pulse_steps();
        ASSERT_LT(end, cavity.steps / 2);
        const auto modes = exact_modes(cavity);
        EXPECT_LT(distance_from_closed_form(modes, record, {end, 1, cavity.steps + 1 - end}), 1e-11);
        EXPECT_GT(distance_from_closed_form(modes, record, {end / 2, 1, 100}), 1e-3) << "the pulse drives the record";
    }
}

TEST(Cavity, NearsTheContinuousOneInSiUnits)
{
    const Cavity cavity;
    const double width = static_cast<double>(cavity.cells_x) * cavity.cell;
    const double height = static_cast<double>(cavity.cells_y) * cavity.cell;
    const double velocity = 299792458.0 / std::sqrt(cavity.permittivity);
    const double frequency = velocity / 2.0 * std::sqrt(1.0 / (width * width) + 1.0 / (height * height));
    const double quality = 2.0 * pi * frequency * cavity.permittivity * 8.8541878e-12 / cavity.conductivity;
    const CavityMode mode = exact_modes(cavity).front();
    EXPECT_NEAR(mode.pole.imag() / (2.0 * pi), frequency, 1e-4 * frequency);
    EXPECT_NEAR(mode.pole.imag() / (-2.0 * mode.pole.real()), quality, 1e-4 * quality);
}

TEST(RecordFile, TakesTheUsualForms)
{
    const TemporaryFile complex_file("# a probe\n\n  1.0e-9, +1 , -2.5 # first\r\n2D-9;3;4\n3.0000001e-09\t5\t1d2\n");
    const Record record = read_record(complex_file.path, {});
    EXPECT_DOUBLE_EQ(record.start, 1e-9);
    EXPECT_NEAR(record.spacing, 1e-9, 1e-15);
    EXPECT_EQ(record.values, (std::vector<Complex>{{1.0, -2.5}, {3.0, 4.0}, {5.0, 100.0}}));
    EXPECT_FALSE(record.is_real());

    const TemporaryFile real_file("0.5 1\n0.25 2\n0.125 3");
    const Record untimed = read_record(real_file.path, 0.125);
    EXPECT_EQ(untimed.spacing, 0.125);
    EXPECT_EQ(untimed.values, (std::vector<Complex>{{0.5, 1.0}, {0.25, 2.0}, {0.125, 3.0}}));

    const TemporaryFile one_column("1\n2\n");
    EXPECT_TRUE(read_record(one_column.path, 1.0).is_real());
}

TEST(RecordFile, NamesTheLineAtFault)
{
    struct Case
    {
        const char* content;
        std::optional<double> spacing;
        const char* message; ///< behind the path
    };
    const Case cases[] = {
        {"# x\n0 1\n1 one\n", {}, ":3: 'one' is not a number"},
        {"0 1\n1 2.5.1\n", {}, ":2: '2.5.1' is not a number"},
        {"0 1\n1 nan\n", {}, ":2: 'nan' is not a finite number in double precision"},
        {"0 1\n1 1e999\n", {}, ":2: '1e999' is not a finite number in double precision"},
        {"0 1 2\n1 2 3\n2 3\n", {}, ":3: 2 columns, where the lines before have 3"},
        {"0 1\n\n1 2 3\n", {}, ":3: 3 columns, where the lines before have 2"},
        {"7\n8\n",
         {},
         ":1: 1 column; the columns are: time, real part [imaginary part]; for a record without times give --dt"},
        {"0 1 2\n", 0.1, ":1: 3 columns; with --dt the columns are: real part [imaginary part]"},
        {"0 1\n1 1\n2 1\n4 1\n5 1\n", {}, ":4: the times are not equally spaced: a step of 2 to 4, where 1 is usual"},
        {"0 1\n1 1\n2 1\n2 1\n3 1\n", {}, ":4: time 2 does not come after 2"},
        // Every step is within its tolerance of the usual one, but they do not add up to a straight line.
        {"0 1\n1 1\n2 1\n3 1\n4 1\n5.09 1\n6.18 1\n7.27 1\n8.36 1\n",
         {},
         ":4: the times are not equally spaced: 3, where equal steps lead to 3.135"},
        {"# nothing\n", {}, ": no record: the file has fewer than two samples"},
    };
    for (const Case& c : cases) {
        const TemporaryFile file(c.content);
        EXPECT_EQ(error_of([&] { read_record(file.path, c.spacing); }), file.path + c.message) << c.content;
    }
    EXPECT_EQ(error_of([] { read_record("/no/such/file", {}); }),
              "/no/such/file: cannot be opened: No such file or directory");
    EXPECT_EQ(error_of([] { read_record("/tmp", {}); }), "/tmp: cannot be read: Is a directory");
}

} // namespace
} // namespace resonator
