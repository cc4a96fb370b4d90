#include "PageFiles.h"

#include <algorithm>

#include "HttpRequest.h"
#include "WatchJson.h"

SHttpAnswer PageFiles_Answer(const SHttpRequest& roRequest)
{
    const auto aoFiles = PageFiles_GetAll();
    const auto oFile =
        std::ranges::find_if(aoFiles, [&](const SPageFile& roFile) { return roRequest.szPath == roFile.szPath; });
    if (oFile == aoFiles.end())
    {
        return HttpAnswer_MakeError(404, "there is nothing at " + roRequest.szPath);
    }
    SHttpAnswer oAnswer;
    oAnswer.szType = oFile->szType;
    oAnswer.bIsGzip = roRequest.bAcceptsGzip;
    oAnswer.bVariesByEncoding = true;
    // Both forms are of one file, but a cache has to tell them apart.
    oAnswer.szETag = std::string("\"") + oFile->szETag + (oAnswer.bIsGzip ? "-gz\"" : "\"");
    if (HttpRequest_HasTag(roRequest.szIfNoneMatch, oAnswer.szETag))
    {
        oAnswer.iStatus = 304;
        return oAnswer;
    }
    oAnswer.szBody = oAnswer.bIsGzip ? oFile->szGzip : oFile->szPlain;
    return oAnswer;
}
