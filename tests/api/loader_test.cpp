#include <tessel/Loader.h>

#include <gtest/gtest.h>
#include <malloc.h>

#include <cmath>
#include <complex>
#include <type_traits>
#include <utility>

namespace tessel::testing {
namespace {

bool is_loaded()
{
    void* const handle = dlopen(TESSEL_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}

std::string load_error(const std::string& path)
{
    try {
        const Library library(path);
    } catch (const LoadError& error) {
        return error.what();
    }
    return "no error";
}

double machine_precision(const Api& api)
{
    const std::int32_t one = 1;
    return api->dpmpar(&one);
}

constexpr double kPrecision = 2.22044604926e-16;

TEST(Loader, FetchesBothExports)
{
    const Library library(TESSEL_LIBRARY);
    library.create(); // what the first call of anything allocates is there now
    const std::size_t heap = mallinfo2().uordblks;
    EXPECT_EQ(machine_precision(library.create()), kPrecision);
    EXPECT_EQ(mallinfo2().uordblks, heap) << "the object is deleted with its owner";

    const std::int32_t n = 2, m = 1;
    const double dt = 0.5;
    const std::complex<double> y[] = {1.0, 0.5};
    std::complex<double> residue, pole;
    double measures[5];
    std::int32_t flag = 77;
    char message[80];
    library.fit(&n, &n, y, &dt, &m, &m, &residue, &pole, &measures[0], &measures[1], &measures[2], &measures[3],
                &measures[4], &flag, message, sizeof message);
    EXPECT_EQ(flag, 0);
    EXPECT_NEAR(pole.real(), std::log(0.5) / dt, 1e-14);
}

TEST(Loader, SaysWhatFailed)
{
    EXPECT_EQ(load_error("/nowhere/libtessel.so.1"),
              "Tessel cannot be loaded: /nowhere/libtessel.so.1: cannot open shared object file: No such file or "
              "directory");
    EXPECT_NE(load_error(TESSEL_NOT_A_LIBRARY).find("invalid ELF header"), std::string::npos);
    EXPECT_EQ(load_error("libm.so.6"), "libm.so.6 is not Tessel: it does not export LEASTSQ_PRONY_SVD");
    EXPECT_EQ(load_error(TESSEL_HALF_LIBRARY),
              TESSEL_HALF_LIBRARY " is not Tessel: it does not export createFDTDCalcApi");
    EXPECT_EQ(dlopen(TESSEL_HALF_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "it is closed again";
    EXPECT_THROW(Library(TESSEL_POOR_LIBRARY).create(), std::bad_alloc);
}

TEST(Loader, KeepsTheLibraryAsLongAsAnObjectOfIt)
{
    ASSERT_FALSE(is_loaded());
    Api first, second;
    {
        const Library library(TESSEL_LIBRARY);
        first = library.create();
        second = library.create();
    }
    EXPECT_EQ(machine_precision(first), kPrecision);
    first = std::move(second); // deletes an object while it takes another
    EXPECT_EQ(machine_precision(first), kPrecision);
    EXPECT_TRUE(is_loaded());
    first = Api();
    EXPECT_FALSE(is_loaded());
}

TEST(Loader, MovesAndCopies)
{
    static_assert(std::is_nothrow_move_constructible_v<Library>, "or containers would copy it");
    static_assert(std::is_nothrow_move_assignable_v<Library>);
    Library library(TESSEL_LIBRARY);
    Library moved(std::move(library));
    EXPECT_FALSE(library); // NOLINT(bugprone-use-after-move): what is left is specified
    EXPECT_EQ(machine_precision(moved.create()), kPrecision);
    library = std::move(moved);
    EXPECT_TRUE(library);

    Library copy(library);
    library.close();
    EXPECT_FALSE(library);
    EXPECT_EQ(machine_precision(copy.create()), kPrecision) << "a copy holds the library open";
    library = Library(TESSEL_LIBRARY); // a closed one takes another
    copy.close();
    EXPECT_TRUE(is_loaded());
    library.close();
    EXPECT_FALSE(is_loaded());
}

} // namespace
} // namespace tessel::testing
