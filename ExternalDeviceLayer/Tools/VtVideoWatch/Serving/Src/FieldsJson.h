/*
 * Single fields as JSON: how far each is off an even spacing, and what is missing between them. No state.
 */
#ifndef FIELDS_JSON_H
#define FIELDS_JSON_H

#include "RecordingSource.h"
#include "WatchJson.h"

/* Shape: docs/api/fields.schema.json. */
CJson FieldsJson_FromFields(const SStreamKey& roStream, const SRecordedFields& roFields);

#endif
