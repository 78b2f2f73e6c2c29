// The facts a workspace of several sequences shown together rests on, as pure functions: which frames
// they share when played in lock-step, and whether their pictures are the same size.
#pragma once

#include <QSize>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>
#include <vector>

namespace kavri {

inline constexpr int kMaxCompared = 4;

// Frames a workspace can show: the shortest sequence sets the count (0 for none).
uint64_t lockStepCount(const std::vector<uint64_t> &frameCounts);

// Whether frame `index` can be shown: every sequence has it.
bool lockStepHasFrame(uint64_t index, const std::vector<uint64_t> &frameCounts);

// Whether every sequence has delivered frame `index` (nullopt: nothing delivered yet), so a composed
// picture never mixes two frame numbers.
bool lockStepReady(uint64_t index, const std::vector<std::optional<uint64_t>> &delivered);

// Empty when every sequence has the size of the first; otherwise a sentence naming the first file whose
// size differs, its size and the size of the first.
QString sizeMismatchMessage(const QStringList &files, const std::vector<QSize> &sizes);

} // namespace kavri
