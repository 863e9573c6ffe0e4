// A host that was compiled apart from the library: C++11, the public header, and nothing of the library at link time.
// The build compiles this file with every compiler that it finds; all of them load the same library.
#include <tessel/FDTDCalcAPI.h>

#include <cxxabi.h>
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace {

static_assert(std::is_abstract<FDTDCalcAPI>::value && std::has_virtual_destructor<FDTDCalcAPI>::value, "");
static_assert(sizeof(FDTDCalcAPI) == sizeof(void*), "no data");

typedef std::int32_t Integer;
typedef std::complex<double> Complex;

class Interface : public ::testing::Test
{
protected:
    Interface() : library_(dlopen(TESSEL_LIBRARY, RTLD_NOW | RTLD_LOCAL))
    {
        if (library_ != nullptr)
            create_ = reinterpret_cast<decltype(create_)>(dlsym(library_, "createFDTDCalcApi"));
        if (create_ == nullptr)
            throw std::runtime_error(dlerror());
    }
    ~Interface() override { dlclose(library_); }

    void* library_;
    decltype(&createFDTDCalcApi) create_ = nullptr;
};

TEST_F(Interface, EachCallGivesAnObjectOfItsOwn)
{
    std::unique_ptr<FDTDCalcAPI> first(create_()), second(create_());
    EXPECT_NE(first.get(), second.get());
    first.reset();
    const Integer one = 1;
    EXPECT_EQ(second->dpmpar(&one), 2.22044604926e-16) << "usable without the other";
}

TEST_F(Interface, TypeInformationHasThePublishedNames)
{
    const std::unique_ptr<FDTDCalcAPI> api(create_());
    const FDTDCalcAPI& object = *api;
    const std::type_info& type = typeid(object);
    EXPECT_STREQ(type.name(), "N8internal12FDTDCalcImplE");
    const auto* const single = dynamic_cast<const abi::__si_class_type_info*>(&type);
    ASSERT_NE(single, nullptr) << "public single inheritance";
    EXPECT_TRUE(*single->__base_type == typeid(FDTDCalcAPI));
    EXPECT_EQ(dynamic_cast<void*>(api.get()), api.get());
}

TEST_F(Interface, TheDestructorHasTwoEntriesInTheTable)
{
    typedef void Destructor(void*);
    void* const ended = create_();
    void* const deleted = create_();
    reinterpret_cast<Destructor*>((*static_cast<void***>(ended))[0])(ended); // ends the object and keeps the storage
    ::operator delete(ended);
    reinterpret_cast<Destructor*>((*static_cast<void***>(deleted))[1])(deleted);
}

void line(const Integer*, const double* x, double* fvec, double* fjac, const Integer*, Integer* iflag)
{
    if (*iflag == 1)
        fvec[0] = 2.0 * x[0] - 6.0;
    else
        fjac[0] = 2.0;
}

// The smallest problems; those without an operator for ARPACK, which finds N = 0 and HOWMNY = 'S' before all else.
TEST_F(Interface, EveryOperationAnswers)
{
    const std::unique_ptr<FDTDCalcAPI> api(create_());
    const Integer zero = 0, one = 1, two = 2, length = 10, order = 100, nev = 4, ncv = 20, lworkl = 1320;
    Integer info = 77, ido = 0, iparam[11] = {1, 0, 300, 1, 4, 0, 1}, ipntr[14] = {}, select[20], pivot = 77;
    std::vector<double> d(5000);
    double* const any = d.data();
    double tol = 1e-10, x = 0, fvec = 77, fjac = 77, s = 77, real = -7.0;
    Complex a(3.0, 4.0), matrix(0.0, 2.0), b(4.0, 0.0), u, vt, work[10];

    api->dnaupd(&ido, "I", 1, &zero, "LM", 2, &nev, &tol, any, &ncv, any, &order, iparam, ipntr, any, any, &lworkl,
                &info);
    EXPECT_EQ(info, -1);
    EXPECT_EQ(ido, 99);
    iparam[4] = 4;
    api->dneupd(&one, "S", 1, select, any, any, any, &order, &tol, &tol, any, "I", 1, &order, "LM", 2, &nev, &tol, any,
                &ncv, any, &order, iparam, ipntr, any, any, &lworkl, &info);
    EXPECT_EQ(info, -12);
    api->hybrj1(line, &one, &x, &fvec, &fjac, &one, &tol, &info, any, &length);
    EXPECT_EQ(info, 1);
    EXPECT_DOUBLE_EQ(x, 3.0);
    EXPECT_EQ(api->dpmpar(&two), 2.22507385852e-308);
    api->zgesvd("A", "A", &one, &one, &a, &one, &s, &u, &one, &vt, &one, work, &length, any, &info, 1, 1);
    EXPECT_EQ(info, 0);
    EXPECT_DOUBLE_EQ(s, 5.0);
    api->zgesv(&one, &one, &matrix, &one, &pivot, &b, &one, &info);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(b, Complex(0.0, -2.0));
    api->dgesvd("A", "A", &one, &one, &real, &one, &s, any, &one, any + 1, &one, any + 2, &length, &info, 1, 1);
    EXPECT_EQ(info, 0);
    EXPECT_DOUBLE_EQ(s, 7.0);
    std::string message(40, '#');
    api->leastsqPronySvd(&two, &one, &a, &tol, &one, &one, &u, &vt, any, any, any, any, any, &info, &message[0], 30);
    EXPECT_EQ(info, -1);
    EXPECT_EQ(message, "Sub LEASTSQ_PRONY_SVD: input p##########");
}

} // namespace
