/*
 * Answers on their way out: the library's responses made of ours, at once or piece by piece. Called by the library's
 * thread, from within the library. MHD_NO: there is no memory, and the connection is closed.
 */
#ifndef HTTP_REPLY_H
#define HTTP_REPLY_H

#include "HttpCall.h"
#include "HttpService.h"

/* Hands over the answer of a call, which keeps its body until it is over. */
MHD_Result HttpReply_Send(SHttpService& roService, const HttpCallPtr& rpoCall);

/* Answers a call by one line that says why not. */
MHD_Result HttpReply_Refuse(SHttpService& roService, const HttpCallPtr& rpoCall, int iStatus, const char* szText);

#endif
