/*
 * Who is let in, and to what: a request is judged as soon as its headers are there, and decided upon once it is whole.
 * Called by the library's thread, from within the library; what takes longer is given to other threads. MHD_NO: the
 * connection is closed.
 */
#ifndef HTTP_ADMISSION_H
#define HTTP_ADMISSION_H

#include "HttpCall.h"
#include "HttpService.h"

/* The headers are there. What is refused is refused now, before any body. */
MHD_Result HttpAdmission_ReadHead(SHttpService& roService, const HttpCallPtr& rpoCall, const char* szMethod,
                                  const char* szVersion);

/* The whole request is there: certificate, name and password, and then the answer. */
MHD_Result HttpAdmission_Decide(SHttpService& roService, const HttpCallPtr& rpoCall);

#endif
