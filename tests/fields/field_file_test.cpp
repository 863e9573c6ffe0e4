// Fields in files of every layout, written here: each part of each is read as it was written, or a line says why not.
#include "fields/fields.h"
#include "fields/io/field_file.h"

#include "app/error.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <thread>

using namespace tessel;
using app::Id;

namespace {

constexpr std::size_t kSteps = 13;

double value_at(std::size_t step, std::size_t point)
{
    return 1000.0 * static_cast<double>(step) + static_cast<double>(point);
}

/// How a field lies in its file.
struct Layout
{
    const char* name;
    std::vector<hsize_t> space;
    bool timeLast = false, complex = false, single = false, swapped = false, members = false;
    std::vector<hsize_t> chunk = {}; ///< in the order of the file; with gzip
};

void PrintTo(const Layout& layout, std::ostream* stream)
{
    *stream << layout.name;
}

class FieldFiles : public testing::TestWithParam<Layout>
{
protected:
    FieldFiles() : name_(testing::TempDir() + "/tessel-field-" + std::to_string(getpid()) + ".h5")
    {
        const Id list(H5Pcreate(H5P_FILE_CREATE), H5Pclose);
        H5Pset_userblock(list, 512); // addresses are not places in the file
        file_.emplace(H5Fcreate(name_.c_str(), H5F_ACC_TRUNC, list, H5P_DEFAULT), H5Fclose);
    }
    ~FieldFiles() override
    {
        file_.reset();
        std::filesystem::remove(name_);
    }

