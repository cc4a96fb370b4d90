#include "KrvVxd.h"

#include "PlatformSeams.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace
{

struct STemporaryFolder
{
    STemporaryFolder()
    {
        std::string szName = std::filesystem::temp_directory_path() / "foundation-XXXXXX";
        oPath = mkdtemp(szName.data());
    }
    ~STemporaryFolder() { std::filesystem::remove_all(oPath); }

    std::filesystem::path oPath;
};

// A bus whose functions are the names in this folder.
auto UsingBus(const std::filesystem::path& roPath)
{
    return [szPath = roPath.string()](pci_access& roAccess) mutable
    {
        char szName[] = "sysfs.path";
        pci_set_param(&roAccess, szName, szPath.data());
        roAccess.method = PCI_ACCESS_SYS_BUS_PCI;
        roAccess.buscentric = 1;
    };
}

} // namespace

TEST(KrvVxdPci, HandleFindsItsFunctionInAnyDomainAndNullWhereThereIsNoBus)
{
    const SSeamsReset oReset;
    const STemporaryFolder oFolder;
    g_oSeams.pfnPciAlloc = [](pci_access& roAccess) { roAccess.method = PCI_ACCESS_MAX; }; // cannot start
    EXPECT_EQ(KrvVxdPciLibConvertHandle(0xFFFF), nullptr);
    g_oSeams.pfnPciAlloc = UsingBus(oFolder.oPath); // cannot read the bus
    EXPECT_EQ(KrvVxdPciLibConvertHandle(0xFFFF), nullptr);

    std::filesystem::create_directories(oFolder.oPath / "devices/0000:03:02.1");
    std::filesystem::create_directories(oFolder.oPath / "devices/0001:ff:1f.7");
    const pci_dev* const poDevice = KrvVxdPciLibConvertHandle((3 << 8) | (2 << 3) | 1);
    ASSERT_NE(poDevice, nullptr) << "the next call tries again";
    EXPECT_EQ(poDevice->bus, 3);
    EXPECT_EQ(poDevice->dev, 2);
    EXPECT_EQ(poDevice->func, 1);
    EXPECT_NE(KrvVxdPciLibConvertHandle(0xFFFF), nullptr);
    EXPECT_EQ(KrvVxdPciLibConvertHandle((3 << 8) | (2 << 3)), nullptr);
    EXPECT_EQ(ReleaseKRVLibrary() + ReleaseKRVLibrary(), 2u);
}

TEST(KrvVxdMemory, MappingReachesTheAddressAndIsRoundedUp)
{
    const SSeamsReset oReset;
    const STemporaryFolder oFolder;
    g_oSeams.szDevMem = oFolder.oPath / "mem";
    EXPECT_EQ(memMap(0x1000, 1), nullptr) << "it cannot be opened";
    std::ofstream(g_oSeams.szDevMem) << std::string(0x1800, 'a') + std::string(0x1800, 'b');
    EXPECT_EQ(memMap64(0x1000, 0, 0), nullptr) << "there is nothing to map";

    auto* const pcOther = static_cast<char*>(memMap(0x17FF, 1));
    auto* const pcMemory = static_cast<char*>(memMapEx(0x1800, 0x1000, 6));
    ASSERT_TRUE(pcMemory != nullptr && pcOther != nullptr);
    EXPECT_EQ(g_oSeams.uiMapOffset, 0x1000u);
    EXPECT_EQ(g_oSeams.uiMapLength, 0x2000u);
    EXPECT_EQ(std::string(pcMemory, 0x1000), std::string(0x1000, 'b'));
    EXPECT_EQ(*pcOther, 'a');
    pcMemory[0] = 'c';
    EXPECT_EQ(pcOther[1], 'c') << "mappings are shared";

    EXPECT_EQ(memUnmap(pcMemory + 1), 0u);
    EXPECT_EQ(memUnmap(pcMemory), 1u);
    EXPECT_EQ(g_oSeams.uiUnmapLength, 0x1000u) << "two pages were mapped, but this length is rounded down";
    EXPECT_EQ(memUnmap(pcMemory), 0u);
    EXPECT_EQ(memUnmap(pcOther), 1u);
    EXPECT_EQ(g_oSeams.uiUnmapLength, 0u) << "less than a page is not released";
    EXPECT_EQ(memUnmap(memMap64(0x1234567FFF, 1, 0)), 1u);
    EXPECT_EQ(g_oSeams.uiMapOffset, 0x1234567000u);
}

TEST(KrvVxdTimer, DelayReadsTheClockUntilTheEndAndCarriesSeconds)
{
    const SSeamsReset oReset;
    g_oSeams.iClock = CLOCK_MONOTONIC;
    int iReads = 0;
    g_oSeams.pfnClock = [&](timespec& roNow)
    {
        const int64_t iNowUs = 9'999'999 + iReads++; // a microsecond passes from reading to reading
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
    const SSeamsReset oReset;
    uint64_t uiValue = 0;
    EXPECT_EQ(tmFrequency(&uiValue), 1u);
    EXPECT_EQ(uiValue, 1'000'000u);
    g_oSeams.iClock = CLOCK_MONOTONIC;
    StopClock(5'000'000'000, 1'999);
    EXPECT_EQ(tmCounter(&uiValue), 1u);
    EXPECT_EQ(uiValue, 5'000'000'000'000'001u);
    g_oSeams.pfnClock = [](timespec&) { return -1; };
    EXPECT_EQ(tmCounter(&uiValue), 0u);
    EXPECT_EQ(uiValue, 5'000'000'000'000'001u);
    EXPECT_EQ(tmDelay(1'000'000), 1u);
}
