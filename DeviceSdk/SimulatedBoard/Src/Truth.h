// The file of ground truth: one row for every field delivered, lost, missed or passed over.
//
// Each stream collects its rows in a buffer of its own and hands them over a block at a time, so streams do not wait
// for each other; rows of one stream are in order, blocks of different streams alternate.
#ifndef SIMULATED_BOARD_TRUTH_H
#define SIMULATED_BOARD_TRUTH_H

#include "StreamModel.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

// The file. Thread-safe.
class CTruthFile
{
public:
    // Null, with errno telling why, when the file cannot be written.
    static std::unique_ptr<CTruthFile> Open(const std::string& rszFile);
    // Says so on standard error when rows did not reach the file.
    ~CTruthFile();
    CTruthFile(const CTruthFile&) = delete;
    CTruthFile& operator=(const CTruthFile&) = delete;
    void Write(const std::string& rszRows);
    bool Flush();

private:
    struct SFileCloser
    {
        void operator()(std::FILE* pFile) const { (void)std::fclose(pFile); }
    };
    CTruthFile(std::string szFile, std::FILE* pFile) : m_szFile(std::move(szFile)), m_pFile(pFile) {}

    const std::string m_szFile;
    std::mutex m_oMutex;
    std::unique_ptr<std::FILE, SFileCloser> m_pFile;
};

// One stream's rows. Thread-safe.
class CTruthRows
{
public:
    // pFile null: every call does nothing.
    CTruthRows(CTruthFile* pFile, std::string szStream, const CStreamModel& roModel)
        : m_pFile(pFile), m_szStream(std::move(szStream)), m_roModel(roModel)
    {
    }
    ~CTruthRows() { Flush(); }
    CTruthRows(const CTruthRows&) = delete;
    CTruthRows& operator=(const CTruthRows&) = delete;

    bool IsOn() const { return m_pFile != nullptr; }
    // A wait that began with uiFrom unseen has returned uiReported (gc_uiForEver: none), which leaves uiNext as the
    // next.
    void Add(uint64_t uiFrom, uint64_t uiReported, uint64_t uiNext);
    void Flush();

private:
    void AddRow(uint64_t uiField, bool bReported);

    CTruthFile* const m_pFile;
    const std::string m_szStream; // first columns
    const CStreamModel& m_roModel;
    std::mutex m_oMutex;
    uint64_t m_uiNext = 0; // fields before have their row
    std::string m_szRows;
};

#endif
