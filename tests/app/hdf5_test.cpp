// HDF5 files of many kinds, written here: the modes' record comes out, or a line that says why not.
#include "app/error.h"
#include "app/hdf5_file.h"
#include "app/options.h"
#include "app/records.h"

#include <gtest/gtest.h>
#include <hdf5.h>

#include <filesystem>
#include <fstream>

using namespace tessel::app;

namespace {

class Hdf5 : public testing::Test
{
protected:
    Hdf5()
        : name_(testing::TempDir() + "/tessel-" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".h5")
    {
        file_ = H5Fcreate(name_.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    }
    ~Hdf5() override
    {
        close();
        std::filesystem::remove(name_);
    }

    void close()
    {
        if (file_ >= 0)
            H5Fclose(file_);
        file_ = -1;
    }

    hid_t add(const char* name, std::vector<hsize_t> dims, hid_t type, const void* data, hid_t list = H5P_DEFAULT)
    {
        const hid_t space = H5Screate_simple(static_cast<int>(dims.size()), dims.data(), nullptr);
        const hid_t links = H5Pcreate(H5P_LINK_CREATE);
        H5Pset_create_intermediate_group(links, 1);
        const hid_t dataset = H5Dcreate2(file_, name, type, space, links, list, H5P_DEFAULT);
        if (data)
            H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, data);
        H5Pclose(links);
        H5Sclose(space);
        H5Dclose(dataset);
        return dataset;
    }

