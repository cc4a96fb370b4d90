/*
 * The judgement as JSON: the health of a stream, of the whole, and incidents; shapes in docs/api/. No state; any
 * thread.
 */
#ifndef HEALTH_JSON_H
#define HEALTH_JSON_H

#include "PacingHistogram.h"
#include "StreamTrackers.h"
#include "WatchHealth.h"
#include "WatchJson.h"

/* {overall, since, transitions, domains: {signal: {status, since, reason, transitions}, ...}}. */
CJson HealthJson_FromStream(const SStreamKey& roOf, const SStreamHealth& roHealth);

/* {overall, since, incidents_open, incidents}: of the whole. */
CJson HealthJson_FromWhole(const SJudgement& roJudgement);

/* An incident; its end is null while it is open. */
CJson HealthJson_FromIncident(const SIncident& roIncident);

/* Percentiles of a histogram, its worst field and its bins. */
CJson HealthJson_FromPacing(const SPacingHistogram& roPacing);

/* Queues, feed, field order, causes and pacing of a stream, appended to its object. */
void HealthJson_AddTrackers(CJson& roJson, const SStreamFigures& roStream);

#endif
