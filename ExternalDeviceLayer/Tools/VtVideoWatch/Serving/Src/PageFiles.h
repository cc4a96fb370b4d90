/*
 * The files of the page. They are part of the program, compressed while it is built, so that it needs neither a source
 * tree nor a place of installation. No state; any thread.
 */
#ifndef PAGE_FILES_H
#define PAGE_FILES_H

#include <span>
#include <string_view>

#include "HttpServer.h"

struct SPageFile
{
    const char* szPath; // "/", "/page.js"
    const char* szType;
    const char* szETag; // without its quotes
    std::string_view szPlain;
    std::string_view szGzip;
};

/* All files; made by the build. */
std::span<const SPageFile> PageFiles_GetAll();

/* The file that a request asks for, or 404. */
SHttpAnswer PageFiles_Answer(const SHttpRequest& roRequest);

#endif
