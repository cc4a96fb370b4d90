#include "FieldPacker.h"

#include <cstddef>

#include "FieldUnits.h"

namespace
{

constexpr unsigned uiVarintBits = 7;
constexpr uint8_t uiMore = 0x80;

// Flags of a packed record. The two lowest bits are its EWaitResult.
constexpr unsigned uiResultBits = 0x0003;
constexpr unsigned uiTopField = 0x0004;
constexpr unsigned uiHasBuffers = 0x0008;
constexpr unsigned uiHasSkipped = 0x0010;
constexpr unsigned uiCounterFollows = 0x0020; // the field counter did not go on by one field
constexpr unsigned uiSetFollows = 0x0040;     // another number of buffers was set than between the fields before
constexpr unsigned uiBuffersFollow = 0x0080;
constexpr unsigned uiSkippedFollows = 0x0100;
constexpr unsigned uiRunDelayFollows = 0x0200;

// Numbers of either sign, the small ones short.
uint64_t ToZigzag(uint64_t uiDifference)
{
    const auto iDifference = static_cast<int64_t>(uiDifference);
    return (uiDifference << 1U) ^ static_cast<uint64_t>(iDifference >> 63);
}

uint64_t FromZigzag(uint64_t uiCode)
{
    return (uiCode >> 1U) ^ (0 - (uiCode & 1U));
}

uint8_t* PutNumber(uint8_t* puiBytes, uint64_t uiNumber)
{
    while (uiNumber >= uiMore)
    {
        *puiBytes++ = static_cast<uint8_t>(uiNumber | uiMore);
        uiNumber >>= uiVarintBits;
    }
    *puiBytes++ = static_cast<uint8_t>(uiNumber);
    return puiBytes;
}

uint8_t* PutDifference(uint8_t* puiBytes, uint64_t uiDifference)
{
    return PutNumber(puiBytes, ToZigzag(uiDifference));
}

// Reads numbers as long as there are bytes; then, and at a number that is too long, it gives 0 and says so.
class CNumberReader
{
public:
    explicit CNumberReader(std::span<const uint8_t>& raoBytes) : m_raoBytes(raoBytes) {}

    uint64_t GetNumber()
    {
        uint64_t uiNumber = 0;
        for (unsigned uiShift = 0; uiShift < 64; uiShift += uiVarintBits)
        {
            if (m_raoBytes.empty())
            {
                break;
            }
            const uint8_t uiByte = m_raoBytes.front();
            m_raoBytes = m_raoBytes.subspan(1);
            uiNumber |= static_cast<uint64_t>(uiByte & (uiMore - 1U)) << uiShift;
            if ((uiByte & uiMore) == 0)
            {
                return uiNumber;
            }
        }
        m_bIsWhole = false;
        return 0;
    }
    uint64_t GetDifference() { return FromZigzag(GetNumber()); }
    uint16_t GetCount() { return static_cast<uint16_t>(GetNumber()); }
    bool IsWhole() const { return m_bIsWhole; }

private:
    std::span<const uint8_t>& m_raoBytes;
    bool m_bIsWhole = true;
};

bool HaveSameBuffers(const SFieldRecord& roA, const SFieldRecord& roB)
{
    return roA.uiReadyBuffers == roB.uiReadyBuffers && roA.uiLoanedBuffers == roB.uiLoanedBuffers &&
           roA.uiInternalBuffers == roB.uiInternalBuffers;
}

uint16_t FindFlags(const SPackedState& roState, const SFieldRecord& roRecord)
{
    const SFieldRecord& roLast = roState.oLast;
    unsigned uiFlags = static_cast<unsigned>(roRecord.eResult);
    uiFlags |= roRecord.uiRunDelayNs != 0 ? uiRunDelayFollows : 0U;
    if (roRecord.eResult != EWaitResult::FIELD)
    {
        return static_cast<uint16_t>(uiFlags);
    }
    uiFlags |= roRecord.bIsTopField ? uiTopField : 0U;
    uiFlags |= roRecord.bHasBuffers ? uiHasBuffers : 0U;
    uiFlags |= roRecord.bHasSkippedBuffers ? uiHasSkipped : 0U;
    uiFlags |= roRecord.uiFieldCounter - roLast.uiFieldCounter != uiCountsPerField ? uiCounterFollows : 0U;
    uiFlags |= roRecord.uiSetBufferCounter - roLast.uiSetBufferCounter != roState.uiSetInterval ? uiSetFollows : 0U;
    uiFlags |= HaveSameBuffers(roRecord, roLast) ? 0U : uiBuffersFollow;
    uiFlags |= roRecord.uiSkippedBuffers != roLast.uiSkippedBuffers ? uiSkippedFollows : 0U;
    return static_cast<uint16_t>(uiFlags);
}

// A wait without a field leaves what the next field is told against.
void Keep(SPackedState& roState, const SFieldRecord& roRecord)
{
    SFieldRecord& roLast = roState.oLast;
    roState.uiArrivalInterval = roRecord.uiArrivalNs - roLast.uiArrivalNs;
    if (roRecord.eResult == EWaitResult::FIELD)
    {
        roState.uiTickInterval = roRecord.uiTick - roLast.uiTick;
        roState.uiSetInterval = roRecord.uiSetBufferCounter - roLast.uiSetBufferCounter;
        roLast = roRecord;
    }
    roLast.uiArrivalNs = roRecord.uiArrivalNs;
}

uint8_t* PutField(uint8_t* puiBytes, const SPackedState& roState, const SFieldRecord& roRecord, unsigned uiFlags)
{
    const SFieldRecord& roLast = roState.oLast;
    puiBytes = PutDifference(puiBytes, roRecord.uiTick - roLast.uiTick - roState.uiTickInterval);
    if ((uiFlags & uiCounterFollows) != 0)
    {
        puiBytes = PutDifference(puiBytes, roRecord.uiFieldCounter - roLast.uiFieldCounter);
    }
    if ((uiFlags & uiSetFollows) != 0)
    {
        puiBytes = PutDifference(puiBytes, roRecord.uiSetBufferCounter - roLast.uiSetBufferCounter);
    }
    if ((uiFlags & uiBuffersFollow) != 0)
    {
        puiBytes = PutNumber(puiBytes, roRecord.uiReadyBuffers);
        puiBytes = PutNumber(puiBytes, roRecord.uiLoanedBuffers);
        puiBytes = PutNumber(puiBytes, roRecord.uiInternalBuffers);
    }
    if ((uiFlags & uiSkippedFollows) != 0)
    {
        puiBytes = PutDifference(puiBytes, roRecord.uiSkippedBuffers - roLast.uiSkippedBuffers);
    }
    return puiBytes;
}

void GetField(CNumberReader& roReader, const SPackedState& roState, unsigned uiFlags, SFieldRecord& roRecord)
{
    const SFieldRecord& roLast = roState.oLast;
    roRecord.bIsTopField = (uiFlags & uiTopField) != 0;
    roRecord.bHasBuffers = (uiFlags & uiHasBuffers) != 0;
    roRecord.bHasSkippedBuffers = (uiFlags & uiHasSkipped) != 0;
    roRecord.uiTick = roLast.uiTick + roState.uiTickInterval + roReader.GetDifference();
    roRecord.uiFieldCounter =
        roLast.uiFieldCounter + ((uiFlags & uiCounterFollows) != 0 ? roReader.GetDifference() : uiCountsPerField);
    roRecord.uiSetBufferCounter =
        roLast.uiSetBufferCounter + ((uiFlags & uiSetFollows) != 0 ? roReader.GetDifference() : roState.uiSetInterval);
    const bool bBuffersFollow = (uiFlags & uiBuffersFollow) != 0;
    roRecord.uiReadyBuffers = bBuffersFollow ? roReader.GetCount() : roLast.uiReadyBuffers;
    roRecord.uiLoanedBuffers = bBuffersFollow ? roReader.GetCount() : roLast.uiLoanedBuffers;
    roRecord.uiInternalBuffers = bBuffersFollow ? roReader.GetCount() : roLast.uiInternalBuffers;
    roRecord.uiSkippedBuffers =
        roLast.uiSkippedBuffers + ((uiFlags & uiSkippedFollows) != 0 ? roReader.GetDifference() : 0);
}

} // namespace

