#include "KrvVxd.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "PlatformSeams.h"

namespace
{

// Sets the seams back and takes its folder away when a test ends.
struct KrvVxd : testing::Test
{
    KrvVxd() { std::filesystem::create_directories(oPath); }
    ~KrvVxd() override { std::filesystem::remove_all(oPath); }
    const SSeamsReset oReset;
    const std::filesystem::path oPath = testing::TempDir() + "foundation-" + std::to_string(getpid());
};

} // namespace

TEST_F(KrvVxd, HandleFindsItsFunctionInAnyDomainAndNullWhereThereIsNoBus)
{
    g_oSeams.pfnPciAlloc = [](pci_access& roAccess) { roAccess.method = PCI_ACCESS_MAX; }; // cannot start
    EXPECT_EQ(KrvVxdPciLibConvertHandle(0xFFFF), nullptr);
    g_oSeams.pfnPciAlloc = [szPath = oPath.string()](pci_access& roAccess) mutable
    {
        char szName[] = "sysfs.path";
        pci_set_param(&roAccess, szName, szPath.data());
        roAccess.method = PCI_ACCESS_SYS_BUS_PCI; // cannot read the bus, until there is a folder of functions
        roAccess.buscentric = 1;
    };
    EXPECT_EQ(KrvVxdPciLibConvertHandle(0xFFFF), nullptr);

    std::filesystem::create_directories(oPath / "devices/0000:03:02.1");
    std::filesystem::create_directories(oPath / "devices/0001:ff:1f.7");
    const pci_dev* const poDevice = KrvVxdPciLibConvertHandle((3 << 8) | (2 << 3) | 1);
    ASSERT_NE(poDevice, nullptr) << "the next call tries again";
    EXPECT_EQ(std::tuple(poDevice->bus, poDevice->dev, poDevice->func), std::tuple(3, 2, 1));
    EXPECT_NE(KrvVxdPciLibConvertHandle(0xFFFF), nullptr);
    EXPECT_EQ(KrvVxdPciLibConvertHandle((3 << 8) | (2 << 3)), nullptr);
    EXPECT_EQ(ReleaseKRVLibrary() + ReleaseKRVLibrary(), 2u);
}

TEST_F(KrvVxd, MappingReachesTheAddressAndIsRoundedUp)
{
    g_oSeams.szDevMem = oPath / "mem";
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

TEST_F(KrvVxd, DelayAndCounterReadTheClockInMicrosecondsAndEndWithIt)
{
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
    uint64_t uiValue = 0;
    EXPECT_TRUE(tmFrequency(&uiValue) == 1 && uiValue == 1'000'000);
    StopClock(5'000'000'000, 1'999);
    EXPECT_TRUE(tmCounter(&uiValue) == 1 && uiValue == 5'000'000'000'000'001);
    g_oSeams.pfnClock = [](timespec&) { return -1; };
    EXPECT_TRUE(tmCounter(&uiValue) == 0 && uiValue == 5'000'000'000'000'001);
    EXPECT_EQ(tmDelay(1'000'000), 1u);
}
