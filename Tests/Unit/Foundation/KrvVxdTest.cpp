#include "KrvVxd.h"

#include "PlatformSeams.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace
{

class CTemporaryFolder
{
public:
    CTemporaryFolder()
    {
        std::string szName = std::filesystem::temp_directory_path() / "foundation-XXXXXX";
        oPath = mkdtemp(szName.data());
    }
    ~CTemporaryFolder() { std::filesystem::remove_all(oPath); }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;

    std::filesystem::path oPath;
};

void WriteFile(const std::filesystem::path& roPath, const std::string& roText)
{
    std::filesystem::create_directories(roPath.parent_path());
    std::ofstream(roPath) << roText;
}

// A bus of functions as the kernel shows them.
void WriteBus(const std::filesystem::path& roPath, std::initializer_list<const char*> apszFunctions)
{
    for (const std::string szFunction : apszFunctions)
    {
        for (const char* pszFile : {"irq", "vendor", "device", "class", "resource"})
        {
            WriteFile(roPath / "devices" / szFunction / pszFile, "0x0 0x0 0x0\n");
        }
    }
}

auto UsingBus(const std::filesystem::path& roPath)
{
    return [szPath = roPath.string()](pci_access& roAccess)
    {
        roAccess.method = PCI_ACCESS_SYS_BUS_PCI;
        char szName[] = "sysfs.path";
        std::string szValue = szPath;
        pci_set_param(&roAccess, szName, szValue.data());
    };
}

} // namespace

TEST(KrvVxdPci, HandleFindsItsFunctionInAnyDomain)
{
    const CSeamsReset oReset;
    const CTemporaryFolder oFolder;
    WriteBus(oFolder.oPath, {"0000:03:02.1", "0001:ff:1f.7"});
    g_oSeams.pfnPciAlloc = UsingBus(oFolder.oPath);

    const pci_dev* const poDevice = KrvVxdPciLibConvertHandle((3 << 8) | (2 << 3) | 1);
    ASSERT_NE(poDevice, nullptr);
    EXPECT_EQ(poDevice->bus, 3);
    EXPECT_EQ(poDevice->dev, 2);
    EXPECT_EQ(poDevice->func, 1);
    EXPECT_NE(KrvVxdPciLibConvertHandle(0xFFFF), nullptr);
    EXPECT_EQ(KrvVxdPciLibConvertHandle((3 << 8) | (2 << 3)), nullptr);
    EXPECT_EQ(ReleaseKRVLibrary(), 1u);
}

TEST(KrvVxdPci, MachineWithoutPciGetsNullAndMayTryAgain)
{
    const CSeamsReset oReset;
    const CTemporaryFolder oFolder;
    g_oSeams.pfnPciAlloc = [](pci_access& roAccess) { roAccess.method = PCI_ACCESS_MAX; }; // fails to start
    EXPECT_EQ(KrvVxdPciLibConvertHandle(0), nullptr);
    g_oSeams.pfnPciAlloc = UsingBus(oFolder.oPath); // fails to read the bus
    EXPECT_EQ(KrvVxdPciLibConvertHandle(0), nullptr);
    WriteBus(oFolder.oPath, {"0000:00:00.0"});
    EXPECT_NE(KrvVxdPciLibConvertHandle(0), nullptr);
    KrvVxdPciLibCleanUp();
    KrvVxdPciLibCleanUp();
}

TEST(KrvVxdMemory, MappingReachesTheAddressAndIsRoundedUp)
{
    const CSeamsReset oReset;
    const CTemporaryFolder oFolder;
    g_oSeams.szDevMem = oFolder.oPath / "mem";
    WriteFile(g_oSeams.szDevMem, std::string(0x1800, 'a') + std::string(0x1800, 'b'));

    auto* const pcMemory = static_cast<char*>(memMapEx(0x1800, 0x1000, 0));
    auto* const pcOther = static_cast<char*>(memMap(0x17FF, 1));
    ASSERT_NE(pcMemory, nullptr);
    ASSERT_NE(pcOther, nullptr);
    EXPECT_EQ(g_oSeams.uiMapOffset, 0x1000u);
    EXPECT_EQ(g_oSeams.uiMapLength, 0x1000u);
    EXPECT_EQ(std::string(pcMemory, 0x1000), std::string(0x1000, 'b'));
    EXPECT_EQ(*pcOther, 'a');
    pcMemory[0] = 'c';
    EXPECT_EQ(pcOther[1], 'c') << "mappings are not shared";

    EXPECT_EQ(memUnmap(pcMemory + 1), 0u);
    EXPECT_EQ(memUnmap(pcMemory), 1u);
    EXPECT_EQ(g_oSeams.uiUnmapLength, 0x1000u) << "two pages were mapped, and the length is rounded down";
    EXPECT_EQ(memUnmap(pcMemory), 0u);
    EXPECT_EQ(memUnmap(pcOther), 1u);
    EXPECT_EQ(g_oSeams.uiUnmapLength, 0u) << "less than a page is not released";
}

TEST(KrvVxdMemory, HighAddressAndFailuresGiveWhatTheSystemSays)
{
    const CSeamsReset oReset;
    const CTemporaryFolder oFolder;
    g_oSeams.szDevMem = oFolder.oPath / "mem";
    EXPECT_EQ(memMap(0, 4096), nullptr) << "no right to open it";
    WriteFile(g_oSeams.szDevMem, std::string(4096, 'a'));
    EXPECT_EQ(memMap64(0, 0, 0), nullptr) << "nothing to map";
    void* const pvMemory = memMap64(0x1234567FFF, 2, 6);
    ASSERT_NE(pvMemory, nullptr);
    EXPECT_EQ(g_oSeams.uiMapOffset, 0x1234567000u);
    EXPECT_EQ(g_oSeams.uiMapLength, 0x2000u);
    EXPECT_EQ(memUnmap(pvMemory), 1u);
}

TEST(KrvVxdTimer, DelayReadsTheClockUntilTheEndAndCarriesSeconds)
{
    const CSeamsReset oReset;
    int iReads = 0;
    g_oSeams.pfnClock = [&](timespec& roNow)
    {
        // From 9.999999 s on in steps of a microsecond.
        const int64_t iNowUs = 9'999'999 + iReads++;
        roNow = {iNowUs / 1'000'000, iNowUs % 1'000'000 * 1000};
        return 0;
    };
    for (const auto& [uiDelayUs, iExpectedReads] : {std::pair{0u, 2}, {1u, 2}, {3u, 4}, {2'000'001u, 2'000'002}})
    {
        iReads = 0;
        EXPECT_EQ(tmDelay(uiDelayUs), 1u);
        EXPECT_EQ(iReads, iExpectedReads) << uiDelayUs;
    }
}

TEST(KrvVxdTimer, CounterIsInMicrosecondsAndFailsWithTheClock)
{
    const CSeamsReset oReset;
    uint64_t uiValue = 0;
    EXPECT_EQ(tmFrequency(&uiValue), 1u);
    EXPECT_EQ(uiValue, 1'000'000u);
    g_oSeams.pfnClock = [](timespec& roNow)
    {
        roNow = {5'000'000'000, 1'999};
        return 0;
    };
    EXPECT_EQ(tmCounter(&uiValue), 1u);
    EXPECT_EQ(uiValue, 5'000'000'000'000'001u);
    g_oSeams.pfnClock = [](timespec&) { return -1; };
    EXPECT_EQ(tmCounter(&uiValue), 0u);
    EXPECT_EQ(uiValue, 5'000'000'000'000'001u);
    EXPECT_EQ(tmDelay(1'000'000), 1u);
}
