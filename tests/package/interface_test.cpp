// A host that was compiled apart from the library: C++11, the public header, and nothing of the library at link time.
// The build compiles this file with every compiler that it finds; all of them load the same library.
#include <tessel/FDTDCalcAPI.h>
#include <tessel/leastsq_prony_svd.h>

#include <cxxabi.h>
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
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

// The raw table of the platform's C++ ABI: two entries for the destructor, then the operations. Lengths are passed here
// as 64 bits whose upper half is garbage, as the upper half of a register or a stack slot of a 32-bit argument may be.
class Table : public Interface
{
protected:
    Table() : object_(create_()), table_(*reinterpret_cast<void***>(object_)) {}
    ~Table() override { entry<void(void*)>(1)(object_); } // the deleting destructor

    template <class Function>
    Function* entry(int position) const
    {
        return reinterpret_cast<Function*>(table_[position]);
    }
    static std::uint64_t length(std::uint32_t value) { return 0xdeadbeef00000000u | value; }

    void* object_;
    void** table_;
};

TEST_F(Table, DestructorHasTwoEntries)
{
    void* const other = create_();
    entry<void(void*)>(0)(other); // ends the object and keeps the storage
    ::operator delete(other);
}

TEST_F(Table, ArnoldiOperationsReportTheirOwnInfo)
{
    // A host without any operator: N = 0 is found before anything is asked for.
    const Integer n = 0, nev = 4, ncv = 20, ldv = 100, lworkl = 3 * 20 * 20 + 6 * 20, rvec = 1;
    Integer ido = 0, iparam[11] = {1, 0, 300, 1, 0, 0, 1}, ipntr[14] = {}, info = 0;
    std::vector<double> resid(100), v(2000), workd(300), workl(lworkl), dr(5), di(5), z(500), workev(60);
    std::vector<Integer> select(20);
    double tol = 0;
    const double sigma = 0;
    typedef void Dnaupd(void*, Integer*, const char*, std::uint64_t, const Integer*, const char*, std::uint64_t,
                        const Integer*, double*, double*, const Integer*, double*, const Integer*, Integer*, Integer*,
                        double*, double*, const Integer*, Integer*);
    entry<Dnaupd>(3)(object_, &ido, "I", length(1), &n, "LM", length(2), &nev, &tol, resid.data(), &ncv, v.data(), &ldv,
                     iparam, ipntr, workd.data(), workl.data(), &lworkl, &info);
    EXPECT_EQ(info, -1);
    EXPECT_EQ(ido, 99);

    typedef void Dneupd(void*, const Integer*, const char*, std::uint64_t, Integer*, double*, double*, double*,
                        const Integer*, const double*, const double*, double*, const char*, std::uint64_t,
                        const Integer*, const char*, std::uint64_t, const Integer*, double*, double*, const Integer*,
                        double*, const Integer*, Integer*, Integer*, double*, double*, const Integer*, Integer*);
    const Integer order = 100;
    iparam[4] = 4;
    entry<Dneupd>(2)(object_, &rvec, "S", length(1), select.data(), dr.data(), di.data(), z.data(), &ldv, &sigma,
                     &sigma, workev.data(), "I", length(1), &order, "LM", length(2), &nev, &tol, resid.data(), &ncv,
                     v.data(), &ldv, iparam, ipntr, workd.data(), workl.data(), &lworkl, &info);
    EXPECT_EQ(info, -12) << "HOWMNY = 'S' is the first illegal argument";
}

void line(const Integer*, const double* x, double* fvec, double* fjac, const Integer*, Integer* iflag)
{
    if (*iflag == 1)
        fvec[0] = 2.0 * x[0] - 6.0;
    else
        fjac[0] = 2.0;
}

TEST_F(Table, MinpackOperations)
{
    const Integer n = 1, lwa = 7;
    Integer info = 77;
    double x = 0, fvec = 77, fjac = 77, wa[7];
    const double tol = 1e-10;
    typedef void Hybrj1(void*, FDTDCalcAPI::HybridFunction, const Integer*, double*, double*, double*, const Integer*,
                        const double*, Integer*, double*, const Integer*);
    entry<Hybrj1>(4)(object_, line, &n, &x, &fvec, &fjac, &n, &tol, &info, wa, &lwa);
    EXPECT_EQ(info, 1);
    EXPECT_DOUBLE_EQ(x, 3.0);

    const Integer two = 2;
    EXPECT_EQ(entry<double(void*, const Integer*)>(5)(object_, &two), 2.22507385852e-308);
}

