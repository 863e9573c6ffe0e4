/// The widths of the vector units that kernels are built for, and the choice among them. Results do not depend on it.
#pragma once

namespace tessel {

enum class VectorWidth
{
    baseline,
    avx2,
    avx512
};

/// The widest of them on this machine.
VectorWidth widest_vectors();

/// One set of kernels for each width. The machine's widest is in use until another is selected.
template <class Kernels>
class KernelChoice
{
public:
    KernelChoice(const Kernels* baseline, const Kernels* avx2, const Kernels* avx512) : sets_{baseline, avx2, avx512}
    {
        use(widest_vectors());
    }
    /// Selects another width, never one wider than the machine's.
    void use(VectorWidth width)
    {
        in_use_ = sets_[static_cast<int>(width < widest_vectors() ? width : widest_vectors())];
    }
    const Kernels& in_use() const { return *in_use_; }

private:
    const Kernels* sets_[3];
    const Kernels* in_use_;
};

} // namespace tessel
