// Any text at all is either refused with a line and a fault, or runs: its streams' stamps never go back.
#include <span>

#include "Require.h"
#include "ScenarioReader.h"
#include "StreamModel.h"

namespace
{

void RunStream(const SStream& roStream)
{
    const CStreamModel oModel(roStream);
    std::vector<uint64_t> auiFrom = {1};
    for (const SEvent& roEvent : roStream.aoEvents)
    {
        auiFrom.push_back(std::max<uint64_t>(roEvent.oWhen.uiFirst, 9) - 8);
    }
    for (const uint64_t uiFrom : std::span(auiFrom).first(std::min<size_t>(auiFrom.size(), 8)))
    {
        for (uint64_t uiField = uiFrom; uiField < uiFrom + 16; ++uiField)
        {
            Require(oModel.GetStamp(uiField) >= oModel.GetStamp(uiField - 1));
            (void)oModel.GetField(uiField);
            (void)oModel.GetDescription(uiField);
            (void)oModel.GetSkipCount(uiField);
            const SCaptureState oState = oModel.GetCaptureState(uiField);
            Require(oState.uiReady + oState.uiLoan + oState.uiInternal == oState.uiTotal);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* puiData, size_t uiSize)
{
    SScenario oScenario;
    SScenarioFault oFault;
    if (!Scenario_Read({reinterpret_cast<const char*>(puiData), uiSize}, oScenario, oFault))
    {
        Require(oFault.uiLine > 0 && !oFault.szText.empty());
        return 0;
    }
    for (const SChip& roChip : oScenario.aoChips)
    {
        for (const auto* paoStreams : {&roChip.aoInputs, &roChip.aoOutputs})
        {
            for (const SStream& roStream : std::span(*paoStreams).first(std::min<size_t>(paoStreams->size(), 4)))
            {
                RunStream(roStream);
            }
        }
    }
    return 0;
}