    void add(const std::string& name, const std::vector<hsize_t>& dims, hid_t type, hid_t memory, const void* data,
             const std::vector<hsize_t>& chunk = {}, const std::vector<hsize_t>& most = {})
    {
        const Id space(
            H5Screate_simple(static_cast<int>(dims.size()), dims.data(), most.empty() ? nullptr : most.data()),
            H5Sclose);
        const Id links(H5Pcreate(H5P_LINK_CREATE), H5Pclose), list(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
        H5Pset_create_intermediate_group(links, 1);
        if (!chunk.empty()) {
            H5Pset_chunk(list, static_cast<int>(chunk.size()), chunk.data());
            H5Pset_deflate(list, 1);
        }
        const Id dataset(H5Dcreate2(*file_, name.c_str(), type, space, links, list, H5P_DEFAULT), H5Dclose);
        if (data)
            H5Dwrite(dataset, memory, H5S_ALL, H5S_ALL, H5P_DEFAULT, data);
    }

    void attribute(const char* object, const char* name, double value)
    {
        const Id space(H5Screate(H5S_SCALAR), H5Sclose), holder(H5Oopen(*file_, object, H5P_DEFAULT), H5Oclose);
        const Id id(H5Acreate2(holder, name, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
        H5Awrite(id, H5T_NATIVE_DOUBLE, &value);
    }

    std::unique_ptr<fields::FieldFile> open(const std::string& path, std::optional<double> spacing = 1.0,
                                            std::optional<bool> timeLast = {})
    {
        file_.reset();
        fields::Reading reading{name_, path, timeLast, {}, {}};
        if (spacing)
            reading.spacing = app::Quantity{*spacing, {}};
        return std::make_unique<fields::FieldFile>(reading);
    }

    std::string refusal(const std::string& path, std::optional<double> spacing = 1.0)
    {
        try {
            open(path, spacing);
        } catch (const app::Error& error) {
            return error.what();
        }
        return "";
    }

    std::string name_;
    std::optional<Id> file_;
};

TEST_P(FieldFiles, EveryPartIsReadAsItWasWritten)
{
    const Layout& layout = GetParam();
    std::size_t points = 1;
    for (const hsize_t extent : layout.space)
        points *= extent;
    const std::size_t parts = layout.complex ? 2 : 1;
    const hid_t number = layout.single ? H5T_NATIVE_FLOAT : layout.swapped ? H5T_IEEE_F64BE : H5T_NATIVE_DOUBLE;
    const auto type_of = [&](hid_t part) {
        Id type(layout.complex ? H5Tcreate(H5T_COMPOUND, 2 * H5Tget_size(part)) : H5Tcopy(part), H5Tclose);
        if (layout.complex) {
            H5Tinsert(type, "real", 0, part);
            H5Tinsert(type, "imag", H5Tget_size(part), part);
        }
        return type;
    };
    const Id type = type_of(number), memory = type_of(H5T_NATIVE_DOUBLE);
    std::vector<double> data(kSteps * points * parts);
    for (std::size_t step = 0; step < kSteps; ++step)
        for (std::size_t point = 0; point < points; ++point) {
            const std::size_t at = parts * (layout.timeLast ? point * kSteps + step : step * points + point);
            data[at] = value_at(step, point);
            data[at + parts - 1] = layout.complex ? -value_at(step, point) : data[at];
        }
    if (layout.members) {
        for (std::size_t step = 0; step < kSteps; ++step)
            add("/field/Ez" + std::to_string(20 + 5 * step) + "_", layout.space, type, memory,
                data.data() + step * points * parts);
        attribute("/", "dt", 0.5);
    } else {
        std::vector<hsize_t> dims = layout.space;
        dims.insert(layout.timeLast ? dims.end() : dims.begin(), kSteps);
        add("/field", dims, type, memory, data.data(), layout.chunk);
        attribute("/field", "dt", 2.5);
        attribute("/field", "t0", 10);
    }
    const auto file = open("/field", {}, layout.timeLast);
    const fields::Shape& shape = file->shape();
    EXPECT_EQ(shape.steps, kSteps);
    EXPECT_EQ(shape.points(), points);
    EXPECT_EQ(shape.spacing, 2.5);
    EXPECT_EQ(shape.start, 10);
    EXPECT_EQ(shape.single, layout.single);
    EXPECT_EQ(shape.timeFirst, !layout.timeLast);

    std::mt19937 draw(1);
    for (int k = 0; k < 200; ++k) {
        fields::Range range{draw() % kSteps, 0, draw() % points, 0};
        range.endStep = range.firstStep + 1 + draw() % (kSteps - range.firstStep);
        range.endPoint = range.firstPoint + 1 + draw() % (points - range.firstPoint);
        const std::size_t count = range.steps() * range.points();
        const auto check = [&](auto sample) {
            std::vector<decltype(sample)> re(count, 0.25f), im(layout.complex ? count : 0);
            file->read(range, re.data(), im.data());
            const fields::Strides strides(shape, range);
            for (std::size_t n = 0; n < count; ++n) {
                const std::size_t step = n / range.points(), point = n % range.points();
                const std::size_t at = step * strides.step + point * strides.point;
                const double expected = value_at(range.firstStep + step, range.firstPoint + point);
                ASSERT_EQ(re[at], expected);
                ASSERT_TRUE(im.empty() || im[at] == -expected);
            }
        };
        check(0.0);
        check(0.0f);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, FieldFiles,
    testing::Values(Layout{"Line", {70}}, Layout{"Plane", {6, 11}}, Layout{"Space", {3, 4, 5}},
                    Layout{"Flat", {1, 4, 1, 5}}, Layout{.name = "LineLast", .space = {70}, .timeLast = true},
                    Layout{.name = "SpaceLast", .space = {3, 4, 5}, .timeLast = true},
                    Layout{.name = "Single", .space = {6, 11}, .single = true},
                    Layout{.name = "Swapped", .space = {6, 11}, .swapped = true},
                    Layout{.name = "Complex", .space = {6, 11}, .complex = true},
                    Layout{
                        .name = "ComplexLast", .space = {3, 4, 5}, .timeLast = true, .complex = true, .single = true},
                    Layout{.name = "Packed", .space = {6, 11}, .chunk = {5, 4, 3}},
                    Layout{.name = "PackedLast", .space = {3, 4, 5}, .timeLast = true, .chunk = {1, 3, 2, 6}},
                    Layout{.name = "Members", .space = {6, 11}, .members = true},
                    Layout{.name = "ComplexMembers", .space = {3, 4, 5}, .complex = true, .members = true}),
    [](const auto& layout) { return std::string(layout.param.name); });

class OneFieldFile : public FieldFiles
{};
INSTANTIATE_TEST_SUITE_P(, OneFieldFile, testing::Values(Layout{"", {}}));

TEST_P(OneFieldFile, TellsTheAxisOfTime)
{
    const std::vector<double> data(5 * 6 * 7), times{0, 1, 2, 3, 4, 5, 6};
    add("/a/grows", {5, 6, 7}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data(), {5, 6, 1}, {5, 6, H5S_UNLIMITED});
    add("/b/field", {5, 6, 7}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data());
    add("/b/time", {7}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, times.data());
    add("/c/field", {5, 6, 7}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data());
    EXPECT_EQ(open("/a/grows")->shape().steps, 7);
    EXPECT_EQ(open("/b/field", {})->shape().steps, 7);
    const auto file = open("/c/field");
    EXPECT_EQ(file->shape().steps, 5);
    EXPECT_NE(file->notes().at(0).find("--time-axis last"), std::string::npos);
}

TEST_P(OneFieldFile, FindsTheStepsInGroupsOfGroups)
{
    for (const std::size_t number : {100, 90, 110, 80}) { // not in the order of their names
        const std::string step = "/data/" + std::to_string(number), run = "/run/step_" + std::to_string(number) + "x";
        const std::vector<double> data(6, static_cast<double>(number));
        for (const std::string& name : {step + "/fields/E/z", step + "/fields/E/x", run + "/Ez"})
            add(name, {2, 3}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data());
        attribute(step.c_str(), "time", 0.5 * static_cast<double>(number));
        attribute(step.c_str(), "dt", 0.25);
        attribute(step.c_str(), "timeUnitSI", 1e-15);
        attribute(run.c_str(), "time", 0); // nobody set it
        attribute(run.c_str(), "dt", 0.25);
    }
    for (const auto& [path, start, spacing] :
         {std::tuple{"/data/%/fields/E/z", 40e-15, 5e-15}, {"/run/step_%x/Ez", 20.0, 2.5}}) {
        const auto file = open(path, {});
        EXPECT_EQ(file->shape().steps, 4U);
        EXPECT_NEAR(file->shape().start, start, 1e-12 * start);
        EXPECT_NEAR(file->shape().spacing, spacing, 1e-12 * spacing);
        std::vector<double> to(8);
        file->read({0, 4, 1, 3}, to.data(), nullptr);
        EXPECT_EQ(to, (std::vector<double>{80, 80, 90, 90, 100, 100, 110, 110}));
    }
    for (const auto& [path, says] : {std::pair{"/data", "as FILE:/data/%/NAME"},
                                     {"/data/%/fields/%/z", "more than one '%'"},
                                     {"/data/%5/fields/E/z", "holds 0 such members"},
                                     {"/none/%/Ez", "no group '/none/'"},
                                     {"/data/%/fields/H/z", "'/data/80/fields/H/z' is no dataset"}})
        EXPECT_NE(refusal(path, {}).find(says), std::string::npos) << path << ": " << refusal(path, {});
}

TEST_P(OneFieldFile, RefusesTheRest)
{
    const std::vector<double> data(64);
    const Id text(H5Tcopy(H5T_C_S1), H5Tclose);
    add("/whole", {4, 4}, H5T_NATIVE_INT, H5T_NATIVE_DOUBLE, data.data());
    add("/text", {4, 4}, text, text, nullptr);
    add("/record", {16}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data());
    add("/five", {2, 2, 2, 2, 2}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data());
    add("/empty", {0, 4}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, nullptr);
    add("/unwritten", {4, 4}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, nullptr);
    add("/chunks", {4, 4}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, nullptr, {2, 2});
    for (const char* name : {"/gap/1", "/gap/2", "/gap/4"})
        add(name, {4, 4}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data());
    for (const char* name : {"/mixed/1", "/mixed/2"})
        add(name, {4, name[7] == '1' ? hsize_t(4) : hsize_t(3)}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data());
    for (const auto& [path, says] : {std::pair{"/whole", "whole numbers"},
                                     {"/text", "text"},
                                     {"/record", "tessel-modes"},
                                     {"/five", "4 dimensions of space"},
                                     {"/empty", "is empty"},
                                     {"/unwritten", "nothing was written"},
                                     {"/chunks", "0 of the dataset's 4 chunks"},
                                     {"/gap", "'/gap/4' follows '/gap/2'"},
                                     {"/mixed", "shape"},
                                     {"/none", "no '/none' inside"},
                                     {"/", "say which"}})
        EXPECT_NE(refusal(path).find(says), std::string::npos) << path << ": " << refusal(path);
    EXPECT_NE(refusal("/five/", {}).find("4 dimensions"), std::string::npos);
    EXPECT_NE(refusal("/gap/1", {}).find("--dt"), std::string::npos);
    std::filesystem::resize_file(name_, 3000);
    EXPECT_NE(refusal("/whole").find("damaged, cut"), std::string::npos);
}

TEST_P(OneFieldFile, NoticesThatItChanges)
{
    const std::vector<double> data(64);
    add("/field", {8, 8}, H5T_NATIVE_DOUBLE, H5T_NATIVE_DOUBLE, data.data());
    const auto file = open("/field");
    std::vector<double> to(64);
    file->read({0, 8, 0, 8}, to.data(), nullptr);
    std::FILE* const stream = std::fopen(name_.c_str(), "ab");
    std::fputc(0, stream);
    std::fclose(stream);
    EXPECT_THROW(file->read({0, 8, 0, 8}, to.data(), nullptr), fields::Error);
}

} // namespace
