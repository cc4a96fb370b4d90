/*
 * What names a stream everywhere: which way it goes, and its index there. Plain data.
 */
#ifndef STREAM_KEY_H
#define STREAM_KEY_H

#include <array>
#include <compare>
#include <cstdint>

// Most streams that a direction can have.
constexpr uint32_t uiMaxStreamsPerDirection = 32;

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
    auto operator<=>(const SStreamKey&) const = default; // NOLINT(modernize-use-nullptr): a false alarm
};

#endif
