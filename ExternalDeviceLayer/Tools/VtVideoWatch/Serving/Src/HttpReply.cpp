#include "HttpReply.h"

#include <utility>

#include <microhttpd.h>

#include "Memory.h"

namespace
{

constexpr size_t uiStreamBytes = 16384;

constexpr std::pair<const char*, const char*> aszSecurityHeaders[] = {
    {"Content-Security-Policy", "default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

void CountAnswer(SHttpService& roService, int iStatus)
{
    size_t i = 0;
    while (i + 1 < aiHttpStatuses.size() && aiHttpStatuses[i] != iStatus)
    {
        ++i;
    }
    roService.auiCounts[i].fetch_add(1, std::memory_order_relaxed);
}

// A call, and the service that it is made to: what the library's callbacks are given of a stream.
struct SStreamReader
{
    SHttpService& roService;
    HttpCallPtr poCall;
};

bool TakePiece(SHttpService& roService, SHttpCall& roCall)
{
    roCall.uiSent = 0;
    while (!roCall.poPlace->poDaemon->bIsEnding)
    {
        EHttpNext eNext = EHttpNext::END; // without memory for a piece whoever listens has to come again
        Memory_Do("a live message", [&] { eNext = roCall.oAnswer.poStream->TakeNext(roCall.poPiece); });
        switch (eNext)
        {
        case EHttpNext::PIECE:
            roService.oConnections.SetPhase(*roCall.poPlace, EHttpPhase::ANSWERING);
            return true;
        case EHttpNext::END:
            return false;
        case EHttpNext::NOTHING_YET:
            roCall.poPiece = nullptr;
            roService.oConnections.SetPhase(*roCall.poPlace, EHttpPhase::WAITING);
            if (HttpCall_Sleep(roCall))
            {
                return true;
            }
        }
    }
    return false;
}

ssize_t OnRead(void* poReader, uint64_t /*uiPosition*/, char* pchTo, size_t uiMost)
{
    const SStreamReader& roReader = *static_cast<SStreamReader*>(poReader);
    SHttpCall& roCall = *roReader.poCall;
    const bool bIsSent = roCall.poPiece == nullptr || roCall.uiSent == roCall.poPiece->size();
    if (bIsSent && !TakePiece(roReader.roService, roCall))
    {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    if (roCall.poPiece == nullptr)
    {
        return 0;
    }
    const size_t uiBytes = roCall.poPiece->copy(pchTo, uiMost, roCall.uiSent);
    roCall.uiSent += uiBytes;
    return static_cast<ssize_t>(uiBytes);
}

void OnReadOver(void* poReader)
{
    delete static_cast<SStreamReader*>(poReader);
}

MHD_Response* MakeResponse(SHttpService& roService, const HttpCallPtr& rpoCall)
{
    const SHttpAnswer& roAnswer = rpoCall->oAnswer;
    if (roAnswer.poStream != nullptr)
    {
        roAnswer.poStream->SetWaker(
            [poCall = std::weak_ptr<SHttpCall>(rpoCall)]
            {
                if (const HttpCallPtr poAwake = poCall.lock())
                {
                    HttpCall_Wake(*poAwake);
                }
            });
        auto poReader = std::make_unique<SStreamReader>(SStreamReader{roService, rpoCall});
        MHD_Response* poResponse =
            MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, uiStreamBytes, OnRead, poReader.get(), OnReadOver);
        // It deletes the reader, if it is there.
        static_cast<void>(poResponse == nullptr ? nullptr : poReader.release());
        return poResponse;
    }
    // The call keeps the body until it is over.
    return MHD_create_response_from_buffer(roAnswer.szBody.size(), const_cast<char*>(roAnswer.szBody.data()),
                                           MHD_RESPMEM_PERSISTENT);
}

void AddHeaders(MHD_Response* poResponse, const SHttpAnswer& roAnswer)
{
    const auto Add = [poResponse](const char* szName, const std::string& rszValue)
    { MHD_add_response_header(poResponse, szName, rszValue.c_str()); };
    for (const auto& [szName, szValue] : aszSecurityHeaders)
    {
        Add(szName, szValue);
    }
    Add("Content-Type", roAnswer.szType);
    Add("Cache-Control", roAnswer.szETag.empty() ? "no-store" : "no-cache");
    if (!roAnswer.szETag.empty())
    {
        Add("ETag", roAnswer.szETag);
    }
    if (!roAnswer.szFileName.empty())
    {
        Add("Content-Disposition", "attachment; filename=\"" + roAnswer.szFileName + "\"");
    }
    if (roAnswer.bVariesByEncoding)
    {
        Add("Vary", "Accept, Accept-Encoding");
    }
    if (roAnswer.bIsGzip)
    {
        Add("Content-Encoding", "gzip");
    }
    if (roAnswer.iStatus == 401)
    {
        Add("WWW-Authenticate", "Basic realm=\"VtVideoWatch\", charset=\"UTF-8\"");
    }
    if (roAnswer.iStatus == 405)
    {
        Add("Allow", "GET, HEAD");
    }
    if (roAnswer.iStatus == 503)
    {
        Add("Retry-After", "2");
    }
}

} // namespace

MHD_Result HttpReply_Send(SHttpService& roService, const HttpCallPtr& rpoCall)
{
    CountAnswer(roService, rpoCall->oAnswer.iStatus);
    roService.oConnections.SetPhase(*rpoCall->poPlace, EHttpPhase::ANSWERING);
    MHD_Response* poResponse = MakeResponse(roService, rpoCall);
    if (poResponse == nullptr)
    {
        return MHD_NO;
    }
    AddHeaders(poResponse, rpoCall->oAnswer);
    const MHD_Result eResult =
        MHD_queue_response(rpoCall->poConnection, static_cast<unsigned>(rpoCall->oAnswer.iStatus), poResponse);
    MHD_destroy_response(poResponse);
    return eResult;
}

MHD_Result HttpReply_Refuse(SHttpService& roService, const HttpCallPtr& rpoCall, int iStatus, const char* szText)
{
    rpoCall->oAnswer = HttpAnswer_MakeError(iStatus, szText);
    return HttpReply_Send(roService, rpoCall);
}
