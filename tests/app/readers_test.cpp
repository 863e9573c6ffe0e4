// What the command reads: numbers, columns, times and units out of bytes; and what it refuses, by its line.
#include "app/error.h"
#include "app/npy.h"
#include "app/number.h"
#include "app/options.h"
#include "app/records.h"
#include "app/source.h"
#include "app/text.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>

using namespace tessel::app;

namespace {

std::vector<Record> records(std::string text, const std::vector<std::string>& arguments = {})
{
    std::vector<std::string> words = arguments;
    words.emplace_back("FILE");
    const Options options = parse_command_line(words).options;
    check_kind(text);
    return make_records(read_text(std::move(text)), "FILE", options);
}

/// What is said of a text that is refused.
std::string refusal(const std::string& text, const std::vector<std::string>& arguments = {})
{
    try {
        records(text, arguments);
    } catch (const Error& error) {
        return error.in("FILE");
    }
    return "";
}

// The same four rows in many forms.
struct Form
{
    const char* name;
    std::string text;
};

class EveryForm : public testing::TestWithParam<Form>
{};

TEST_P(EveryForm, GivesTheSameRecord)
{
    const std::vector<Record> found = records(GetParam().text);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].real, (std::vector<double>{1, -0.5, 250, 0}));
    EXPECT_EQ(found[0].start, 0.5);
    EXPECT_EQ(found[0].spacing, 0.25);
    EXPECT_EQ(found[0].unit.name, "s");
}

INSTANTIATE_TEST_SUITE_P(
    Text, EveryForm,
    testing::Values(Form{"blanks", "0.5 1\n0.75  -0.5\n 1.0 2.5e2\n1.25 0\n"},
                    Form{"tabs", "0.5\t1\n0.75\t-0.5\n1.0\t2.5E+2\n1.25\t0"},
                    Form{"commas", "0.5,1\n0.75, -.5\n1.0 ,+250\n1.25,0,\n"},
                    Form{"semicolons", "0.5;1\r\n0.75;-0.5\r\n1.0;250.\r\n1.25;0\r\n"},
                    Form{"old_line_ends", "0.5 1\r0.75 -0.5\r1.0 250\r1.25 0\r"},
                    Form{"mark_and_header", "\xef\xbb\xbftime,field\n0.5,1\n0.75,-0.5\n1,250\n1.25,0\n"},
                    Form{"quotes", "\"time\";\"a; b\"\n\"0.5\";\"1\"\n\"0.75\";\"-0.5\"\n1;250\n1.25;0\n"},
                    Form{"comments",
                         "# made by hand\n% time value\n\n0.5 1 # first\n!\n0.75 -0.5\n// more\n1 250\n1.25 0\n\n"},
                    Form{"exponents_with_D", "5.D-1 1d0\n7.5D-01 -5d-001\n1.0D+0 2.5D2\n1.25 0.0D+00\n"},
                    Form{"exponents_without_letter", "0.5 1\n0.75 -0.5\n1 0.25+003\n1.25 0.\n1.5 7.e"} // last line cut
                    ),
    [](const auto& test) { return test.param.name; });

TEST(Text, NamesColumnsAndUnits)
{
    const std::string text = "run 7, 3 probes\nTime [ns]  Ez (V/m)  Re(Hx)  Im(Hx)\n0 1 2 3\n0.5 4 5 6\n1 7 8 9\n";
    const std::vector<Record> all = records(text);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].column, "Ez (V/m)");
    EXPECT_EQ(all[1].column, "Hx");
    EXPECT_EQ(all[1].complex, (std::vector<std::complex<double>>{{2, 3}, {5, 6}, {8, 9}}));
    EXPECT_EQ(all[0].unit, (TimeUnit{"ns", -9}));
    EXPECT_EQ(records(text, {"--column", "2"})[0].column, "Ez (V/m)");
    EXPECT_EQ(records(text, {"-c", "Hx,2"}).size(), 2u);
    // A line of units behind the names, as instruments write it.
    const std::vector<Record> scope = records("Time,CH1\nus,V\n0,1\n2,2\n4,1\n");
    EXPECT_EQ(scope[0].unit, (TimeUnit{"us", -6}));
    EXPECT_EQ(scope[0].spacing, 2.0);
    EXPECT_EQ(scope[0].column, "CH1");
}

TEST(Text, ReadsComplexNumbers)
{
    const std::vector<std::complex<double>> expected{{1, 2}, {-3, 0.5}, {0, -1}};
    for (const char* text :
         {"0 (1,2)\n1 (-3,5e-1)\n2 (0,-1)\n", "0,1+2j\n1,-3+0.5j\n2,-1j\n", "0 (1+2i)\n1 (-3.0+.5e0i)\n2 (0-1i)\n"})
        EXPECT_EQ(records(text, {"--time-unit", "s"})[0].complex, expected) << text;
    EXPECT_EQ(records("0.0 1 2\n0.1 -3 0.5\n0.2 0 -1\n", {"--complex"})[0].complex, expected);
}

