#include "tests/support/library.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <type_traits>
#include <utility>

namespace tessel::testing {
namespace {

constexpr std::int32_t kOne = 1;
constexpr double kPrecision = 2.22044604926e-16;

/// Whether both exports can be called: the factory, and the fit with too few samples.
bool answers(const Library& library)
{
    const double dt = 1.0;
    std::int32_t flag = 77;
    library.fit(&kOne, &kOne, nullptr, &dt, &kOne, &kOne, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                &flag, nullptr, 0);
    return flag == -1 && library.create()->dpmpar(&kOne) == kPrecision;
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

TEST(Loader, SaysWhatFailed)
{
    EXPECT_EQ(load_error("/nowhere/libtessel.so.1"),
              "Tessel cannot be loaded: /nowhere/libtessel.so.1: cannot open shared object file: No such file or "
              "directory");
    EXPECT_EQ(load_error(TESSEL_HALF_LIBRARY),
              TESSEL_HALF_LIBRARY " is not Tessel: it does not export createFDTDCalcApi");
    EXPECT_FALSE(is_loaded(TESSEL_HALF_LIBRARY)) << "it is closed again";
    EXPECT_THROW(Library(TESSEL_POOR_LIBRARY).create(), std::bad_alloc);
}

TEST(Loader, KeepsTheLibraryAsLongAsAnObjectOfIt)
{
    ASSERT_FALSE(is_loaded(TESSEL_LIBRARY));
    Api first, second;
    {
        const Library library(TESSEL_LIBRARY);
        first = library.create();
        second = library.create();
        library.create(); // the heap has a place for an object now
        const std::size_t heap = mallinfo2().uordblks;
        library.create();
        EXPECT_EQ(mallinfo2().uordblks, heap) << "the object is deleted with its owner";
    }
    EXPECT_EQ(first->dpmpar(&kOne), kPrecision);
    first = std::move(second); // deletes an object while it takes another
    EXPECT_EQ(first->dpmpar(&kOne), kPrecision);
    EXPECT_TRUE(is_loaded(TESSEL_LIBRARY));
    first = Api();
    EXPECT_FALSE(is_loaded(TESSEL_LIBRARY));
}

TEST(Loader, MovesAndCopies)
{
    static_assert(std::is_nothrow_move_constructible_v<Library>, "or containers would copy it");
    static_assert(std::is_nothrow_move_assignable_v<Library>);
    Library library(TESSEL_LIBRARY);
    Library moved(std::move(library));
    EXPECT_FALSE(library); // NOLINT(bugprone-use-after-move): what is left is specified
    EXPECT_TRUE(answers(moved));
    library = std::move(moved);
    EXPECT_TRUE(library);

    Library copy(library);
    library.close();
    EXPECT_FALSE(library);
    EXPECT_TRUE(answers(copy)) << "a copy holds the library open";
    library = Library(TESSEL_LIBRARY); // a closed one takes another
    copy.close();
    EXPECT_TRUE(answers(library));
    library.close();
    EXPECT_FALSE(is_loaded(TESSEL_LIBRARY));
}

} // namespace
} // namespace tessel::testing
