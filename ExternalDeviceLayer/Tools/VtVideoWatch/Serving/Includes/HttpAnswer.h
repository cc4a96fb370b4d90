/*
 * A request to the HTTP server and what is answered. No state; any thread.
 */
#ifndef HTTP_ANSWER_H
#define HTTP_ANSWER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct SHttpRequest
{
    std::string szPath; // decoded, without the query
    std::string szQuery;
    std::string szAccept;
    std::string szIfNoneMatch;
    std::string szLastEventId;
    bool bAcceptsGzip = false;
    bool bIsHead = false;
};

using HttpPiece = std::shared_ptr<const std::string>;

enum class EHttpNext : uint8_t
{
    PIECE,
    NOTHING_YET,
    END
};

// A body that is not there as a whole. Its end means that the client is gone, or the server ends.
class IHttpStream
{
public:
    virtual ~IHttpStream() = default;

    /*
     * Before anything is taken.
     *   fnWake  in  to be called whenever there may be something after NOTHING_YET; by any thread, also later than
     * needed
     */
    virtual void SetWaker(std::function<void()> fnWake) = 0;

    /* The next piece. Must not wait. One thread at a time. */
    virtual EHttpNext TakeNext(HttpPiece& rpoPiece) = 0;
};

struct SHttpAnswer
{
    int iStatus = 200;
    const char* szType = "application/json";
    std::string_view szBody;
    HttpPiece poBody;       // what szBody points into, unless that lasts for ever
    std::string szETag;     // with its quotes; without one nothing may be kept by a cache
    std::string szFileName; // under which a browser keeps it; mostly empty
    bool bIsGzip = false;
    bool bVariesByEncoding = false;        // gzip or not, as the client accepts
    std::shared_ptr<IHttpStream> poStream; // instead of a body; none for HEAD
};

/* An answer whose body it owns. */
SHttpAnswer HttpAnswer_Make(int iStatus, const char* szType, std::string szBody);

/* The same answer compressed, where a client takes that and it is worth it. */
SHttpAnswer HttpAnswer_Compress(SHttpAnswer oAnswer, const SHttpRequest& roRequest);

/* {"error": ...} on one line. */
SHttpAnswer HttpAnswer_MakeError(int iStatus, std::string_view szText);

#endif
