/*
 * What is common to all ways in: how requests are answered, the places for connections, who may ask, and the threads
 * that make what takes longer. Outlives every daemon. The functions are set before one starts; the rest is thread-safe.
 */
#ifndef HTTP_SERVICE_H
#define HTTP_SERVICE_H

#include <array>
#include <atomic>
#include <functional>

#include "HttpConnections.h"
#include "HttpJobs.h"
#include "HttpServer.h"
#include "HttpUsers.h"

struct SHttpService
{
    explicit SHttpService(size_t uiMostConnections) : oConnections(uiMostConnections) {}

    std::function<SHttpAnswer(const SHttpRequest& roRequest)> oAnswer;
    std::function<bool(const SHttpRequest& roRequest)> oIsSlow;
    CHttpConnections oConnections;
    CHttpUsers oUsers;
    CHttpJobs oJobs{2, 32};   // long answers
    CHttpJobs oChecks{1, 16}; // passwords: who guesses holds up nobody who is known
    std::array<std::atomic<uint64_t>, aiHttpStatuses.size()> auiCounts = {};
};

#endif
