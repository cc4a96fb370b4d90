#include "GiveBack.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <span>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "Guardian.h"
#include "V4l2Node.h"

namespace
{

constexpr std::string_view szNotePrefix = "linux-board-";

struct SNotes
{
    std::mutex oMutex;
    SGiveBackTable* poTable = nullptr; /* null before the first note */
    std::string szFile;                /* empty without a folder for it */
    CFileDescriptor oFile;             /* locked while this process or its guardian lives */
    CGuardian oGuardian;
};

SNotes& Notes()
{
    static auto* s_poNotes = new SNotes; // never destroyed, as the board itself
    return *s_poNotes;
}

/* A folder that nobody but its user and root can replace or write. */
bool IsSafe(const std::string& szFolder, bool bOursAlone)
{
    struct stat oStat = {};
    if (lstat(szFolder.c_str(), &oStat) != 0 || !S_ISDIR(oStat.st_mode))
    {
        return false;
    }
    if (bOursAlone)
    {
        return oStat.st_uid == geteuid() && (oStat.st_mode & 077) == 0;
    }
    const bool bSticky = (oStat.st_mode & S_ISVTX) != 0;
    return (oStat.st_uid == geteuid() || oStat.st_uid == 0) && ((oStat.st_mode & 022) == 0 || bSticky);
}

/* Our folder in the first place that does for it; empty when none does, or has it and it is not to be made. */
std::string NoteFolder(bool bMake)
{
    const std::string szUser = std::to_string(geteuid());
    const char* szRuntime = std::getenv("XDG_RUNTIME_DIR");
    const std::string aszPlaces[] = {szRuntime != nullptr && *szRuntime == '/' ? szRuntime : "",
                                     geteuid() == 0 ? "/run" : "/run/user/" + szUser, "/tmp"};
    for (const std::string& rszPlace : aszPlaces)
    {
        std::string szFolder = rszPlace;
        szFolder += rszPlace == "/tmp" ? "/veltrano-" + szUser : "/veltrano";
        if (rszPlace.empty() || !IsSafe(rszPlace, false))
        {
            continue;
        }
        if (bMake)
        {
            mkdir(szFolder.c_str(), 0700);
        }
        if (IsSafe(szFolder, true))
        {
            return szFolder;
        }
    }
    return {};
}

void ReadBoot(char (&acBoot)[40])
{
    std::memset(acBoot, 0, sizeof(acBoot));
    const CFileDescriptor oFile(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    if (oFile.IsOpen() && read(oFile.Get(), acBoot, sizeof(acBoot) - 1) < 0)
    {
        acBoot[0] = '\0';
    }
}

/* Shared memory of a file, or of nobody else without one. */
SGiveBackTable* Map(int iFd)
{
    const int iFlags = iFd >= 0 ? MAP_SHARED : MAP_SHARED | MAP_ANONYMOUS;
    void* pvTable = mmap(nullptr, sizeof(SGiveBackTable), PROT_READ | PROT_WRITE, iFlags, iFd, 0);
    return pvTable == MAP_FAILED ? nullptr : static_cast<SGiveBackTable*>(pvTable);
}

CFileDescriptor OpenNoteFile(const std::string& szFile, int iFlags)
{
    CFileDescriptor oFile(open(szFile.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | iFlags, 0600));
    if (oFile.IsOpen() && flock(oFile.Get(), LOCK_EX | LOCK_NB) != 0)
    {
        oFile.Close();
    }
    return oFile;
}

void FollowFile(const std::string& szFile)
{
    const CFileDescriptor oFile = OpenNoteFile(szFile, 0);
    struct stat oStat = {};
    if (!oFile.IsOpen() || fstat(oFile.Get(), &oStat) != 0 || oStat.st_uid != geteuid())
    {
        return; // its process lives, or it is not ours
    }
    const bool bWhole = S_ISREG(oStat.st_mode) && oStat.st_size == off_t{sizeof(SGiveBackTable)};
    SGiveBackTable* poTable = bWhole ? Map(oFile.Get()) : nullptr;
    if (poTable != nullptr)
    {
        char acBoot[40];
        ReadBoot(acBoot);
        if (poTable->uiMagic == uiNoteMagic && std::memcmp(poTable->szBoot, acBoot, sizeof(acBoot)) == 0)
        {
            Guardian_GiveBack(*poTable);
        }
        munmap(poTable, sizeof(SGiveBackTable));
    }
    unlink(szFile.c_str());
}

void OpenTable(SNotes& roNotes)
{
    const std::string szFolder = NoteFolder(true);
    if (!szFolder.empty())
    {
        roNotes.szFile = szFolder + "/" + std::string(szNotePrefix) + std::to_string(getpid());
        roNotes.oFile = OpenNoteFile(roNotes.szFile, O_CREAT | O_TRUNC);
        if (roNotes.oFile.IsOpen() && ftruncate(roNotes.oFile.Get(), off_t{sizeof(SGiveBackTable)}) != 0)
        {
            roNotes.oFile.Close();
        }
    }
    if (!roNotes.oFile.IsOpen())
    {
        roNotes.szFile.clear();
    }
    roNotes.poTable = Map(roNotes.oFile.Get());
    if (roNotes.poTable == nullptr)
    {
        return;
    }
    ReadBoot(roNotes.poTable->szBoot);
    roNotes.poTable->uiMagic = uiNoteMagic;
    roNotes.oGuardian.Start(*roNotes.poTable, roNotes.szFile.empty() ? nullptr : roNotes.szFile.c_str(),
                            roNotes.oFile.Get());
}

/* A free note, filled but not in force yet; null when there is none. The caller has the lock. */
SGiveBackNote* NewNote(SNotes& roNotes, const std::string& szPath)
{
    if (roNotes.poTable == nullptr)
    {
        OpenTable(roNotes);
    }
    if (roNotes.poTable == nullptr || szPath.size() >= sizeof(SGiveBackNote::szPath))
    {
        return nullptr;
    }
    for (SGiveBackNote& roNote : roNotes.poTable->aoNotes)
    {
        if (roNote.eKind != ENoteKind::FREE)
        {
            continue;
        }
        roNote = {};
        GiveBackNote_SetText(roNote.szPath, szPath);
        return &roNote;
    }
    return nullptr;
}

void PutInForce(SGiveBackNote& roNote, ENoteKind eKind)
{
    std::atomic_ref<ENoteKind>(roNote.eKind).store(eKind, std::memory_order_release);
}

} // namespace

void GiveBack_Leftovers()
{
    const std::string szFolder = NoteFolder(false);
    const std::unique_ptr<DIR, int (*)(DIR*)> poFolder(szFolder.empty() ? nullptr : opendir(szFolder.c_str()),
                                                       &closedir);
    if (poFolder == nullptr)
    {
        return;
    }
    while (const dirent* poEntry = readdir(poFolder.get()))
    {
        if (std::string_view(poEntry->d_name).starts_with(szNotePrefix))
        {
            FollowFile(szFolder + "/" + poEntry->d_name);
        }
    }
}

SGiveBackNote* GiveBack_NoteInput(const std::string& szNode, int iFd, const SInputSettings& roFound)
{
    v4l2_capability oCapability{};
    if (V4l2_Ioctl(iFd, VIDIOC_QUERYCAP, &oCapability) != 0)
    {
        return nullptr;
    }
    SNotes& roNotes = Notes();
    const std::lock_guard oGuard(roNotes.oMutex);
    SGiveBackNote* poNote = NewNote(roNotes, szNode);
    if (poNote == nullptr)
    {
        return nullptr;
    }
    std::memcpy(poNote->szDriver, oCapability.driver, sizeof(poNote->szDriver));
    std::memcpy(poNote->szBus, oCapability.bus_info, sizeof(poNote->szBus));
    poNote->oFound = roFound;
    PutInForce(*poNote, ENoteKind::INPUT);
    return poNote;
}

SGiveBackNote* GiveBack_NoteTrace(const std::string& szInstance)
{
    SNotes& roNotes = Notes();
    const std::lock_guard oGuard(roNotes.oMutex);
    SGiveBackNote* poNote = NewNote(roNotes, szInstance);
    if (poNote != nullptr)
    {
        PutInForce(*poNote, ENoteKind::TRACE_INSTANCE);
    }
    return poNote;
}

void GiveBack_Drop(SGiveBackNote* poNote)
{
    const std::lock_guard oGuard(Notes().oMutex);
    if (poNote != nullptr)
    {
        PutInForce(*poNote, ENoteKind::FREE);
    }
}

void GiveBack_Settle(const std::string& szNode)
{
    SNotes& roNotes = Notes();
    const std::lock_guard oGuard(roNotes.oMutex);
    const auto aoNotes = roNotes.poTable == nullptr ? std::span<SGiveBackNote>() : std::span(roNotes.poTable->aoNotes);
    for (SGiveBackNote& roNote : aoNotes)
    {
        if (roNote.eKind == ENoteKind::INPUT && szNode == roNote.szPath && Guardian_Follow(roNote) != -ENODEV)
        {
            PutInForce(roNote, ENoteKind::FREE);
        }
    }
}

void GiveBack_End()
{
    SNotes& roNotes = Notes();
    const std::lock_guard oGuard(roNotes.oMutex);
    if (roNotes.poTable == nullptr)
    {
        return;
    }
    const bool bGuarded = roNotes.oGuardian.IsRunning();
    roNotes.oGuardian.End();
    if (!bGuarded && !roNotes.szFile.empty())
    {
        unlink(roNotes.szFile.c_str());
    }
    munmap(std::exchange(roNotes.poTable, nullptr), sizeof(SGiveBackTable));
    roNotes.oFile.Close();
    roNotes.szFile.clear();
}
