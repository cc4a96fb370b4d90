/*
 * What names a stream everywhere: its chip where several are watched, which way it goes, and its index there. Plain
 * data.
 */
#ifndef STREAM_KEY_H
#define STREAM_KEY_H

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>

// Most streams that a direction can have.
constexpr uint32_t uiMaxStreamsPerDirection = 32;
// Most chips that are asked for; their numbers are below it.
constexpr uint32_t uiMaxChips = 16;

enum class EStreamDirection : uint8_t
{
    INPUT,
    OUTPUT
};
constexpr std::array<EStreamDirection, 2> aeDirections = {EStreamDirection::INPUT, EStreamDirection::OUTPUT};

constexpr EStreamDirection StreamDirection_GetOther(EStreamDirection eDirection)
{
    return eDirection == EStreamDirection::INPUT ? EStreamDirection::OUTPUT : EStreamDirection::INPUT;
}

struct SStreamKey
{
    EStreamDirection eDirection = EStreamDirection::INPUT;
    uint32_t uiIndex = 0;
    uint32_t uiChip = 0; // 0: of the one chip that is watched; n + 1: of chip n, one of several
    auto operator<=>(const SStreamKey&) const = default; // NOLINT(modernize-use-nullptr): a false alarm
};

/* Another stream of the same chip and direction. */
constexpr SStreamKey StreamKey_GetNeighbour(const SStreamKey& roKey, uint32_t uiIndex)
{
    return {roKey.eDirection, uiIndex, roKey.uiChip};
}

// The directions of all chips in a row: those of one chip, and behind them those of each of several.
constexpr uint32_t uiMaxSlots = 2 * (uiMaxChips + 1);

/* Where a stream's direction stands in that row. */
constexpr size_t StreamKey_GetSlot(const SStreamKey& roKey)
{
    return 2 * size_t{roKey.uiChip} + static_cast<size_t>(roKey.eDirection);
}

/* The other way: a stream of that direction. */
constexpr SStreamKey StreamKey_FromSlot(size_t uiSlot, uint32_t uiIndex)
{
    return {static_cast<EStreamDirection>(uiSlot % 2), uiIndex, static_cast<uint32_t>(uiSlot / 2)};
}

#endif
