// Picks the kernel set for the running CPU. The AVX2 and AVX-512 sets exist only in x86-64 builds
// with a GCC-compatible compiler (KAVRI_HAVE_AVX2 / KAVRI_HAVE_AVX512 from the build).
#include "pixel/RowKernels.h"

#include <cstdlib>
#include <cstring>

namespace kavri::pixel {

namespace portable {
const KernelSet &kernelSet();
}
#ifdef KAVRI_HAVE_AVX2
namespace avx2 {
const KernelSet &kernelSet();
}
#endif
#ifdef KAVRI_HAVE_AVX512
namespace avx512 {
const KernelSet &kernelSet();
}
#endif

const KernelSet &portableKernels() { return portable::kernelSet(); }

const KernelSet *avx2Kernels()
{
#ifdef KAVRI_HAVE_AVX2
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) return &avx2::kernelSet();
#endif
    return nullptr;
}

const KernelSet *avx512Kernels()
{
#ifdef KAVRI_HAVE_AVX512
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vbmi"))
        return &avx512::kernelSet();
#endif
    return nullptr;
}

const KernelSet *kernelsByName(const char *name)
{
    if (!name) return nullptr;
    if (std::strcmp(name, "portable") == 0) return &portableKernels();
    if (std::strcmp(name, "avx2") == 0) return avx2Kernels();
    if (std::strcmp(name, "avx512") == 0) return avx512Kernels();
    return nullptr;
}

const KernelSet &bestKernels()
{
    // KAVRI_KERNELS=portable|avx2|avx512 forces a set (for comparing them); an unknown or unsupported
    // name falls back to the automatic choice.
    static const KernelSet *const best = [] {
        if (const KernelSet *forced = kernelsByName(std::getenv("KAVRI_KERNELS"))) return forced;
        if (const KernelSet *k = avx512Kernels()) return k;
        if (const KernelSet *k = avx2Kernels()) return k;
        return &portableKernels();
    }();
    return *best;
}

} // namespace kavri::pixel
