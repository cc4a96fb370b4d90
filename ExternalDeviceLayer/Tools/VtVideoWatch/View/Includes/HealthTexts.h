/*
 * The words and sentences of the judgement, the same in every answer, line and entry. No state; any thread.
 */
#ifndef HEALTH_TEXTS_H
#define HEALTH_TEXTS_H

#include <string>

#include "StreamTrackers.h"
#include "WatchHealth.h"

// Values outside of the enumeration are "unknown".
const char* HealthTexts_GetStatus(EHealthStatus eStatus);
const char* HealthTexts_GetDomain(EHealthDomain eDomain);
const char* HealthTexts_GetShare(EIncidentShare eShare);
const char* HealthTexts_GetCause(EUnobservedCause eCause);

/* "3:2"; empty when there is none. */
std::string HealthTexts_GetCadence(const SCadence& roCadence);

/* The value of a member of a description: "true", a pixel format's name, or its number. */
std::string HealthTexts_GetMemberValue(uint32_t uiMember, uint64_t uiValue);

/* Why a domain of a stream is what it is, one short sentence without a full stop. */
std::string HealthTexts_GetReason(EHealthDomain eDomain, const SStreamKey& roOf, const SHealthReason& roReason);

/* The domain that makes a stream what it is. */
EHealthDomain HealthTexts_GetWorst(const SStreamHealth& roHealth);

/* The cause of an incident, as far as the data tell. */
std::string HealthTexts_GetIncidentCause(const SIncident& roIncident);

/* Its streams: "IN_00, 02, 04-07, OUT_01". */
std::string HealthTexts_GetIncidentStreams(const SIncident& roIncident);

/* What it cost: "1 field", "120 pictures"; empty when nothing. */
std::string HealthTexts_GetIncidentLost(const SIncident& roIncident);

/* An incident in one line: "feed of OUT_00: no new picture comes". */
std::string HealthTexts_GetIncidentTitle(const SIncident& roIncident);

#endif
