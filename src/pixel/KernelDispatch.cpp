// Picks the kernel set for the running CPU. The AVX2 and AVX-512 sets exist only in x86-64 builds
// with a GCC-compatible compiler (KAVRI_HAVE_AVX2 / KAVRI_HAVE_AVX512 from the build), which also
// hands over, as KAVRI_AVX2_FEATURES / KAVRI_AVX512_FEATURES, every instruction set their files are
// compiled for. A set whose file may contain an instruction the CPU lacks is never run: checking
// only "avx2" would let an AVX2 CPU without FMA or BMI2 die on an illegal instruction.
#include "pixel/KernelDispatch.h"

#include "pixel/RowKernels.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace kavri::pixel {

namespace portable {
const KernelSet &kernelSet();
}
#ifdef KAVRI_HAVE_AVX2
#ifndef KAVRI_AVX2_FEATURES
#error "KAVRI_HAVE_AVX2 without KAVRI_AVX2_FEATURES: src/pixel/CMakeLists.txt hands both over"
#endif
namespace avx2 {
const KernelSet &kernelSet();
}
#endif
#ifdef KAVRI_HAVE_AVX512
#ifndef KAVRI_AVX512_FEATURES
#error "KAVRI_HAVE_AVX512 without KAVRI_AVX512_FEATURES: src/pixel/CMakeLists.txt hands both over"
#endif
namespace avx512 {
const KernelSet &kernelSet();
}
#endif

namespace {

constexpr std::string_view kPortable = "portable";

struct Probe {
    std::string_view name;
    bool (*has)();
};

#if defined(KAVRI_HAVE_AVX2) || defined(KAVRI_HAVE_AVX512)
// __builtin_cpu_supports takes only a string literal, so every name a list may use has its own probe.
// These are the names both GCC (12) and clang (14) accept; clang 14 knows neither f16c nor lzcnt nor
// movbe, so a kernel file cannot be compiled for those without this check growing another way to ask.
#define KAVRI_PROBE(feature)                                                                                           \
    Probe                                                                                                              \
    {                                                                                                                  \
        feature, [] { return __builtin_cpu_supports(feature) != 0; }                                                   \
    }
constexpr std::array kProbes = {
    KAVRI_PROBE("cmov"),       KAVRI_PROBE("mmx"),        KAVRI_PROBE("sse"),          KAVRI_PROBE("sse2"),
    KAVRI_PROBE("sse3"),       KAVRI_PROBE("ssse3"),      KAVRI_PROBE("sse4.1"),       KAVRI_PROBE("sse4.2"),
    KAVRI_PROBE("sse4a"),      KAVRI_PROBE("popcnt"),     KAVRI_PROBE("aes"),          KAVRI_PROBE("pclmul"),
    KAVRI_PROBE("avx"),        KAVRI_PROBE("avx2"),       KAVRI_PROBE("fma"),          KAVRI_PROBE("bmi"),
    KAVRI_PROBE("bmi2"),       KAVRI_PROBE("avx512f"),    KAVRI_PROBE("avx512bw"),     KAVRI_PROBE("avx512vl"),
    KAVRI_PROBE("avx512dq"),   KAVRI_PROBE("avx512cd"),   KAVRI_PROBE("avx512vbmi"),   KAVRI_PROBE("avx512vbmi2"),
    KAVRI_PROBE("avx512ifma"), KAVRI_PROBE("avx512vnni"), KAVRI_PROBE("avx512bitalg"), KAVRI_PROBE("avx512vpopcntdq"),
    KAVRI_PROBE("gfni"),       KAVRI_PROBE("vpclmulqdq"),
};
#undef KAVRI_PROBE
#else
constexpr std::array<Probe, 0> kProbes = {};
#endif

constexpr auto kKnownNames = [] {
    std::array<std::string_view, kProbes.size()> names{};
    for (size_t i = 0; i < kProbes.size(); ++i) names[i] = kProbes[i].name;
    return names;
}();

// The build's lists are comma-separated names; each must be one the probes can ask about, or the set
// could never be checked properly.
[[maybe_unused]] constexpr bool everyNameKnown(std::string_view list)
{
    while (true) {
        const size_t comma = list.find(',');
        const std::string_view name = list.substr(0, comma);
        bool known = false;
        for (std::string_view k : kKnownNames) known = known || k == name;
        if (!known) return false;
        if (comma == std::string_view::npos) return true;
        list.remove_prefix(comma + 1);
    }
}

#ifdef KAVRI_HAVE_AVX2
static_assert(everyNameKnown(KAVRI_AVX2_FEATURES),
              "KAVRI_AVX2_FEATURES (src/pixel/CMakeLists.txt) names an instruction set the dispatch cannot ask about");
#endif
#ifdef KAVRI_HAVE_AVX512
static_assert(
    everyNameKnown(KAVRI_AVX512_FEATURES),
    "KAVRI_AVX512_FEATURES (src/pixel/CMakeLists.txt) names an instruction set the dispatch cannot ask about");
#endif

[[maybe_unused]] std::vector<std::string_view> splitList(std::string_view list)
{
    std::vector<std::string_view> names;
    while (true) {
        const size_t comma = list.find(',');
        names.push_back(list.substr(0, comma));
        if (comma == std::string_view::npos) return names;
        list.remove_prefix(comma + 1);
    }
}

const KernelSetNeeds *needsOf(std::string_view name)
{
    for (const KernelSetNeeds &set : builtKernelSets())
        if (set.name == name) return &set;
    return nullptr;
}

const KernelSet *builtSet([[maybe_unused]] std::string_view name)
{
#ifdef KAVRI_HAVE_AVX512
    if (name == avx512::kernelSet().name) return &avx512::kernelSet();
#endif
#ifdef KAVRI_HAVE_AVX2
    if (name == avx2::kernelSet().name) return &avx2::kernelSet();
#endif
    return nullptr;
}

// The faster set called `name` if the build has it and the running CPU can run it.
const KernelSet *runnableSet(std::string_view name)
{
    const KernelSetNeeds *needs = needsOf(name);
    if (!needs || !missingFeatures(*needs, runningCpuFeatures()).empty()) return nullptr;
    return builtSet(name);
}

} // namespace

