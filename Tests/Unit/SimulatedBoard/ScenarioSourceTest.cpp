// Where the scenario comes from, and what is said on standard error about it.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "BoardTest.h"

namespace
{

class ScenarioSource : public testing::Test
{
public:
    // Loads with these variables set; returns what was said, and tells whether there was a device.
    static std::string LoadWith(const std::string& rszScenario, const std::string& rszTruth, bool& rbDevice)
    {
        (void)setenv("VELTRANO_SCENARIO", rszScenario.c_str(), 1);
        (void)setenv("VELTRANO_TRUTH", rszTruth.c_str(), 1);
        testing::internal::CaptureStderr();
        Veltrano_LoadLite();
        Veltrano_LoadLite(); // a second time changes nothing and says nothing
        rbDevice = Veltrano_GetDevice(0) != nullptr;
        EXPECT_EQ(Veltrano_GetDevice(1), nullptr);
        EXPECT_EQ(Veltrano_GetDevice(UINT32_MAX), nullptr);
        Veltrano_UnLoad();
        (void)unsetenv("VELTRANO_SCENARIO");
        (void)unsetenv("VELTRANO_TRUTH");
        return testing::internal::GetCapturedStderr();
    }
    const std::string m_szFolder =
        (std::filesystem::temp_directory_path() / ("scenario-" + std::to_string(getpid()))).string();

    void SetUp() override { std::filesystem::create_directory(m_szFolder); }
    void TearDown() override { std::filesystem::remove_all(m_szFolder); }
};

} // namespace

TEST_F(ScenarioSource, SaysWhichScenarioRunsOrWhyNoneDoes)
{
    const std::string szGood = m_szFolder + "/good.toml";
    const std::string szBad = m_szFolder + "/bad.toml";
    std::ofstream(szGood) << "name = \"t\\nwo\"\n[[chip]]\n";
    std::ofstream(szBad) << "[[chip]]\n\n\"a\\nb\" = 1\n";
    struct SRow
    {
        std::string szScenario, szTruth, szSaid;
        bool bDevice;
    };
    const std::string szIntro = "libVeltrano: this is a simulated board, scenario ";
    for (const SRow& roRow :
         {SRow{"", "", szIntro + "\"rack\" (built-in default)\n", true},
          SRow{szGood, m_szFolder + "/truth.csv", szIntro + "\"t wo\" (" + szGood + ")\n", true},
          SRow{szBad, "", szBad + ":3: unknown key a b\n", false},
          SRow{m_szFolder + "/none", "", m_szFolder + "/none:1: cannot be read: No such file or directory\n", false},
          SRow{m_szFolder, "", m_szFolder + ":1: cannot be read: not a regular file\n", false},
          SRow{"", m_szFolder + "/none/truth.csv",
               m_szFolder + "/none/truth.csv:1: cannot be written: No such file or directory\n", false},
          SRow{"", "/dev/full", "/dev/full:1: cannot be written: No space left on device\n", false},
          SRow{"/proc/self/mem", "", "/proc/self/mem:1: cannot be read: Input/output error\n", false}})
    {
        bool bDevice = false;
        EXPECT_EQ(LoadWith(roRow.szScenario, roRow.szTruth, bDevice), roRow.szSaid);
        EXPECT_EQ(bDevice, roRow.bDevice) << roRow.szSaid;
    }
    EXPECT_TRUE(std::filesystem::exists(m_szFolder + "/truth.csv"));
}

TEST_F(ScenarioSource, ATestsTextGoesBeforeTheEnvironmentAlsoWhenItIsRefused)
{
    bool bDevice = true;
    EXPECT_EQ(VtSim_SetScenario("\n[[chip]", nullptr, 0), VtStatus_FAIL);
    EXPECT_EQ(LoadWith("", "", bDevice).substr(0, 16), "scenario text:2:");
    EXPECT_FALSE(bDevice);
    EXPECT_EQ(VtSim_SetScenario(nullptr, nullptr, 0), VtStatus_OK);
}