    template <class T>
    void attribute(const char* object, const char* name, hid_t type, const T& value)
    {
        const hid_t space = H5Screate(H5S_SCALAR), holder = H5Oopen(file_, object, H5P_DEFAULT);
        const hid_t attribute = H5Acreate2(holder, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
        H5Awrite(attribute, type, &value);
        H5Aclose(attribute);
        H5Oclose(holder);
        H5Sclose(space);
    }

    std::vector<Record> read(const std::string& path, std::vector<std::string> arguments = {})
    {
        close();
        arguments.push_back(name_ + path);
        const Options options = parse_command_line(arguments).options;
        return make_records(read_columns(options.files[0], options), options.files[0], options);
    }

    std::string refusal(const std::string& path, const std::vector<std::string>& arguments = {})
    {
        try {
            read(path, arguments);
        } catch (const Error& error) {
            return error.what();
        }
        return "";
    }

    std::string name_;
    hid_t file_ = -1;
    const std::vector<double> samples_{1, -2, 3, 4, 5, 6};
};

TEST_F(Hdf5, FindsTheSpacingInAnAttributeAbove)
{
    add("/rx/1/Ez", {6}, H5T_NATIVE_DOUBLE, samples_.data());
    attribute("/", "Delta-T", H5T_NATIVE_DOUBLE, 2e-12);
    attribute("/rx", "time_step", H5T_NATIVE_INT, 400); // a count, no spacing
    attribute("/", "t0", H5T_NATIVE_DOUBLE, 1e-9);
    const Record record = read(":/rx/1/Ez")[0];
    EXPECT_EQ(record.real, samples_);
    EXPECT_EQ(record.spacing, 2e-12);
    EXPECT_EQ(record.start, 1e-9);
    EXPECT_EQ(read("", {"--time-unit", "ns"})[0].unit.name, "ns"); // the only dataset
    EXPECT_NE(refusal("", {"--dt", "1"}).find("leave out --dt"), std::string::npos);
}

TEST_F(Hdf5, FindsARateNearestFirst)
{
    add("/Ez", {6, 1}, H5T_NATIVE_DOUBLE, samples_.data());
    attribute("/", "dt", H5T_NATIVE_DOUBLE, 2e-12);
    attribute("/Ez", "Sampling_Rate", H5T_NATIVE_FLOAT, 4.0f);
    EXPECT_EQ(read(":Ez")[0].spacing, 0.25);
}

TEST_F(Hdf5, FindsTimesBeside)
{
    const std::vector<double> times{0.5, 1, 1.5, 2, 2.5, 3};
    add("/g/Ez", {6}, H5T_NATIVE_DOUBLE, samples_.data());
    add("/g/time", {6}, H5T_NATIVE_DOUBLE, times.data());
    const Record record = read(":/g/Ez")[0];
    EXPECT_EQ(record.start, 0.5);
    EXPECT_EQ(record.spacing, 0.5);
    EXPECT_NE(refusal("").find("say which"), std::string::npos);
    EXPECT_NE(refusal(":/h").find("there is 'g/Ez' (6), 'g/time' (6)"), std::string::npos);
}

TEST_F(Hdf5, ReadsRecordsAndTwoDimensions)
{
    const hid_t complex = H5Tcreate(H5T_COMPOUND, 16);
    H5Tinsert(complex, "r", 0, H5T_NATIVE_DOUBLE);
    H5Tinsert(complex, "i", 8, H5T_NATIVE_DOUBLE);
    add("/c", {3}, complex, samples_.data());
    const hid_t fields = H5Tcreate(H5T_COMPOUND, 16);
    H5Tinsert(fields, "t", 0, H5T_NATIVE_DOUBLE);
    H5Tinsert(fields, "Ez", 8, H5T_NATIVE_DOUBLE);
    const std::vector<double> both{0, 7, 1, 8, 2, 9};
    add("/f", {3}, fields, both.data());
    add("/two", {2, 3}, H5T_NATIVE_DOUBLE, samples_.data());
    add("/square", {2, 1, 2}, H5T_NATIVE_DOUBLE, samples_.data());
    EXPECT_EQ(read(":/c", {"--dt", "1"})[0].complex, (std::vector<std::complex<double>>{{1, -2}, {3, 4}, {5, 6}}));
    const Record record = read(":/f")[0];
    EXPECT_EQ(record.column, "Ez");
    EXPECT_EQ(record.real, (std::vector<double>{7, 8, 9}));
    EXPECT_EQ(read(":/two", {"--dt", "1"})[1].real, (std::vector<double>{4, 5, 6}));
    EXPECT_EQ(read(":/two", {"--dt", "1", "--axis", "0"})[2].real, (std::vector<double>{3, 6}));
    EXPECT_NE(refusal(":/square", {"--dt", "1"}).find("--axis"), std::string::npos);
    H5Tclose(complex);
    H5Tclose(fields);
}

TEST_F(Hdf5, RefusesTheRest)
{
    const hid_t text = H5Tcopy(H5T_C_S1);
    H5Tset_size(text, 4);
    add("/text", {2}, text, "abcdefgh");
    H5Tclose(text);
    add("/cube", {2, 3, 2}, H5T_NATIVE_DOUBLE, std::vector<double>(12).data());
    add("/empty", {0}, H5T_NATIVE_DOUBLE, nullptr);
    add("/unwritten", {6}, H5T_NATIVE_DOUBLE, nullptr);
    const hid_t list = H5Pcreate(H5P_DATASET_CREATE);
    const hsize_t chunk = 3, huge = 1 << 20;
    H5Pset_chunk(list, 1, &chunk);
    H5Pset_deflate(list, 6);
    add("/chunks", {6}, H5T_NATIVE_DOUBLE, samples_.data(), list);
    add("/missing", {6}, H5T_NATIVE_DOUBLE, nullptr, list);
    H5Pset_chunk(list, 1, &huge);
    add("/huge", {hsize_t{1} << 50}, H5T_NATIVE_DOUBLE, nullptr, list);
    H5Pclose(list);
    EXPECT_EQ(read(":/chunks", {"--dt", "1"})[0].real, samples_);
    for (const auto& [path, says] : {std::pair{":/text", "holds text"},
                                     {":/cube", "one or two dimensions"},
                                     {":/empty", "0 values"},
                                     {":/unwritten", "nothing was written"},
                                     {":/missing", "0 of the dataset's 2 chunks"},
                                     {":/huge", "too large"},
                                     {":/chunks", "--dt"},
                                     {":/no", "no '/no' inside"}})
        EXPECT_NE(refusal(path).find(says), std::string::npos) << path << ": " << refusal(path);
    std::filesystem::resize_file(name_, 700);
    EXPECT_NE(refusal(":/chunks").find("damaged, cut"), std::string::npos);
}

} // namespace