TEST(Text, TakesLongLinesForColumns)
{
    const std::vector<Record> found = records("0 .1 .2 .3 .4 .5 .6 .7 .8 .9 1.0 1.1 1.2 1.3 1.4 1.5\n"
                                              "9 8 7 6 5 4 3 2 1 0 1 2 3 4 5 6\n");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].size(), 16u);
    EXPECT_DOUBLE_EQ(found[0].spacing, 0.1);
}

TEST(Times, AreAcceptedWithinTheirPrint)
{
    // Whatever the format, the spacing is found better than one printed step shows it.
    for (const char* format : {"%.4e %d\n", "%.5g %d\n", "%.14f %d\n"}) {
        std::string text;
        for (int k = 0; k < 2000; ++k) {
            char line[80];
            std::snprintf(line, sizeof line, format, 1e-9 + k * 3.3356e-12, k % 7);
            text += line;
        }
        const Record record = records(text)[0];
        EXPECT_NEAR(record.spacing, 3.3356e-12, 3.3356e-12 * 3e-6) << format;
        EXPECT_GT(record.spacingError, 0) << format;
        // The spacing to all digits is welcome, another one is not.
        EXPECT_EQ(records(text, {"--dt", "3.3356ps"})[0].spacing, 3.3356e-12);
        EXPECT_NE(refusal(text, {"--dt", "3.4e-12"}), "");
    }
}

TEST(Times, CountStepsOfDt)
{
    const std::string text = "step,Ez\n100,1\n110,2\n120,3\n";
    EXPECT_EQ(records(text)[0].unit.name, "steps");
    EXPECT_EQ(records(text)[0].spacing, 10.0);
    const Record record = records(text, {"--dt", "2ps"})[0];
    EXPECT_EQ(record.unit.name, "s");
    EXPECT_DOUBLE_EQ(record.spacing, 20e-12);
    EXPECT_DOUBLE_EQ(record.start, 200e-12);
    EXPECT_EQ(records("1\n2\n3\n", {"--dt", "2ps", "--time-unit", "ns"})[0].spacing, 2e-3);
}

struct Refusal
{
    const char* name;
    std::string text;
    std::vector<std::string> arguments;
    std::string says; ///< part of the line
};

class EveryMistake : public testing::TestWithParam<Refusal>
{};

TEST_P(EveryMistake, HasItsLine)
{
    const std::string line = refusal(GetParam().text, GetParam().arguments);
    EXPECT_NE(line.find(GetParam().says), line.npos) << "it said: " << line;
    EXPECT_EQ(line.find('\n'), line.npos);
}

const std::string kRising = "0 1\n1 2\n2 3\n3 1\n4 2\n5 1\n6 2\n7 1\n8 2\n";

