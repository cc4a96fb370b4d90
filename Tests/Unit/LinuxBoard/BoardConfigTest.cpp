#include <gtest/gtest.h>
#include <utility>

#include "BoardConfig.h"

namespace
{

SBoardConfig Parsed(std::string_view szText)
{
    SBoardConfig oConfig;
    SConfigFault oFault;
    EXPECT_TRUE(BoardConfig_Parse(szText, oConfig, oFault)) << oFault.uiLine << ": " << oFault.szText;
    return oConfig;
}

const std::vector<SDeviceFacts> aoCameras = {
    {"HD Camera", {"usb-0000:00:14.0-1", "pci-0000:00:14.0-usb-0:1:1.0"}, "uvcvideo"},
    {"HD Camera", {"usb-0000:00:14.0-2", "pci-0000:00:14.0-usb-0:2:1.0"}, "uvcvideo"},
    {"vivid-000-vid-cap", {"platform:vivid-000"}, "vivid"},
};

std::string Chosen(std::string_view szText)
{
    const SBoardConfig oConfig = Parsed(szText);
    std::string szChosen;
    for (const SDeviceChoice& roChoice : BoardConfig_Choose(oConfig.aoInputs, aoCameras))
    {
        szChosen += std::to_string(roChoice.uiDevice) + "=" + roChoice.szName + " ";
    }
    return szChosen;
}

} // namespace

TEST(BoardConfig, ChoosesOrdersAndNamesDevices)
{
    EXPECT_EQ(Chosen(""), "0=HD Camera 1=HD Camera 2=vivid-000-vid-cap ");
    EXPECT_EQ(Chosen("[[output]]\ndevice = '*'"), "0=HD Camera 1=HD Camera 2=vivid-000-vid-cap ");
    EXPECT_EQ(Chosen("[[input]]\nbus = 'usb-*-2'\nname = 'Left'\n[[input]]\nbus = '*usb-0:1:1.0'\nname = 'Right'"),
              "1=Left 0=Right ");
    EXPECT_EQ(Chosen("[[input]]\ndriver = 'vivid'\n[[input]]\ndevice = 'HD*'\nname = 'Hall'"),
              "2=vivid-000-vid-cap 0=Hall 1 1=Hall 2 ");
    EXPECT_EQ(Chosen("[[input]]\ndevice = 'HD*'\ndriver = 'vivid'"), "") << "all that a rule says must fit";
    EXPECT_EQ(Chosen("[[input]]\ndevice = 'HD*'\n[[input]]\ndriver = 'uvcvideo'\nname = 'late'"),
              "0=HD Camera 1=HD Camera ")
        << "the first rule takes it";
    const SBoardConfig oConfig =
        Parsed("[[input]]\ndevice = '*'\nmode = 'own'\nformat = 'smallest'\n[[input]]\nbus = 'x'");
    EXPECT_EQ(oConfig.aoInputs[0].bOwn, true);
    EXPECT_EQ(oConfig.aoInputs[0].bSmallest, true);
    EXPECT_FALSE(oConfig.aoInputs[1].bOwn.has_value() || oConfig.aoInputs[1].bSmallest.has_value());
}

TEST(BoardConfig, SaysWhatIsWrongAndWhere)
{
    const std::pair<std::string, std::pair<uint32_t, const char*>> aoRows[] = {
        {"\n\n[[inputs]]\ndevice = 'a'", {3, "unknown key inputs"}},
        {"[[input]]\ndevice = 'a'\nmod = 'own'", {3, "unknown key mod"}},
        {"[[output]]\ndevice = 'a'\nmode = 'own'", {3, "unknown key mode"}},
        {"[[input]]\ndevice = 'a'\nmode = 'mine'", {3, "mode: must be \"observe\" or \"own\""}},
        {"[[input]]\ndevice = 'a'\nformat = 1", {3, "format: must be \"keep\" or \"smallest\""}},
        {"[[input]]\nname = 'a'", {1, "one of device, bus and driver must say which devices are meant"}},
        {"[[input]]\nbus = ''", {2, "bus: must be a text of 1 to 1024 characters"}},
        {"[[input]]\nbus = 'a'\nname = '" + std::string(64, 'n') + "'",
         {3, "name: must be a text of 1 to 63 characters"}},
        {"input = 5", {1, "input: must be 1 to 256 tables"}},
    };
    for (const auto& [szText, oExpected] : aoRows)
    {
        SBoardConfig oConfig;
        SConfigFault oFault;
        EXPECT_FALSE(BoardConfig_Parse(szText, oConfig, oFault)) << szText;
        EXPECT_EQ(oFault.uiLine, oExpected.first) << szText;
        EXPECT_EQ(oFault.szText, oExpected.second);
    }
    SBoardConfig oConfig;
    SConfigFault oFault;
    EXPECT_FALSE(BoardConfig_Parse("[[input]]\ndevice = 'a", oConfig, oFault));
    EXPECT_EQ(oFault.uiLine, 2U);
    EXPECT_FALSE(oFault.szText.empty());
}
