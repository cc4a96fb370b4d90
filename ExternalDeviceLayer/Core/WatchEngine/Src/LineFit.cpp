#include "LineFit.h"

#include <algorithm>

double SLineSums::GetRest() const
{
    return std::max(0.0, flYY - GetSlope() * flXY);
}

SLineSums LineSums_Make(std::span<const SLinePoint> aoPoints)
{
    SLineSums oSums;
    if (aoPoints.empty())
    {
        return oSums;
    }
    const SLinePoint& roOrigin = aoPoints.front();
    double flX = 0.0;
    double flY = 0.0;
    for (const SLinePoint& roPoint : aoPoints)
    {
        oSums.flWeight += roPoint.flWeight;
        flX += roPoint.flWeight * (roPoint.flX - roOrigin.flX);
        flY += roPoint.flWeight * (roPoint.flY - roOrigin.flY);
    }
    if (oSums.flWeight <= 0.0)
    {
        return oSums;
    }
    flX /= oSums.flWeight;
    flY /= oSums.flWeight;
    for (const SLinePoint& roPoint : aoPoints)
    {
        const double flFromX = roPoint.flX - roOrigin.flX - flX;
        const double flFromY = roPoint.flY - roOrigin.flY - flY;
        oSums.flXX += roPoint.flWeight * flFromX * flFromX;
        oSums.flXY += roPoint.flWeight * flFromX * flFromY;
        oSums.flYY += roPoint.flWeight * flFromY * flFromY;
    }
    oSums.flMeanX = roOrigin.flX + flX;
    oSums.flMeanY = roOrigin.flY + flY;
    return oSums;
}

SLineSums LineSums_Combine(const SLineSums& roA, const SLineSums& roB)
{
    if (roA.flWeight == 0.0 || roB.flWeight == 0.0)
    {
        return roA.flWeight == 0.0 ? roB : roA;
    }
    SLineSums oSums = roA;
    const double flX = roB.flMeanX - roA.flMeanX;
    const double flY = roB.flMeanY - roA.flMeanY;
    oSums.flWeight = roA.flWeight + roB.flWeight;
    const double flShare = roB.flWeight / oSums.flWeight;
    const double flApart = roA.flWeight * flShare;
    oSums.flMeanX += flX * flShare;
    oSums.flMeanY += flY * flShare;
    oSums.flXX += roB.flXX + flX * flX * flApart;
    oSums.flXY += roB.flXY + flX * flY * flApart;
    oSums.flYY += roB.flYY + flY * flY * flApart;
    return oSums;
}

double LineSums_GetRest(const SLineSums& roSums, std::span<const SLinePoint> aoPoints)
{
    if (aoPoints.empty())
    {
        return 0.0;
    }
    // Relative to the first point, as the sums are: the mean itself may have lost the digits that matter.
    const SLinePoint& roOrigin = aoPoints.front();
    const double flSlope = roSums.GetSlope();
    double flDistances = 0.0;
    for (const SLinePoint& roPoint : aoPoints)
    {
        flDistances += roPoint.flWeight * (roPoint.flY - roOrigin.flY - flSlope * (roPoint.flX - roOrigin.flX));
    }
    const double flMean = roSums.flWeight > 0.0 ? flDistances / roSums.flWeight : 0.0;
    double flRest = 0.0;
    for (const SLinePoint& roPoint : aoPoints)
    {
        const double flDistance = roPoint.flY - roOrigin.flY - flSlope * (roPoint.flX - roOrigin.flX) - flMean;
        flRest += roPoint.flWeight * flDistance * flDistance;
    }
    return flRest;
}
