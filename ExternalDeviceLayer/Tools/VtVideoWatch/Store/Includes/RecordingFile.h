/*
 * Recordings: every field of some seconds or minutes, in a SQLite file that documents itself (docs/Recordings.md). Here
 * is how one is written and read; when one is made stands elsewhere.
 *
 * A writer or reader belongs to one thread.
 */
#ifndef RECORDING_FILE_H
#define RECORDING_FILE_H

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "Fault.h"
#include "Recording.h"
#include "StoreFile.h"
#include "WatchEvent.h"

// Of the layout; a program refuses recordings of a newer one.
constexpr int iRecordingVersion = 1;
// Rows of a recording at most: a day of 64 streams at 60 fields/s is less.
constexpr uint64_t uiMostRecordedFields = 400'000'000;

class CRecordingWriter
{
public:
    CRecordingWriter() = default;
    ~CRecordingWriter() { Discard(); }
    CRecordingWriter(const CRecordingWriter&) = delete;
    CRecordingWriter& operator=(const CRecordingWriter&) = delete;

    /* Whether a recording of that name could be begun; leaves nothing. */
    static CFault TryName(const std::string& rszFile);

    /*
     * Begins a recording. It stands beside its name, with szRecordingPart behind it, until it is whole.
     *   rszFile   in   its name; a file of that name is replaced at the end
     *   roAbout   in
     *   aoStreams in   all streams that fields may be of
     */
    CFault Begin(const std::string& rszFile, const SRecordingAbout& roAbout, std::span<const SStreamKey> aoStreams);

    // Each is false when the disk refuses it; the recording is lost then.
    bool AddField(const SStreamKey& roStream, const SFieldRecord& roField);
    bool AddDescription(const SRecordedDescription& roDescription);
    bool AddEvent(const SWatchEvent& roEvent);
    bool AddClock(const SRecordedClock& roClock);

    uint64_t GetFieldCount() const { return m_uiFields; }
    /* Bytes that it takes so far, about. */
    uint64_t GetBytes() const;

    /* Gives it up, and says why it could not be written. */
    CFault Fail();

    /* Makes it whole and gives it its name. On a fault nothing is left. */
    CFault Finish();
    /* Gives it up; nothing is left. */
    void Discard();

private:
    int64_t GetRow(const SStreamKey& roStream) const;
    bool WriteAbout(const SRecordingAbout& roAbout);

    std::string m_szFile;
    StoreFilePtr m_poFile;
    CStoreStatement m_oField;
    std::map<SStreamKey, int64_t> m_oRows;
    uint64_t m_uiFields = 0;
};

constexpr char szRecordingPart[] = ".part";

/* Whether a file begins as recordings do. */
bool RecordingFile_IsOne(const std::string& rszFile);

struct SRecordedStream
{
    int64_t iRow = 0;
    SStreamKey oKey;
};

class CRecordingReader
{
public:
    /*
     * Opens a recording and reads everything but its fields.
     *   rszFile  in
     * The fault says what is wrong and where.
     */
    CFault Open(const std::string& rszFile);
    /* The same of one that is in memory, which must outlive the reader. */
    CFault OpenBytes(std::span<const uint8_t> aoBytes);

    const SRecordingAbout& GetAbout() const { return m_oAbout; }
    const std::vector<SRecordedStream>& GetStreams() const { return m_aoStreams; }
    const std::vector<SRecordedDescription>& GetDescriptions() const { return m_aoDescriptions; }
    const std::vector<SRecordedClock>& GetClocks() const { return m_aoClocks; }
    /* Events with their kind's word, oldest first. */
    const std::vector<SWatchEvent>& GetEvents() const { return m_aoEvents; }

    using Take = std::function<void(const SFieldRecord&)>;
    /*
     * Hands out the fields of a stream, in their order.
     *   roStream  in
     *   rfnTake   in  called for each
     * The fault says what is wrong with the first row that is no field; what came before it has been handed out.
     */
    CFault ForEachField(const SRecordedStream& roStream, const Take& rfnTake);

private:
    CFault Refuse(const std::string& rszWhy) const;
    CFault EndOf(const CStoreStatement& roRows) const;
    CFault ReadAll();
    CFault CheckLayout();
    CFault ReadAbout();
    CFault ReadStreams();
    CFault ReadDescriptions();
    CFault ReadClocks();
    CFault ReadEvents();
    const SRecordedStream* FindRow(int64_t iRow) const;

    std::string m_szFile;
    StoreFilePtr m_poFile;
    SRecordingAbout m_oAbout;
    std::vector<SRecordedStream> m_aoStreams;
    std::vector<SRecordedDescription> m_aoDescriptions;
    std::vector<SRecordedClock> m_aoClocks;
    std::vector<SWatchEvent> m_aoEvents;
};

#endif
