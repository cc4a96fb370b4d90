/*
 * Least squares of a straight line, for everybody who draws one: sums of weighted points about their means, which
 * combine (T. Chan, G. Golub, R. LeVeque, "Updating formulae and a pairwise algorithm for computing sample variances",
 * 1979). Pure functions; any thread.
 */
#ifndef LINE_FIT_H
#define LINE_FIT_H

#include <span>

struct SLinePoint
{
    double flX = 0.0;
    double flY = 0.0;
    double flWeight = 0.0; // 0: not there
};

// Sums about the means of a set of points.
struct SLineSums
{
    double flWeight = 0.0;
    double flMeanX = 0.0;
    double flMeanY = 0.0;
    double flXX = 0.0;
    double flXY = 0.0;
    double flYY = 0.0;

    /* 0 when the points do not tell. */
    double GetSlope() const { return flXX > 0.0 ? flXY / flXX : 0.0; }
    double GetY(double flX) const { return flMeanY + GetSlope() * (flX - flMeanX); }
    /* Sum of squared distances from the line: a difference, good to some 1e-15 of flYY. */
    double GetRest() const;
};

/* The sums of points. Two passes, relative to the first point, so that a large common value costs no digits. */
SLineSums LineSums_Make(std::span<const SLinePoint> aoPoints);

/* The sums of both sets together; both of one origin. */
SLineSums LineSums_Combine(const SLineSums& roA, const SLineSums& roB);

/* Sum of squared distances of the points from their line, each taken on its own: right however small it is. */
double LineSums_GetRest(const SLineSums& roSums, std::span<const SLinePoint> aoPoints);

#endif
