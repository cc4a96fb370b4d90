// All streams of a direction that may be watched, open for reading until the check ends.
#ifndef OPEN_STREAMS_H
#define OPEN_STREAMS_H

#include "Findings.h"
#include "StreamOperations.h"

// "IN_00"
template <typename TStreams> std::string StreamName(uint32_t uiIndex)
{
    return TStreams::msc_szPrefix + std::string(uiIndex < 10 ? "0" : "") + std::to_string(uiIndex);
}

template <typename TStreams> class COpenStreams
{
public:
    using THandle = typename TStreams::THandle;
    struct SStream
    {
        THandle h;
        uint32_t uiIndex;
        std::string szName; // "IN_00"
    };

    COpenStreams(CFindings& roFindings, VtDevice_Handle hDev) : m_roFindings(roFindings)
    {
        roFindings.ExpectStatus(TStreams::GetCount(hDev, m_uiCount), VtStatus_OK, TStreams::msc_szGetCount);
        for (uint32_t uiIndex = 0; uiIndex < m_uiCount && uiIndex < 32; ++uiIndex)
        {
            THandle h = nullptr;
            const VtStatus eStatus = TStreams::Open(hDev, uiIndex, &h);
            const std::string szName = StreamName<TStreams>(uiIndex);
            roFindings.Expect((h != nullptr) == (eStatus == VtStatus_OK), "%s: %s answers %d with%s a handle",
                              szName.c_str(), TStreams::msc_szOpen, eStatus, h != nullptr ? "" : "out");
            if (h != nullptr)
            {
                m_aoStreams.push_back({h, uiIndex, szName});
            }
            else if (eStatus == VtStatus_RESOURCES_BUSY || eStatus == VtStatus_ACCESS_DENIED)
            {
                roFindings.Skip("%s may not be opened now", szName.c_str());
            }
            else
            {
                roFindings.ExpectStatus(eStatus, VtStatus_OK, szName + ": " + TStreams::msc_szOpen);
            }
        }
        if (m_uiCount == 0)
        {
            roFindings.Skip("this board has none");
        }
    }
    ~COpenStreams()
    {
        for (const SStream& ro : m_aoStreams)
        {
            m_roFindings.ExpectStatus(TStreams::Release(ro.h), VtStatus_OK, ro.szName + ": " + TStreams::msc_szRelease);
        }
    }
    COpenStreams(const COpenStreams&) = delete;
    COpenStreams& operator=(const COpenStreams&) = delete;

    const std::vector<SStream>& All() const { return m_aoStreams; }
    uint32_t Count() const { return m_uiCount; }

private:
    CFindings& m_roFindings;
    std::vector<SStream> m_aoStreams;
    uint32_t m_uiCount = 0;
};

#endif
