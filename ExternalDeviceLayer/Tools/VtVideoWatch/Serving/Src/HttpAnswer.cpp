#include "HttpAnswer.h"

#include <nlohmann/json.hpp>
#include <zlib.h>

#include "WatchJson.h"

namespace
{

constexpr size_t uiLeastWorth = 1400; // what fits a packet is sent as it is
constexpr int iGzipWindow = 15 + 16;  // the largest, in a gzip file's form
constexpr int iMemoryLevel = 8;

// Empty when it cannot be.
std::string MakeGzip(std::string_view szText)
{
    z_stream oStream = {};
    // Twice the size at a third of the time of the usual level.
    if (deflateInit2(&oStream, Z_BEST_SPEED, Z_DEFLATED, iGzipWindow, iMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
    {
        return {};
    }
    std::string szPacked(deflateBound(&oStream, szText.size()), '\0');
    // The library takes what it only reads as if it wrote.
    oStream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(szText.data()));
    oStream.avail_in = static_cast<uInt>(szText.size());
    oStream.next_out = reinterpret_cast<Bytef*>(szPacked.data());
    oStream.avail_out = static_cast<uInt>(szPacked.size());
    const int iResult = deflate(&oStream, Z_FINISH);
    szPacked.resize(iResult == Z_STREAM_END ? oStream.total_out : 0);
    deflateEnd(&oStream);
    return szPacked;
}

} // namespace

SHttpAnswer HttpAnswer_Compress(SHttpAnswer oAnswer, const SHttpRequest& roRequest)
{
    if (oAnswer.bIsGzip || oAnswer.poStream != nullptr || oAnswer.szBody.size() < uiLeastWorth)
    {
        return oAnswer;
    }
    oAnswer.bVariesByEncoding = true;
    std::string szPacked = roRequest.bAcceptsGzip ? MakeGzip(oAnswer.szBody) : std::string();
    if (!szPacked.empty())
    {
        oAnswer.poBody = std::make_shared<const std::string>(std::move(szPacked));
        oAnswer.szBody = *oAnswer.poBody;
        oAnswer.bIsGzip = true;
    }
    return oAnswer;
}

SHttpAnswer HttpAnswer_Make(int iStatus, const char* szType, std::string szBody)
{
    SHttpAnswer oAnswer;
    oAnswer.iStatus = iStatus;
    oAnswer.szType = szType;
    oAnswer.poBody = std::make_shared<const std::string>(std::move(szBody));
    oAnswer.szBody = *oAnswer.poBody;
    return oAnswer;
}

SHttpAnswer HttpAnswer_MakeError(int iStatus, std::string_view szText)
{
    return HttpAnswer_Make(iStatus, "application/json", WatchJson_Print({{"error", szText}}) + "\n");
}
