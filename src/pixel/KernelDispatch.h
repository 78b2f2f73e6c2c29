// How a kernel set is chosen: each faster set may run only on a CPU that has every instruction set its
// file is compiled for (the lists come from src/pixel/CMakeLists.txt, which also makes the compile
// options from them). The choice itself is a pure function of those lists and of the features of a CPU,
// so it can be tested for CPUs other than the running one. Internal to src/pixel and its tests.
#pragma once

#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kavri::pixel {

// One faster kernel set of this build: its name ("avx2", "avx512") and the instruction sets its file is
// compiled for, spelled as __builtin_cpu_supports spells them ("avx2", "fma", "bmi2"...).
struct KernelSetNeeds {
    std::string_view name;
    std::vector<std::string_view> features;
};

// Instruction sets a CPU has, by the same names.
using CpuFeatures = std::set<std::string, std::less<>>;

// The faster sets this build has, fastest first; empty where the build has none (not x86-64, or a
// compiler without the instruction set options).
std::span<const KernelSetNeeds> builtKernelSets();

// The instruction sets the dispatch can ask the running CPU about, and those of them it has.
std::span<const std::string_view> knownCpuFeatures();
const CpuFeatures &runningCpuFeatures();

// What a CPU with `cpu` lacks for `set`, in the order listed; empty when the set can run there.
std::vector<std::string_view> missingFeatures(const KernelSetNeeds &set, const CpuFeatures &cpu);

// The name of the set to use on a CPU with `cpu`: `forced` when it is "portable" or one of `sets` that
// can run there; otherwise the first of `sets` that can run there; "portable" when none can.
std::string_view chooseKernelSet(std::span<const KernelSetNeeds> sets, const CpuFeatures &cpu,
                                 std::string_view forced = {});

// Why the set called `name` cannot run in this process ("" when it can): the build does not have it,
// or the running CPU lacks some of its instruction sets (named in the text).
std::string kernelSetRefusal(std::string_view name);

} // namespace kavri::pixel
