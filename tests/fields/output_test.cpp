// What is written: outputs in several parts, disks that are full, what a stopped run leaves.
#include "fields/io/output.h"
#include "fields/io/work_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>

using namespace tessel;
using app::Id;

namespace {

// As the program: at exit HDF5 would write the rest of the files that did not fit, and fault. Before its first use.
[[maybe_unused]] const herr_t kNothingAtExit = H5dont_atexit();

class Files : public testing::Test
{
protected:
    Files() : folder_(testing::TempDir() + "/tessel-output-" + std::to_string(getpid()))
    {
        std::filesystem::create_directory(folder_);
        shape_.space = {5, 31, 37};
        shape_.steps = 10;
        outcome_.modes.resize(3);
    }
    ~Files() override { std::filesystem::remove_all(folder_); }

    std::size_t files() const
    {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder_), std::filesystem::directory_iterator()));
    }

    /// Of a mode at a point.
    static double amplitude_at(std::size_t mode, std::size_t point)
    {
        return 1.0 + 1e4 * static_cast<double>(mode) + static_cast<double>(point);
    }

    void write(std::size_t memory)
    {
        fields::Output output(folder_ + "/o.h5", shape_, {}, team_, memory, [] { return false; });
        output.begin(outcome_, {"A remark."});
        for (std::size_t first = 0; first < shape_.points(); first += fields::kBlock) {
            fields::Profiles part;
            part.firstPoint = first;
            part.points = std::min(fields::kBlock, shape_.points() - first);
            for (std::size_t mode = 0; mode < outcome_.modes.size(); ++mode)
                for (std::size_t point = first; point < first + part.points; ++point)
                    part.amplitude.push_back(amplitude_at(mode, point));
            part.phase.assign(part.amplitude.size(), 2.0);
            part.amplitudeError = part.phaseError = part.real = part.amplitude;
            part.imag.assign(part.amplitude.size(), -0.5);
            output.add(part);
        }
        output.finish();
    }

    std::string folder_;
    fields::Team team_;
    fields::Shape shape_;
    fields::Outcome outcome_;
};

TEST_F(Files, HoldWhatWasAddedInParts)
{
    write(1);
    ASSERT_EQ(files(), 2U);
    const Id file(H5Fopen((folder_ + "/o.h5").c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose);
    const Id amplitude(H5Dopen2(file, "profiles/amplitude_se", H5P_DEFAULT), H5Dclose),
        imag(H5Dopen2(file, "profiles/imag", H5P_DEFAULT), H5Dclose);
    const std::size_t points = shape_.points();
    std::vector<double> values(3 * points), sines(values.size());
    ASSERT_GE(H5Dread(amplitude, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0);
    ASSERT_GE(H5Dread(imag, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, sines.data()), 0);
    for (std::size_t k = 0; k < values.size(); ++k) {
        ASSERT_EQ(values[k], amplitude_at(k / points, k % points));
        ASSERT_EQ(sines[k], -0.5);
    }
}

TEST_F(Files, AreNotThereWhereTheyDoNotFit)
{
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, SIG_IGN);
    for (const rlim_t most : {0, 20000, 700000}) {
        const rlimit limit{most, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::string says;
        try {
            write(1 << 20);
        } catch (const fields::Error& error) {
            says = error.what();
        }
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_NE(says.find("o.h5: cannot be written"), std::string::npos) << says;
        EXPECT_EQ(files(), 0U);
    }
    write(1 << 20);
    EXPECT_EQ(files(), 2U);
}

TEST_F(Files, GiveBackWhatAStoppedRunKept)
{
    constexpr std::size_t blocks = 6, doubles = 7;
    const std::string path = folder_ + "/work";
    const auto open = [&](const char* identity, bool resume) {
        return fields::WorkFile(path, identity, blocks * fields::kBlock - 5, resume, team_);
    };
    {
        fields::WorkFile file = open("field", true);
        EXPECT_FALSE(file.resumed());
        EXPECT_THROW(open("field", false), fields::Error); // is in use
        file.keep("one", "first");
        file.keep("two", std::string("\0second", 7));
        file.begin("pass", doubles);
        for (const std::size_t block : {0, 2, 3})
            file.put(block, std::vector<double>(doubles, 0.5 + static_cast<double>(block)).data(), doubles);
    }
    {
        // A value of block 3 did not reach the disk.
        std::fstream stream(path, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(-8, std::ios::end);
        stream.put(1);
    }
    EXPECT_THROW(open("another field", true), fields::Error);
    fields::WorkFile file = open("field", true);
    EXPECT_TRUE(file.resumed());
    EXPECT_EQ(file.text("two"), std::string("\0second", 7));
    EXPECT_FALSE(file.text("three"));
    file.begin("pass", doubles);
    for (std::size_t block = 0; block < blocks; ++block)
        EXPECT_EQ(file.has(block), block == 0 || block == 2) << block;
    std::vector<double> values(doubles);
    file.get(2, values.data(), doubles);
    EXPECT_EQ(values, std::vector<double>(doubles, 2.5));
    file.begin("another pass", doubles);
    EXPECT_FALSE(file.has(2));
    file.remove();
    EXPECT_EQ(files(), 0U);
}

} // namespace
