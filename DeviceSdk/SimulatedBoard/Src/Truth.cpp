// See Truth.h.
#include "Truth.h"

#include <array>
#include <cerrno>
#include <cinttypes>
#include <system_error>

#include "ScenarioEvents.h"
#include "ScenarioSource.h"
#include "TextLine.h"

namespace
{

constexpr const char* szHeader = "chip,direction,index,field,exact_ticks,stamp,field_counter,event";
constexpr const char* szDetailHeader = ",top,set_buffer_counter,ready,loaned,skipped";
constexpr size_t uiBlockBytes = 1U << 16; // of a caller who comes very late

const char* FateName(EFieldFate eFate, bool bReported)
{
    switch (eFate)
    {
    case EFieldFate::LOST:
        return "lost";
    case EFieldFate::MISSED:
        return "missed";
    case EFieldFate::TIMED_OUT:
        return "timed_out";
    case EFieldFate::FAILED:
        return "failed";
    case EFieldFate::STARTED:
        break;
    }
    return bReported ? "delivered" : "unseen";
}

} // namespace

std::unique_ptr<CTruthFile> CTruthFile::Open(const std::string& rszFile, bool bDetail)
{
    std::FILE* pFile = std::fopen(rszFile.c_str(), "we");
    if (pFile == nullptr)
    {
        return nullptr;
    }
    std::unique_ptr<CTruthFile> poFile(new CTruthFile(rszFile, bDetail, pFile));
    (void)std::setvbuf(pFile, nullptr, _IONBF, 0);
    const std::string szColumns = std::string(szHeader) + (bDetail ? szDetailHeader : "") + '\n';
    return std::fputs(szColumns.c_str(), pFile) < 0 ? nullptr : std::move(poFile);
}

void CTruthFile::Write(const std::string& rszRows)
{
    if (m_bFailed.load(std::memory_order_relaxed))
    {
        return;
    }
    const bool bWritten = std::fwrite(rszRows.data(), 1, rszRows.size(), m_pFile.get()) == rszRows.size();
    if (!bWritten && !m_bFailed.exchange(true))
    {
        const SScenarioFault oFault{1, "cannot be written any more: " + std::generic_category().message(errno)};
        (void)std::fprintf(stderr, "%s\n", TextLine_OfFault(m_szFile, oFault).c_str());
    }
}

void CTruthRows::Add(uint64_t uiFrom, uint64_t uiReported, uint64_t uiNext)
{
    if (m_pFile == nullptr)
    {
        return;
    }
    const std::lock_guard oGuard(m_oMutex);
    std::string szRows;
    for (m_uiNext = std::max(m_uiNext, uiFrom); m_uiNext < uiNext; ++m_uiNext)
    {
        szRows += FormatRow(m_uiNext, m_uiNext == uiReported);
        if (szRows.size() >= uiBlockBytes)
        {
            m_pFile->Write(szRows);
            szRows.clear();
        }
    }
    m_pFile->Write(szRows);
}

std::string CTruthRows::FormatRow(uint64_t uiField, bool bReported) const
{
    const SFieldStart oField = m_roModel.GetField(uiField);
    const FixedTicks iExact = m_roModel.GetExactTicks(uiField);
    const UInt128 uiRest = static_cast<uint64_t>(iExact);
    const UInt128 uiMillionths =
        static_cast<UInt128>(iExact >> 64) * 1'000'000 + ((uiRest * 1'000'000 + (UInt128{1} << 63)) >> 64);
    std::array<char, 128> szRow{};
    (void)std::snprintf(szRow.data(), szRow.size(), ",%" PRIu64 ",%" PRIu64 ".%06" PRIu64 ",%" PRIu64 ",%" PRIu64 ",%s",
                        uiField, static_cast<uint64_t>(uiMillionths / 1'000'000),
                        static_cast<uint64_t>(uiMillionths % 1'000'000), oField.uiStamp, oField.uiFieldCounter,
                        FateName(oField.eFate, bReported));
    std::string szFormatted = m_szStream + szRow.data();
    for (const SEvent& roEvent : m_roModel.GetStream().aoEvents)
    {
        if (roEvent.oWhen.IsFirstOf(uiField))
        {
            szFormatted += '+';
            szFormatted += EventKind_GetName(roEvent.eKind);
        }
    }
    if (m_pFile->IsDetailed())
    {
        szFormatted += FormatEnds(uiField) + FormatDetail(oField);
    }
    return szFormatted + '\n';
}

// What lasted until the field before.
std::string CTruthRows::FormatEnds(uint64_t uiField) const
{
    std::string szEnds;
    for (const SEvent& roEvent : m_roModel.GetStream().aoEvents)
    {
        const bool bLasts = EventKind_IsLasting(roEvent.eKind);
        if (bLasts && uiField > 0 && roEvent.oWhen.IsActive(uiField - 1) && !roEvent.oWhen.IsActive(uiField))
        {
            szEnds += '-';
            szEnds += EventKind_GetName(roEvent.eKind);
        }
    }
    return szEnds;
}

// What only the other direction has stays empty.
std::string CTruthRows::FormatDetail(const SFieldStart& roField) const
{
    const std::string szTop = roField.bIsTopField ? ",1" : ",0";
    if (m_roModel.GetStream().eDirection == EDirection::OUTPUT)
    {
        return szTop + ',' + std::to_string(roField.uiSetBufferCounter) + ",,,";
    }
    const SCaptureState oState = m_roModel.GetCaptureState(roField.uiField);
    return szTop + ",," + std::to_string(oState.uiReady) + ',' + std::to_string(oState.uiLoan) + ',' +
           std::to_string(m_roModel.GetSkipCount(roField.uiField));
}
