#include "HttpServer.h"

#include <nlohmann/json.hpp>

#include "WatchJson.h"

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