INSTANTIATE_TEST_SUITE_P(
    Text, EveryMistake,
    testing::Values(
        Refusal{"decimal_commas", "t;y\n0,1;2,5\n0,2;3,5\n", {}, "FILE:2: decimal commas, as in '0,1'"},
        Refusal{"decimal_commas_apart_by_blanks", "0,001 1,5\n0,002 2,5\n", {}, "FILE:1: decimal commas"},
        Refusal{"one_column_of_decimal_commas", "0,05\n0,07\n", {"--dt", "1"}, "FILE:1: decimal commas"},
        Refusal{"utf16", std::string("0\0 \0001\0\n\0001\0 \0002\0\n\0", 16), {}, "UTF-16"},
        Refusal{"utf16_with_mark",
                "\xff\xfe"
                "0",
                {},
                "UTF-16"},
        Refusal{"binary", std::string("1 2\n\0\0\1\2\3", 9), {}, "binary"},
        Refusal{"zip", "PK\x03\x04zzz", {}, "ZIP archive"},
        Refusal{"prose", "Nothing here\nrings\n", {}, "no line of numbers"},
        Refusal{"word_among_numbers", "0 1\n1 x\n", {}, "FILE:2: 'x' is not a number"},
        Refusal{"empty_field", "0,1\n1,\n2,3\n", {}, "FILE:2: 1 column, where the lines before have 2"},
        Refusal{"empty_field_within", "0,1,2\n1,,2\n", {}, "FILE:2: column 2 is empty"},
        Refusal{"column_too_many", "0 1\n1 2\n2 3 4\n", {}, "FILE:3: 3 columns, where the lines before have 2"},
        Refusal{"nan", "0 1\n1 nan\n2 3\n", {}, "FILE:2: the sample in column 2 is nan"},
        Refusal{"beyond_the_range", "0 1\n1 1e999\n2 3\n", {}, "FILE:2: the sample in column 2 is inf"},
        Refusal{"missing_row",
                "# t y\n0 1\n1 2\n2 1\n4 3\n5 1\n6 2\n7 1\n8 2\n9 3\n10 1\n11 2\n12 1\n13 1\n14 2\n",
                {},
                "FILE:5: the time 4 stands behind 2, where the spacing is 1: a row is missing"},
        Refusal{
            "time_goes_back", "0 1\n1 2\n2 1\n0 1\n1 2\n2 1\n", {}, "FILE:4: the time 0 stands behind 2: it goes back"},
        Refusal{"unequal_times", "0 1\n1 2\n2 1\n3.25 3\n4 1\n5 2\n6 1\n", {}, "FILE:4: the time 3.25"},
        Refusal{"falling_times", "3 1\n2 2\n1 1\n0 3\n", {}, "the times do not rise"},
        Refusal{"dt_beside_times",
                "0.0 1\n0.5 2\n1.0 3\n",
                {"--dt", "0.1"},
                "column 1 holds times, 0.5 s apart, and --dt says 0.1"},
        Refusal{"dt_beside_broken_times", kRising + "11 3\n", {"--dt", "0.1"}, "FILE:10: the time 11"},
        Refusal{"no_times", "1\n2\n", {}, "--dt"},
        Refusal{"no_such_column", "time,Ez\n0,1\n1,2\n", {"--column", "Hx"}, "no column 'Hx'; there are 'time', 'Ez'"},
        Refusal{"column_of_times", "time,Ez\n0,1\n1,2\n", {"--column", "time"}, "'time' holds the times"},
        Refusal{"times_alone", "time\n0\n1\n", {}, "no samples"},
        Refusal{"odd_parts", "0 1 2 3\n.5 1 2 3\n", {"--complex"}, "no pairs"},
        Refusal{
            "two_units", "time (ns),Ez\n0,1\n1,2\n", {"--time-unit", "ps"}, "the header says that times are in ns"}),
    [](const auto& test) { return test.param.name; });

// .npy files, made here byte by byte.
std::string npy(const std::string& type, const std::string& shape, const std::string& data, const char* order = "False")
{
    std::string header = "{'descr': " + type + ", 'fortran_order': " + order + ", 'shape': " + shape + ", }\n";
    std::string bytes("\x93NUMPY\x01\x00", 8);
    bytes += static_cast<char>(header.size() & 255);
    bytes += static_cast<char>(header.size() >> 8);
    return bytes + header + data;
}

template <class T>
std::string bytes_of(std::initializer_list<T> values)
{
    return {reinterpret_cast<const char*>(values.begin()), values.size() * sizeof(T)};
}

TEST(Npy, ReadsTypesOrdersAndShapes)
{
    const std::vector<double> expected{1, -2, 3};
    EXPECT_EQ(read_npy(npy("'<f8'", "(3,)", bytes_of<double>({1, -2, 3})), {}).columns[0].real, expected);
    EXPECT_EQ(read_npy(npy("'<f4'", "(3, 1)", bytes_of<float>({1, -2, 3})), {}).columns[0].real, expected);
    EXPECT_EQ(read_npy(npy("'|i1'", "(1, 3)", "\x01\xfe\x03"), {}).columns[0].real, expected);
    EXPECT_EQ(read_npy(npy("'>i2'", "(3,)", std::string("\0\1\xff\xfe\0\3", 6)), {}).columns[0].real, expected);
    EXPECT_EQ(read_npy(npy("'<f2'", "(3,)", std::string("\x00\x3c\x00\xc0\x00\x42", 6)), {}).columns[0].real, expected);
    const Columns complex = read_npy(npy("'<c8'", "(3,)", bytes_of<float>({1, 4, -2, 5, 3, 6})), {});
    EXPECT_EQ(complex.columns[0].real, expected);
    EXPECT_EQ(complex.columns[0].imag, (std::vector<double>{4, 5, 6}));
    // Two columns of three, in both orders of storage and on either axis.
    const std::string rows = bytes_of<double>({1, 10, -2, 20, 3, 30}),
                      columns = bytes_of<double>({1, -2, 3, 10, 20, 30});
    for (const Columns& two :
         {read_npy(npy("'<f8'", "(3, 2)", rows), {}), read_npy(npy("'<f8'", "(3, 2)", columns, "True"), {}),
          read_npy(npy("'<f8'", "(2, 3)", columns), 1), read_npy(npy("'<f8'", "(2, 3)", rows, "True"), 1)}) {
        ASSERT_EQ(two.columns.size(), 2u);
        EXPECT_EQ(two.columns[0].real, expected);
        EXPECT_EQ(two.columns[1].real, (std::vector<double>{10, 20, 30}));
    }
    const Columns fields = read_npy(npy("[('t', '<f8'), ('Ez', '<f8')]", "(3,)", rows), {});
    EXPECT_EQ(fields.columns[1].name, "Ez");
    EXPECT_EQ(fields.columns[0].real, expected);
}

