/*
 * The calls to the board for one stream, the same for inputs and outputs. Belongs to the stream's thread.
 */
#ifndef STREAM_PORT_H
#define STREAM_PORT_H

#include <cstdint>

#include "FieldRecord.h"
#include "StreamThread.h"
#include "Veltrano.h"

class CStreamPort
{
public:
    CStreamPort(VtDevice_Handle hDev, const SStreamKey& roKey) : m_hDev(hDev), m_oKey(roKey) {}
    ~CStreamPort() { Close(); }
    CStreamPort(const CStreamPort&) = delete;
    CStreamPort& operator=(const CStreamPort&) = delete;

    bool IsOpen() const { return m_hInput != nullptr || m_hOutput != nullptr; }

    /* Opens the stream for reading and asks for its connector's name. False when the board refuses. */
    bool Open();
    void Close();

    /* Waits for the next field start; all of the record but uiRunDelayNs is written. Blocks for 50 ms at most. */
    void Wait(SFieldRecord& roRecord);

    /*
     * Whether the board tells other timings than with the last description. Only asked where that costs next to
     * nothing; elsewhere never.
     */
    bool HasOtherTimings();

    /* Reads what the stream is now. */
    void Describe(SDescriptionRecord& roRecord);

private:
    VtStatus ReadTimings(VtVideo_VidParam& roTimings);
    void AskBuffers(SFieldRecord& roRecord);
    bool AskSkipped(uint64_t& ruiSkipped);
    void DescribeInput(SStreamDescription& roDescription);
    void DescribeOutput(SStreamDescription& roDescription);

    VtDevice_Handle m_hDev;
    const SStreamKey m_oKey;
    VtVideoIn_Handle m_hInput = nullptr;
    VtVideoOut_Handle m_hOutput = nullptr;
    VtVideo_VidParam m_oTimings = {}; // of the last description
    bool m_bTimingsAreCheap = false;
    VTSTR64 m_szName = {};
    VTSTR64 m_szFormat = {};
    VtPixelFormat m_eFormat = VtPixelFormat_FORCE32; // that m_szFormat names
};

#endif