TEST_F(Table, PronyFitIsTheExportedRoutine)
{
    const Integer n = 12, m = 2, too_many = 13;
    const double step = 0.1;
    std::vector<Complex> samples;
    for (Integer k = 0; k < n; ++k)
        samples.push_back(std::exp(Complex(-0.4, 5.0) * (step * k)) + 2.0 * std::exp(Complex(-1.0, -3.0) * (step * k)));
    struct Result
    {
        Complex residues[2], poles[2];
        double errors[5];
        Integer flag;
        char message[64];
    };
    typedef void Fit(void*, const Integer*, const Integer*, const Complex*, const double*, const Integer*,
                     const Integer*, Complex*, Complex*, double*, double*, double*, double*, double*, Integer*, char*,
                     std::uint64_t);
    Result slot = {}, direct = {};
    entry<Fit>(6)(object_, &n, &n, samples.data(), &step, &m, &m, slot.residues, slot.poles, &slot.errors[0],
                  &slot.errors[1], &slot.errors[2], &slot.errors[3], &slot.errors[4], &slot.flag, slot.message,
                  length(64));
    auto* const routine = reinterpret_cast<decltype(&LEASTSQ_PRONY_SVD)>(dlsym(library_, "LEASTSQ_PRONY_SVD"));
    routine(&n, &n, samples.data(), &step, &m, &m, direct.residues, direct.poles, &direct.errors[0], &direct.errors[1],
            &direct.errors[2], &direct.errors[3], &direct.errors[4], &direct.flag, direct.message, 64);
    EXPECT_EQ(slot.flag, 0);
    EXPECT_EQ(std::string(slot.message, 64), std::string(64, ' '));
    EXPECT_EQ(std::memcmp(&slot, &direct, sizeof slot), 0) << "the same bits by either road";
    for (const Complex& pole : {Complex(-0.4, 5.0), Complex(-1.0, -3.0)})
        EXPECT_LT(std::min(std::abs(slot.poles[0] - pole), std::abs(slot.poles[1] - pole)), 1e-10);

    std::memset(slot.message, '#', 64);
    entry<Fit>(6)(object_, &too_many, &n, samples.data(), &step, &m, &m, slot.residues, slot.poles, &slot.errors[0],
                  &slot.errors[1], &slot.errors[2], &slot.errors[3], &slot.errors[4], &slot.flag, slot.message,
                  length(30));
    EXPECT_EQ(slot.flag, -1);
    EXPECT_EQ(std::string(slot.message, 34), "Sub LEASTSQ_PRONY_SVD: input p####");
}

TEST_F(Table, LapackOperations)
{
    const Integer one = 1, work_length = 10;
    Integer info = 77;
    Complex a(3.0, 4.0), u, vt, work[10];
    double s = 0, rwork[5];
    typedef void Zgesvd(void*, const char*, const char*, const Integer*, const Integer*, Complex*, const Integer*,
                        double*, Complex*, const Integer*, Complex*, const Integer*, Complex*, const Integer*, double*,
                        Integer*, std::uint64_t, std::uint64_t);
    entry<Zgesvd>(7)(object_, "A", "A", &one, &one, &a, &one, &s, &u, &one, &vt, &one, work, &work_length, rwork, &info,
                     length(1), length(1));
    EXPECT_EQ(info, 0);
    EXPECT_DOUBLE_EQ(s, 5.0);

    Complex matrix(0.0, 2.0), b(4.0, 0.0);
    Integer pivot = 77;
    typedef void Zgesv(void*, const Integer*, const Integer*, Complex*, const Integer*, Integer*, Complex*,
                       const Integer*, Integer*);
    entry<Zgesv>(8)(object_, &one, &one, &matrix, &one, &pivot, &b, &one, &info);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(pivot, 1);
    EXPECT_EQ(b, Complex(0.0, -2.0));

    double real = -7.0, real_u, real_vt, real_work[10];
    typedef void Dgesvd(void*, const char*, const char*, const Integer*, const Integer*, double*, const Integer*,
                        double*, double*, const Integer*, double*, const Integer*, double*, const Integer*, Integer*,
                        std::uint64_t, std::uint64_t);
    entry<Dgesvd>(9)(object_, "A", "A", &one, &one, &real, &one, &s, &real_u, &one, &real_vt, &one, real_work,
                     &work_length, &info, length(1), length(1));
    EXPECT_EQ(info, 0);
    EXPECT_DOUBLE_EQ(s, 7.0);
}

} // namespace