TEST(Npy, RefusesTheRest)
{
    const auto says = [](const std::string& bytes, const char* part) {
        try {
            read_npy(bytes, {});
            ADD_FAILURE() << "accepted, not: " << part;
        } catch (const Error& error) {
            EXPECT_NE(std::strstr(error.what(), part), nullptr) << error.what();
        }
    };
    says(npy("'<f8'", "(3,)", bytes_of<double>({1, 2})), "is cut: 2 of 3 elements");
    says(npy("'<f8'", "(4294967296, 4294967297)", ""), "is cut");
    says(npy("'|O'", "(3,)", "xxxxxxxxxxxxxxxxxxxxxxxx"), "elements of type '|O'");
    says(npy("'<U4'", "(3,)", ""), "elements of type '<U4'");
    says(npy("'<f8'", "(2, 2, 2)", std::string(64, 'x')), "3 dimensions");
    says(npy("'<f8'", "(3, 3)", std::string(72, 'x')), "--axis");
    says(npy("'<f8'", "(0,)", ""), "empty array");
    says(npy("'<f8'", "()", std::string(8, 'x')), "single number");
    says(npy("'<f8'", "(3,)", "").substr(0, 30), "cut within its header");
    says(npy("<f8", "(3,)", ""), "cannot be understood");
}

TEST(Source, UnpacksAndTakesApart)
{
    EXPECT_THROW(unpack_gzip(std::string("\x1f\x8b\x08\0\0\0\0\0\0\3", 10)), Error);
    EXPECT_THROW(unpack_gzip("\x1f\x8bxxxxxxxxxxxxxxxxx"), Error);
    const Source source = parse_source("run:1.h5:/a/b:c");
    EXPECT_EQ(source.file, "run:1.h5");
    EXPECT_EQ(source.dataset, "/a/b:c");
    EXPECT_EQ(parse_source("-").file, "-");
}

TEST(Options, RefuseWhatMeansNothing)
{
    using Words = std::vector<std::string>;
    for (const Words& words : {Words{},
                               Words{"--json", "--csv", "f"},
                               Words{"--dt", "-1", "f"},
                               Words{"--dt", "0", "f"},
                               Words{"--dt", "1m", "f"},
                               Words{"--dt", "nan", "f"},
                               Words{"--band", "2:1", "f"},
                               Words{"--band", "1GHz:900MHz", "f"},
                               Words{"--band", "1GHz:2e9", "f"},
                               Words{"--band", ":", "f"},
                               Words{"--axis", "2", "f"},
                               Words{"--max-modes", "0", "f"},
                               Words{"--max-modes", "1.5", "f"},
                               Words{"--jobs", "-1", "f"},
                               Words{"--noise", "0", "f"},
                               Words{"--plot", "x.gif", "f"},
                               Words{"--plot"},
                               Words{"--quite", "f"},
                               Words{"-", "-"},
                               Words{"--time-unit", "steps", "--dt", "1ps", "f"}})
        EXPECT_THROW(parse_command_line(words), UsageError)
            << (words.empty() ? "" : words[0] + " " + words[words.size() > 1]);
    const Options options = parse_command_line({"--band", "-0.5:4", "--start", "-1e-9", "-", "-q"}).options;
    EXPECT_EQ(options.lowest->value, -0.5);
    EXPECT_EQ(options.start->value, -1e-9);
    EXPECT_EQ(in_unit(parse_time("--dt", "3.3 ps"), TimeUnit{}), 3.3e-12);
    EXPECT_EQ(in_inverse_unit(parse_frequency("--band", "1.5GHz"), *known_unit("ns")), 1.5);
}

TEST(Number, HasItsErrorInTheLastDigits)
{
    EXPECT_EQ(short_form(1.5030910261, 1.2e-8), "1.503 091 026(12)");
    EXPECT_EQ(short_form(-87.8047, 0.1449), "-87.80(14)");
    EXPECT_EQ(short_form(3.42, 1.23), "3.4(1.2)");
    EXPECT_EQ(short_form(1234.4, 12.3), "1 234(12)");
    EXPECT_EQ(short_form(12345.6, 321), "12 350(320)");
    EXPECT_EQ(short_form(9.9996, 0.00996), "10.000(10)");
    EXPECT_EQ(short_form(1.23e-6, 4.5e-9), "1.230 0(45)e-6");
    EXPECT_EQ(short_form(0, 2e-5), "0.0(2.0)e-5");
    EXPECT_EQ(short_form(1.0 / 3, 0), "0.333 333 333 333 333 3");
    EXPECT_EQ(plain_form(9.94e-5, 2), "9.9e-5");
    EXPECT_EQ(plain_form(608427, 3), "608 000");
}

} // namespace
