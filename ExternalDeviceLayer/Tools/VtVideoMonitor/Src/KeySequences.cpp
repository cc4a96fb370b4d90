#include "KeySequences.h"

namespace
{

constexpr int32_t iBell = 0x07;
constexpr int32_t iEscape = 0x1B;

// A key that a person presses after ESC comes later than the rest of a sequence. Nobody types the begin of a longer
// one, so that may take the time of a bad line.
constexpr uint64_t uiEscapeBoundMs = 50;
constexpr uint64_t uiSequenceBoundMs = 200;

bool IsIntermediate(int32_t iByte)
{
    return iByte >= 0x20 && iByte <= 0x2F;
}

bool IsParameter(int32_t iByte)
{
    return iByte >= 0x30 && iByte <= 0x3F;
}

// What follows behind ESC and this byte; NONE when that is all.
EKeySequence AfterEscape(int32_t iByte)
{
    switch (iByte)
    {
    case '[':
        return EKeySequence::CONTROL_FIRST;
    case 'O':
        return EKeySequence::SINGLE_SHIFT;
    case 'P':
    case 'X':
    case ']':
    case '^':
    case '_':
        return EKeySequence::STRING;
    default:
        return IsIntermediate(iByte) ? EKeySequence::INTERMEDIATE : EKeySequence::NONE;
    }
}

EKeySequence Next(EKeySequence eSequence, int32_t iByte)
{
    switch (eSequence)
    {
    case EKeySequence::ESCAPE:
        return AfterEscape(iByte);
    case EKeySequence::INTERMEDIATE:
        return IsIntermediate(iByte) ? eSequence : EKeySequence::NONE;
    case EKeySequence::CONTROL_FIRST:
        if (iByte == '[')
        {
            return EKeySequence::CONSOLE_KEY;
        }
        [[fallthrough]];
    case EKeySequence::CONTROL:
        return IsParameter(iByte) || IsIntermediate(iByte) ? EKeySequence::CONTROL : EKeySequence::NONE;
    case EKeySequence::SINGLE_SHIFT:
        return IsParameter(iByte) ? eSequence : EKeySequence::NONE;
    case EKeySequence::STRING:
        return iByte == iBell ? EKeySequence::NONE : eSequence;
    case EKeySequence::STRING_ESCAPE:
        return iByte == '\\' ? EKeySequence::NONE : AfterEscape(iByte);
    case EKeySequence::NONE:
    case EKeySequence::CONSOLE_KEY:
        break;
    }
    return EKeySequence::NONE;
}

} // namespace

Bool32 IsKeyOfItsOwn(SKeySequence& roSequence, int32_t iByte, uint64_t uiNowMs)
{
    const EKeySequence eBefore = roSequence.eSequence;
    if (iByte == iEscape)
    {
        roSequence.eSequence = eBefore == EKeySequence::STRING ? EKeySequence::STRING_ESCAPE : EKeySequence::ESCAPE;
    }
    else
    {
        roSequence.eSequence = Next(eBefore, iByte);
    }
    roSequence.uiLastByteMs = uiNowMs;
    return eBefore == EKeySequence::NONE && iByte != iEscape ? 1 : 0;
}

void ForgetOverdueSequence(SKeySequence& roSequence, uint64_t uiNowMs)
{
    const uint64_t uiBoundMs = roSequence.eSequence == EKeySequence::ESCAPE ? uiEscapeBoundMs : uiSequenceBoundMs;
    if (uiNowMs - roSequence.uiLastByteMs >= uiBoundMs)
    {
        roSequence.eSequence = EKeySequence::NONE;
    }
}