std::span<const KernelSetNeeds> builtKernelSets()
{
    static const std::vector<KernelSetNeeds> sets = [] {
        std::vector<KernelSetNeeds> s;
#ifdef KAVRI_HAVE_AVX512
        s.push_back({avx512::kernelSet().name, splitList(KAVRI_AVX512_FEATURES)});
#endif
#ifdef KAVRI_HAVE_AVX2
        s.push_back({avx2::kernelSet().name, splitList(KAVRI_AVX2_FEATURES)});
#endif
        return s;
    }();
    return sets;
}

std::span<const std::string_view> knownCpuFeatures() { return kKnownNames; }

const CpuFeatures &runningCpuFeatures()
{
    static const CpuFeatures features = [] {
        CpuFeatures f;
#if defined(KAVRI_HAVE_AVX2) || defined(KAVRI_HAVE_AVX512)
        __builtin_cpu_init();
#endif
        for (const Probe &p : kProbes)
            if (p.has()) f.emplace(p.name);
        return f;
    }();
    return features;
}

std::vector<std::string_view> missingFeatures(const KernelSetNeeds &set, const CpuFeatures &cpu)
{
    std::vector<std::string_view> missing;
    for (std::string_view feature : set.features)
        if (!cpu.contains(feature)) missing.push_back(feature);
    return missing;
}

std::string_view chooseKernelSet(std::span<const KernelSetNeeds> sets, const CpuFeatures &cpu, std::string_view forced)
{
    if (forced == kPortable) return kPortable;
    for (const KernelSetNeeds &set : sets)
        if (set.name == forced && missingFeatures(set, cpu).empty()) return set.name;
    for (const KernelSetNeeds &set : sets)
        if (missingFeatures(set, cpu).empty()) return set.name;
    return kPortable;
}

std::string kernelSetRefusal(std::string_view name)
{
    std::string text;
    if (name == kPortable) return text;
    const KernelSetNeeds *needs = needsOf(name);
    if (!needs) {
        text.append("this build has no kernel set called \"").append(name).append("\"");
        return text;
    }
    const std::vector<std::string_view> missing = missingFeatures(*needs, runningCpuFeatures());
    if (missing.empty()) return text;
    text.append(name).append(" needs instruction sets this CPU lacks:");
    for (std::string_view feature : missing) text.append(" ").append(feature);
    return text;
}

const KernelSet &portableKernels() { return portable::kernelSet(); }

const KernelSet *avx2Kernels() { return runnableSet("avx2"); }

const KernelSet *avx512Kernels() { return runnableSet("avx512"); }

const KernelSet *kernelsByName(const char *name)
{
    if (!name) return nullptr;
    if (name == kPortable) return &portableKernels();
    return runnableSet(name);
}

const KernelSet &bestKernels()
{
    // KAVRI_KERNELS=portable|avx2|avx512 forces a set (for comparing them); an unknown name or a set
    // this CPU cannot run falls back to the automatic choice, saying so once.
    static const KernelSet *const best = [] {
        const char *forced = std::getenv("KAVRI_KERNELS");
        const std::string_view chosen = chooseKernelSet(builtKernelSets(), runningCpuFeatures(), forced ? forced : "");
        if (forced && *forced && chosen != forced)
            std::fprintf(stderr, "kavri: KAVRI_KERNELS=%s is not used (%s); using the %.*s kernels\n", forced,
                         kernelSetRefusal(forced).c_str(), int(chosen.size()), chosen.data());
        const KernelSet *set = chosen == kPortable ? &portableKernels() : runnableSet(chosen);
        return set ? set : &portableKernels();
    }();
    return *best;
}

} // namespace kavri::pixel
