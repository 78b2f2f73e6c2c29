// The choice of kernel set: a faster set only on a CPU with every instruction set its file is compiled
// for, checked for CPUs other than this one through the pure choice over feature lists, against the
// compile commands the build really used, and for the running process (KAVRI_KERNELS included).
#include "pixel/KernelDispatch.h"
#include "pixel/RowKernels.h"

#include <QByteArray>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace kavri::pixel;

namespace {

bool built(std::string_view name)
{
    const auto sets = builtKernelSets();
    return std::any_of(sets.begin(), sets.end(), [&](const KernelSetNeeds &s) { return s.name == name; });
}

// A CPU with every x86-64 instruction set the dispatch knows, written out here on purpose rather than
// taken from the build's lists, so a set missing from a list shows.
const std::vector<std::string_view> kEverything = {
    "cmov",     "mmx",        "sse",         "sse2",       "sse3",       "ssse3",        "sse4.1",
    "sse4.2",   "sse4a",      "popcnt",      "aes",        "pclmul",     "avx",          "avx2",
    "fma",      "bmi",        "bmi2",        "avx512f",    "avx512bw",   "avx512vl",     "avx512dq",
    "avx512cd", "avx512vbmi", "avx512vbmi2", "avx512ifma", "avx512vnni", "avx512bitalg", "avx512vpopcntdq",
    "gfni",     "vpclmulqdq",
};
const std::vector<std::string_view> kAvx512 = {"avx512f",    "avx512bw",     "avx512vl",       "avx512dq",
                                               "avx512cd",   "avx512vbmi",   "avx512vbmi2",    "avx512ifma",
                                               "avx512vnni", "avx512bitalg", "avx512vpopcntdq"};

CpuFeatures allBut(std::vector<std::string_view> without)
{
    CpuFeatures cpu;
    for (std::string_view f : kEverything)
        if (std::find(without.begin(), without.end(), f) == without.end()) cpu.emplace(f);
    return cpu;
}

std::vector<std::string_view> operator+(std::vector<std::string_view> a, const std::vector<std::string_view> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct ChoiceCase {
    const char *cpuDescription;
    CpuFeatures cpu;
    const char *forced;
    const char *expected;
};

} // namespace

TEST(KernelDispatch, EachSetOnlyWhereTheCpuHasEveryInstructionSetOfItsFile)
{
    if (!built("avx2") || !built("avx512")) GTEST_SKIP() << "this build has no AVX2 / AVX-512 kernel sets";
    const std::vector<ChoiceCase> cases = {
        {"every set", allBut({}), "", "avx512"},
        {"AVX-512 without VBMI", allBut({"avx512vbmi"}), "", "avx2"},
        {"AVX-512 without BW", allBut({"avx512bw"}), "", "avx2"},
        {"AVX-512 without VL", allBut({"avx512vl"}), "", "avx2"},
        {"AVX-512 without DQ", allBut({"avx512dq"}), "", "avx2"},
        {"AVX-512 without F", allBut({"avx512f"}), "", "avx2"},
        {"no AVX-512", allBut(kAvx512), "", "avx2"},
        {"AVX2 and AVX-512 without FMA", allBut({"fma"}), "", "portable"},
        {"AVX2 and AVX-512 without BMI2", allBut({"bmi2"}), "", "portable"},
        {"AVX2 without FMA, no AVX-512", allBut(kAvx512 + std::vector<std::string_view>{"fma"}), "", "portable"},
        {"AVX2 without BMI2, no AVX-512", allBut(kAvx512 + std::vector<std::string_view>{"bmi2"}), "", "portable"},
        {"AVX2 reported without AVX", allBut({"avx"}), "", "portable"},
        {"AVX2 without POPCNT", allBut({"popcnt"}), "", "portable"},
        {"AVX2 without SSE4.2", allBut({"sse4.2"}), "", "portable"},
        {"AVX2 without SSE4.1", allBut({"sse4.1"}), "", "portable"},
        {"AVX2 without SSSE3", allBut({"ssse3"}), "", "portable"},
        {"AVX2 without SSE3", allBut({"sse3"}), "", "portable"},
        {"no AVX2", allBut({"avx2"}), "", "portable"},
        {"nothing known", {}, "", "portable"},
        // Sets the choice does not need: a CPU without them still gets the fastest set.
        {"without BMI1, CD and the newer AVX-512 parts",
         allBut({"bmi", "avx512cd", "avx512vbmi2", "avx512ifma", "avx512vnni", "avx512bitalg", "avx512vpopcntdq"}), "",
         "avx512"},
        // KAVRI_KERNELS: honoured where the set can run, otherwise the automatic choice.
        {"every set", allBut({}), "portable", "portable"},
        {"every set", allBut({}), "avx2", "avx2"},
        {"every set", allBut({}), "avx512", "avx512"},
        {"every set", allBut({}), "sse9", "avx512"},
        {"AVX-512 without VBMI", allBut({"avx512vbmi"}), "avx512", "avx2"},
        {"AVX-512 without VBMI", allBut({"avx512vbmi"}), "avx2", "avx2"},
        {"no AVX-512", allBut(kAvx512), "avx512", "avx2"},
        {"AVX2 and AVX-512 without FMA", allBut({"fma"}), "avx2", "portable"},
        {"AVX2 and AVX-512 without FMA", allBut({"fma"}), "avx512", "portable"},
        {"AVX2 and AVX-512 without BMI2", allBut({"bmi2"}), "avx2", "portable"},
        {"nothing known", {}, "avx2", "portable"},
        {"nothing known", {}, "portable", "portable"},
    };
    for (const ChoiceCase &c : cases)
        EXPECT_EQ(chooseKernelSet(builtKernelSets(), c.cpu, c.forced), std::string_view(c.expected))
            << c.cpuDescription << ", KAVRI_KERNELS=" << c.forced;
}

// The rule itself, on made-up sets (so it is checked on every build): the first set in the list that can
// run wins, a forced set only if it can run, and what is missing is named in the list's order.
TEST(KernelDispatch, ChoiceRuleOnMadeUpSets)
{
    const std::vector<KernelSetNeeds> sets = {{"wide", {"a", "b", "c"}}, {"narrow", {"a"}}};
    struct Case {
        CpuFeatures cpu;
        const char *forced;
        const char *expected;
    };
    const std::vector<Case> cases = {
        {{"a", "b", "c"}, "", "wide"},         {{"a", "b"}, "", "narrow"},
        {{"b", "c"}, "", "portable"},          {{}, "", "portable"},
        {{"a", "b", "c"}, "narrow", "narrow"}, {{"a", "b"}, "wide", "narrow"},
        {{"b", "c"}, "narrow", "portable"},    {{"a", "b", "c"}, "portable", "portable"},
        {{"a", "b", "c"}, "none", "wide"},
    };
    for (const Case &c : cases) {
        std::string cpu;
        for (const std::string &f : c.cpu) cpu += f + " ";
        EXPECT_EQ(chooseKernelSet(sets, c.cpu, c.forced), std::string_view(c.expected))
            << "cpu { " << cpu << "} forced " << c.forced;
    }
    EXPECT_EQ(chooseKernelSet({}, {"a"}, "wide"), "portable");
    EXPECT_EQ(missingFeatures(sets[0], {"b"}), (std::vector<std::string_view>{"a", "c"}));
    EXPECT_TRUE(missingFeatures(sets[1], {"a", "z"}).empty());
}

// The lists the dispatch checks are the instruction sets the files were compiled for: the -m options
// (without "=") in the build's compile commands for each kernel file are exactly its list, and the
// dispatch and the portable reference have none, since they run before anything is checked.
TEST(KernelDispatch, CompileCommandsMatchTheLists)
{
    if (builtKernelSets().empty()) GTEST_SKIP() << "this build has no faster kernel sets";
    QFile file(QStringLiteral(KAVRI_COMPILE_COMMANDS));
    if (!file.open(QIODevice::ReadOnly))
        GTEST_SKIP() << "no compile commands at " << KAVRI_COMPILE_COMMANDS
                     << " (a generator that does not write them)";
    const QJsonArray commands = QJsonDocument::fromJson(file.readAll()).array();
    ASSERT_FALSE(commands.isEmpty());

    auto isaOptionsOf = [&](const QString &fileName, bool &found) {
        std::set<std::string> options;
        found = false;
        for (const QJsonValue &v : commands) {
            const QJsonObject entry = v.toObject();
            if (!entry.value(QStringLiteral("file")).toString().endsWith(QStringLiteral("/src/pixel/") + fileName))
                continue;
            found = true;
            QStringList words;
            if (entry.contains(QStringLiteral("arguments")))
                for (const QJsonValue &a : entry.value(QStringLiteral("arguments")).toArray()) words << a.toString();
            else
                words = entry.value(QStringLiteral("command")).toString().split(QLatin1Char(' '), Qt::SkipEmptyParts);
            for (const QString &w : words)
                if (w.startsWith(QStringLiteral("-m")) && !w.contains(QLatin1Char('=')))
                    options.insert(w.mid(2).toStdString());
        }
        return options;
    };

    const std::vector<std::pair<std::string_view, QString>> files = {{"avx2", QStringLiteral("KernelsAvx2.cpp")},
                                                                     {"avx512", QStringLiteral("KernelsAvx512.cpp")}};
    for (const KernelSetNeeds &set : builtKernelSets()) {
        const auto f = std::find_if(files.begin(), files.end(), [&](const auto &p) { return p.first == set.name; });
        ASSERT_NE(f, files.end()) << "a kernel set this test does not know: " << set.name;
        bool found = false;
        const std::set<std::string> options = isaOptionsOf(f->second, found);
        ASSERT_TRUE(found) << f->second.toStdString() << " is not in the compile commands";
        const std::set<std::string> listed(set.features.begin(), set.features.end());
        EXPECT_EQ(options, listed) << set.name << ": the -m options of " << f->second.toStdString()
                                   << " differ from the instruction sets the dispatch checks";
    }
    for (const QString &name : {QStringLiteral("KernelDispatch.cpp"), QStringLiteral("KernelsPortable.cpp")}) {
        bool found = false;
        EXPECT_TRUE(isaOptionsOf(name, found).empty()) << name.toStdString();
        EXPECT_TRUE(found) << name.toStdString();
    }
}

TEST(KernelDispatch, EveryListedInstructionSetIsOneTheDispatchAsksAbout)
{
    const auto known = knownCpuFeatures();
    for (const KernelSetNeeds &set : builtKernelSets()) {
        EXPECT_FALSE(set.features.empty()) << set.name;
        for (std::string_view f : set.features)
            EXPECT_NE(std::find(known.begin(), known.end(), f), known.end()) << set.name << " lists " << f;
    }
    for (const std::string &f : runningCpuFeatures())
        EXPECT_NE(std::find(known.begin(), known.end(), f), known.end()) << f;
}

// This process: a set is offered exactly when the running CPU has its whole list, and the set in use is
// the one the rule picks.
TEST(KernelDispatch, RunningProcessFollowsTheRule)
{
    EXPECT_STREQ(portableKernels().name, "portable");
    EXPECT_EQ(kernelsByName("portable"), &portableKernels());
    EXPECT_EQ(kernelsByName("sse9"), nullptr);
    EXPECT_EQ(kernelsByName(nullptr), nullptr);
    EXPECT_EQ(kernelSetRefusal("portable"), "");
    EXPECT_NE(kernelSetRefusal("sse9"), "");
    for (std::string_view name : {"avx2", "avx512"}) {
        const KernelSet *byName = kernelsByName(std::string(name).c_str());
        const KernelSet *byFunction = name == "avx2" ? avx2Kernels() : avx512Kernels();
        EXPECT_EQ(byName, byFunction) << name;
        const auto sets = builtKernelSets();
        const auto set =
            std::find_if(sets.begin(), sets.end(), [&](const KernelSetNeeds &s) { return s.name == name; });
        const bool runs = set != sets.end() && missingFeatures(*set, runningCpuFeatures()).empty();
        EXPECT_EQ(byName != nullptr, runs) << name;
        EXPECT_EQ(kernelSetRefusal(name).empty(), runs) << name << ": " << kernelSetRefusal(name);
        if (byName) {
            EXPECT_EQ(byName->name, name);
        }
        if (!runs)
            std::printf("note: %.*s kernels unavailable here: %s\n", int(name.size()), name.data(),
                        kernelSetRefusal(name).c_str());
    }
    const char *forced = std::getenv("KAVRI_KERNELS");
    EXPECT_EQ(bestKernels().name, chooseKernelSet(builtKernelSets(), runningCpuFeatures(), forced ? forced : ""));
}

// KAVRI_KERNELS is read once per process, so each value is tried in a fresh one (a death test started
// anew), which reports the set in use on its standard error.
TEST(KernelDispatch, ForcedSetIsUsedOnlyWhereItCanRun)
{
    const std::string style = GTEST_FLAG_GET(death_test_style);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const char *forced : {"portable", "avx2", "avx512", "sse9"}) {
        const std::string expected(chooseKernelSet(builtKernelSets(), runningCpuFeatures(), forced));
        EXPECT_EXIT(
            {
                qputenv("KAVRI_KERNELS", forced);
                std::fprintf(stderr, "[in use: %s]", bestKernels().name);
                std::exit(0);
            },
            testing::ExitedWithCode(0), "\\[in use: " + expected + "\\]")
            << "KAVRI_KERNELS=" << forced;
        if (expected != forced) {
            EXPECT_EXIT(
                {
                    qputenv("KAVRI_KERNELS", forced);
                    bestKernels();
                    std::exit(0);
                },
                testing::ExitedWithCode(0), std::string("KAVRI_KERNELS=") + forced + " is not used")
                << "a refused choice is reported";
        }
    }
    GTEST_FLAG_SET(death_test_style, style);
}