uint32_t FieldPacker_Pack(SPackedState& roState, const SFieldRecord& roRecord, uint8_t* puiBytes)
{
    const SFieldRecord& roLast = roState.oLast;
    const unsigned uiFlags = FindFlags(roState, roRecord);
    uint8_t* puiNext = puiBytes;
    *puiNext++ = static_cast<uint8_t>(uiFlags);
    *puiNext++ = static_cast<uint8_t>(uiFlags >> 8U);
    puiNext = PutDifference(puiNext, roRecord.uiArrivalNs - roLast.uiArrivalNs - roState.uiArrivalInterval);
    puiNext = PutDifference(puiNext, roRecord.uiWaitBeginNs - roLast.uiArrivalNs);
    if ((uiFlags & uiRunDelayFollows) != 0)
    {
        puiNext = PutNumber(puiNext, roRecord.uiRunDelayNs);
    }
    if (roRecord.eResult == EWaitResult::FIELD)
    {
        puiNext = PutField(puiNext, roState, roRecord, uiFlags);
    }
    Keep(roState, roRecord);
    return static_cast<uint32_t>(puiNext - puiBytes);
}

bool FieldPacker_Unpack(SPackedState& roState, std::span<const uint8_t>& raoBytes, SFieldRecord& roRecord)
{
    if (raoBytes.size() < 2)
    {
        return false;
    }
    const unsigned uiFlags = raoBytes[0] | static_cast<unsigned>(raoBytes[1]) << 8U;
    raoBytes = raoBytes.subspan(2);
    CNumberReader oReader(raoBytes);
    roRecord = {};
    roRecord.eResult = static_cast<EWaitResult>(uiFlags & uiResultBits);
    roRecord.uiArrivalNs = roState.oLast.uiArrivalNs + roState.uiArrivalInterval + oReader.GetDifference();
    roRecord.uiWaitBeginNs = roState.oLast.uiArrivalNs + oReader.GetDifference();
    roRecord.uiRunDelayNs = (uiFlags & uiRunDelayFollows) != 0 ? oReader.GetNumber() : 0;
    if (roRecord.eResult == EWaitResult::FIELD)
    {
        GetField(oReader, roState, uiFlags, roRecord);
    }
    Keep(roState, roRecord);
    return oReader.IsWhole();
}
