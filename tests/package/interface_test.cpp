// A host that is compiled separately from the library: C++11, the public headers, and nothing of the library at link
// time. The build compiles this file with every compiler that it finds; all of them load the same library.
#include <tessel/Loader.h>

#include <cxxabi.h>

#include <gtest/gtest.h>

#include <type_traits>
#include <typeinfo>

namespace {

static_assert(std::is_abstract<FDTDCalcAPI>::value && std::has_virtual_destructor<FDTDCalcAPI>::value, "");
static_assert(sizeof(FDTDCalcAPI) == sizeof(void*), "no data");

const tessel::Library& library()
{
    static const tessel::Library loaded(TESSEL_LIBRARY);
    return loaded;
}

TEST(Interface, EachCallGivesAnObjectOfItsOwn)
{
    tessel::Api first = library().create(), second = library().create();
    EXPECT_NE(first.get(), second.get());
    first.reset();
    const std::int32_t one = 1;
    EXPECT_EQ(second->dpmpar(&one), 2.22044604926e-16) << "usable without the other";
}

TEST(Interface, TypeInformationHasThePublishedNames)
{
    const tessel::Api api = library().create();
    const FDTDCalcAPI& object = *api;
    const std::type_info& type = typeid(object);
    EXPECT_STREQ(type.name(), "N8internal12FDTDCalcImplE");
    const auto* const single = dynamic_cast<const abi::__si_class_type_info*>(&type);
    ASSERT_NE(single, nullptr) << "public single inheritance";
    EXPECT_TRUE(*single->__base_type == typeid(FDTDCalcAPI));
    EXPECT_EQ(dynamic_cast<void*>(api.get()), api.get());
}

TEST(Interface, TheDestructorHasTwoEntriesInTheTable)
{
    typedef void Destructor(void*);
    void* const ended = library().create().release();
    void* const deleted = library().create().release();
    reinterpret_cast<Destructor*>((*static_cast<void***>(ended))[0])(ended); // ends the object and keeps the storage
    ::operator delete(ended);
    reinterpret_cast<Destructor*>((*static_cast<void***>(deleted))[1])(deleted);
}

} // namespace
