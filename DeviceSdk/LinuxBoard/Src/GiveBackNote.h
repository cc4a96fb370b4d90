/*
 * What has to be given back when this process is no more: settings of inputs that we stream, and instances of the
 * trace. A table of plain records in memory that is shared with the guardian and, where there is a folder for it, with
 * a file that the next start finds. Nothing here allocates or locks, for the guardian may do neither.
 */
#ifndef LINUX_BOARD_GIVE_BACK_NOTE_H
#define LINUX_BOARD_GIVE_BACK_NOTE_H

#include <array>
#include <cstdint>
#include <linux/videodev2.h>
#include <string_view>

/* Settings of a capture node, as they were found. A part that the driver does not have is not set. */
struct SInputSettings
{
    uint32_t bTimings;
    uint32_t bCrop;
    uint32_t bCompose;
    uint32_t bFrameTime;
    v4l2_dv_timings oTimings;
    v4l2_format oFormat;
    v4l2_rect oCrop;
    v4l2_rect oCompose;
    v4l2_streamparm oFrameTime;
};

enum class ENoteKind : uint32_t
{
    FREE,
    INPUT,
    TRACE_INSTANCE
};

struct SGiveBackNote
{
    ENoteKind eKind; /* written last when a note is made, first when it is dropped */
    char szPath[128];
    char szDriver[16]; /* of an input: another device under the same path is not ours to set */
    char szBus[32];
    SInputSettings oFound;
    v4l2_format oOurs; /* the format that we set; whoever has set another one since keeps it */
};

inline constexpr size_t uiMaxNotes = 256;
inline constexpr uint64_t uiNoteMagic = 0x3130304742545600; /* and the version of the layout */

struct SGiveBackTable
{
    uint64_t uiMagic;
    char szBoot[40]; /* identifies the run of the kernel: another one has forgotten all settings */
    std::array<SGiveBackNote, uiMaxNotes> aoNotes;
};

/* Copies a text that fits, terminated; cuts one that does not. */
template <size_t uiSize> void GiveBackNote_SetText(char (&acTo)[uiSize], std::string_view szFrom)
{
    const size_t uiLength = szFrom.copy(acTo, uiSize - 1);
    acTo[uiLength] = '\0';
}

#endif
