// See Truth.h.
#include "Truth.h"

#include "ScenarioReader.h"
#include "ScenarioSource.h"

#include <array>
#include <cinttypes>

namespace
{

constexpr size_t gc_uiBlockBytes = 1U << 16;

const char* FateName(EFieldFate eFate, bool bReported)
{
    switch (eFate)
    {
    case EFieldFate::LOST:
        return "lost";
    case EFieldFate::MISSED:
        return "missed";
    case EFieldFate::STARTED:
        break;
    }
    return bReported ? "delivered" : "unseen";
}

} // namespace

std::unique_ptr<CTruthFile> CTruthFile::Open(const std::string& rszFile)
{
    std::FILE* pFile = std::fopen(rszFile.c_str(), "we");
    if (pFile == nullptr)
    {
        return nullptr;
    }
    std::unique_ptr<CTruthFile> poFile(new CTruthFile(rszFile, pFile));
    poFile->Write("chip,direction,index,field,exact_ticks,stamp,field_counter,event\n");
    return poFile;
}

CTruthFile::~CTruthFile()
{
    if (!Flush())
    {
        const SScenarioFault oFault{1, "not all rows could be written"};
        (void)std::fprintf(stderr, "%s\n", ScenarioFault_Format(m_szFile, oFault).c_str());
    }
}

void CTruthFile::Write(const std::string& rszRows)
{
    const std::lock_guard oGuard(m_oMutex);
    (void)std::fwrite(rszRows.data(), 1, rszRows.size(), m_pFile.get());
}

bool CTruthFile::Flush()
{
    const std::lock_guard oGuard(m_oMutex);
    return std::fflush(m_pFile.get()) == 0 && std::ferror(m_pFile.get()) == 0;
}

void CTruthRows::Add(uint64_t uiFrom, uint64_t uiReported, uint64_t uiNext)
{
    if (m_pFile == nullptr)
    {
        return;
    }
    const std::lock_guard oGuard(m_oMutex);
    for (m_uiNext = std::max(m_uiNext, uiFrom); m_uiNext < uiNext; ++m_uiNext)
    {
        AddRow(m_uiNext, m_uiNext == uiReported);
    }
    if (m_szRows.size() >= gc_uiBlockBytes)
    {
        m_pFile->Write(m_szRows);
        m_szRows.clear();
    }
}

void CTruthRows::AddRow(uint64_t uiField, bool bReported)
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
    m_szRows += m_szStream;
    m_szRows += szRow.data();
    for (const SEvent& roEvent : m_roModel.GetStream().aoEvents)
    {
        if (roEvent.oWhen.IsFirstOf(uiField))
        {
            m_szRows += '+';
            m_szRows += EventKind_GetName(roEvent.eKind);
        }
    }
    m_szRows += '\n';
}

void CTruthRows::Flush()
{
    if (m_pFile == nullptr)
    {
        return;
    }
    const std::lock_guard oGuard(m_oMutex);
    m_pFile->Write(m_szRows);
    m_szRows.clear();
}
