/*
 * What a request's line and headers mean. No state; any thread.
 */
#ifndef HTTP_REQUEST_H
#define HTTP_REQUEST_H

#include <string>
#include <string_view>

#include "HttpServer.h"

/*
 * Takes a request's target apart: /path?query, or that behind http://host.
 *   rszHost  in, out  the Host header; what an absolute target says counts instead
 * False for a target that has no path (*), or whose percent signs are no encoding.
 */
bool HttpRequest_ReadTarget(std::string_view szTarget, SHttpRequest& roRequest, std::string& rszHost);

/* Without its port: "[::1]" of "[::1]:80". */
std::string_view HttpRequest_GetHostName(std::string_view szHost);

/* Whether an Accept-Encoding header takes gzip: named, or by *, and not with a weight of 0. */
bool HttpRequest_AcceptsGzip(std::string_view szAcceptEncoding);

/*
 * The weight that an Accept header gives a media type, 0 to 1000; 0: not wanted.
 *   szType     in  "text/plain"
 *   szVersion  in  of it, "1.0.0": where a range of this very type names a version, it must be this one; may be empty
 */
int HttpRequest_GetAcceptWeight(std::string_view szAccept, std::string_view szType, std::string_view szVersion);

/* Whether an If-None-Match header names an entity tag, given with its quotes, weak or not, or is *. */
bool HttpRequest_HasTag(std::string_view szIfNoneMatch, std::string_view szETag);

#endif
