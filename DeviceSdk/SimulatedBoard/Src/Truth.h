/*
 * The file of ground truth: one row for every field delivered, lost, missed or passed over.
 *
 * Rows are in the file before the wait that they tell of returns, so that nothing is missing however the process is
 * ended. They go there whole, never in parts, and rows of one stream in order.
 */
#ifndef SIMULATED_BOARD_TRUTH_H
#define SIMULATED_BOARD_TRUTH_H

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "StreamModel.h"

// The file. Thread-safe.
class CTruthFile
{
public:
    /* Null, with errno telling why, when the file cannot be written. */
    static std::unique_ptr<CTruthFile> Open(const std::string& rszFile, bool bDetail);
    /* Whether rows tell what the queries say, and where events end. */
    bool IsDetailed() const { return m_bDetail; }
    /*
     * Appends whole rows. The first time that this fails it says so on standard error, and nothing is written any more.
     */
    void Write(const std::string& rszRows);

private:
    struct SFileCloser
    {
        void operator()(std::FILE* pFile) const { (void)std::fclose(pFile); }
    };
    CTruthFile(std::string szFile, bool bDetail, std::FILE* pFile)
        : m_szFile(std::move(szFile)), m_bDetail(bDetail), m_pFile(pFile)
    {
    }

    const std::string m_szFile;
    const bool m_bDetail;
    std::unique_ptr<std::FILE, SFileCloser> m_pFile; // unbuffered: one call, one write
    std::atomic<bool> m_bFailed{false};
};

// One stream's rows. Thread-safe.
class CTruthRows
{
public:
    /* pFile null: every call does nothing. */
    CTruthRows(CTruthFile* pFile, std::string szStream, const CStreamModel& roModel)
        : m_pFile(pFile), m_szStream(std::move(szStream)), m_roModel(roModel)
    {
    }

    /* A wait that began with uiFrom unseen returns uiReported (uiForEver: none), which leaves uiNext as the next. */
    void Add(uint64_t uiFrom, uint64_t uiReported, uint64_t uiNext);

private:
    std::string FormatRow(uint64_t uiField, bool bReported) const;
    std::string FormatEnds(uint64_t uiField) const;
    std::string FormatDetail(const SFieldStart& roField) const;

    CTruthFile* const m_pFile;
    const std::string m_szStream; // first columns
    const CStreamModel& m_roModel;
    std::mutex m_oMutex;
    uint64_t m_uiNext = 0; // fields before have their row
};

#endif
