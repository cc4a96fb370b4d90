#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Linux/GiveBack.h"
#include "Linux/InputSettings.h"

namespace
{

namespace fs = std::filesystem;

// An empty folder stands in for an instance of the trace: both are removed as a folder is.
struct GiveBack : testing::Test
{
    void SetUp() override
    {
        std::string szTemplate = fs::temp_directory_path() / "give-back-XXXXXX";
        oRoot = mkdtemp(szTemplate.data());
        setenv("XDG_RUNTIME_DIR", oRoot.c_str(), 1);
        oInstance = oRoot / "instance";
        fs::create_directory(oInstance);
    }
    void TearDown() override { fs::remove_all(oRoot); }

    // A process that notes the instance and then waits for whatever happens to it.
    pid_t StartNoting()
    {
        std::array<int, 2> aiReady{};
        EXPECT_EQ(pipe(aiReady.data()), 0);
        const pid_t iPid = fork();
        if (iPid == 0)
        {
            std::signal(SIGHUP, SIG_DFL); // whoever runs the tests may have it ignored
            const bool bNoted = GiveBack_NoteTrace(oInstance) != nullptr;
            const bool bTold = write(aiReady[1], bNoted ? "y" : "n", 1) == 1;
            while (bTold)
            {
                pause();
            }
            _exit(1);
        }
        char cNoted = 0;
        EXPECT_TRUE(read(aiReady[0], &cNoted, 1) == 1 && cNoted == 'y');
        close(aiReady[0]);
        close(aiReady[1]);
        oNote = oRoot / "veltrano" / ("linux-board-" + std::to_string(iPid));
        return iPid;
    }

    // Ends it, and waits for its guardian, which has the note locked until it has done its work.
    void End(pid_t iPid, int iSignal)
    {
        const int iNote = open(oNote.c_str(), O_RDONLY);
        ASSERT_GE(iNote, 0);
        EXPECT_NE(flock(iNote, LOCK_EX | LOCK_NB), 0) << "its process lives";
        kill(iPid, iSignal);
        EXPECT_EQ(waitpid(iPid, nullptr, 0), iPid);
        EXPECT_EQ(flock(iNote, LOCK_EX), 0);
        close(iNote);
    }

    fs::path oRoot;
    fs::path oInstance;
    fs::path oNote;
};

} // namespace

TEST_F(GiveBack, HappensWhateverEndsTheProcess)
{
    for (const int iSignal : {SIGKILL, SIGINT, SIGTERM, SIGHUP})
    {
        fs::create_directory(oInstance);
        const pid_t iPid = StartNoting();
        EXPECT_EQ(fs::status(oNote.parent_path()).permissions(), fs::perms::owner_all);
        End(iPid, iSignal);
        EXPECT_FALSE(fs::exists(oInstance)) << "after signal " << iSignal;
        EXPECT_FALSE(fs::exists(oNote));
    }
}

TEST_F(GiveBack, IsLeftToTheNextStartWhenNobodySurvived)
{
    const pid_t iPid = StartNoting();
    const fs::path oLeft = oRoot / "veltrano" / "linux-board-1";
    fs::copy_file(oNote, oLeft); // what a process leaves whose guardian was killed with it
    GiveBack_Leftovers();
    EXPECT_FALSE(fs::exists(oInstance));
    EXPECT_FALSE(fs::exists(oLeft));
    EXPECT_TRUE(fs::exists(oNote)) << "its process lives";
    // Neither another boot's nor a damaged note is followed, and none stays.
    fs::create_directory(oInstance);
    fs::copy_file(oNote, oLeft);
    const int iLeft = open(oLeft.c_str(), O_RDWR);
    ASSERT_EQ(pwrite(iLeft, "another", 7, 8), 7);
    close(iLeft);
    fs::copy_file(oNote, oRoot / "veltrano" / "linux-board-2");
    fs::resize_file(oRoot / "veltrano" / "linux-board-2", 100);
    GiveBack_Leftovers();
    EXPECT_TRUE(fs::exists(oInstance));
    EXPECT_FALSE(fs::exists(oLeft) || fs::exists(oRoot / "veltrano" / "linux-board-2"));
    End(iPid, SIGKILL);
}

TEST_F(GiveBack, IsNothingForWhatThisProcessHasDoneItself)
{
    SGiveBackNote* poNote = GiveBack_NoteTrace(oInstance);
    ASSERT_NE(poNote, nullptr);
    GiveBack_Drop(poNote);
    GiveBack_End();
    EXPECT_TRUE(fs::exists(oInstance));
    EXPECT_TRUE(fs::is_empty(oRoot / "veltrano"));
    errno = 0;
    EXPECT_TRUE(waitpid(-1, nullptr, 0) < 0 && errno == ECHILD) << "no child that the program does not know of";
}

TEST_F(GiveBack, TrustsNoFolderThatOthersCanWrite)
{
    fs::permissions(oRoot, fs::perms::all);
    SGiveBackNote* poNote = GiveBack_NoteTrace(oInstance);
    EXPECT_FALSE(fs::exists(oRoot / "veltrano"));
    GiveBack_Drop(poNote);
    GiveBack_End();
}

TEST(InputSettings, TellFormatsApart)
{
    v4l2_format oOne{};
    oOne.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    oOne.fmt.pix.width = 640;
    v4l2_format oOther = oOne;
    oOther.fmt.pix.priv = 1; // what the kernel may fill as it likes
    EXPECT_TRUE(InputSettings_IsSameFormat(oOne, oOther));
    oOther.fmt.pix.field = V4L2_FIELD_ALTERNATE;
    EXPECT_FALSE(InputSettings_IsSameFormat(oOne, oOther));
}
