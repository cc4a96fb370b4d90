/*
 * Field records of one stream as a run of bytes: what a field has in common with the one before is not kept. A run
 * stands for itself: its first record is told in full. No allocation; one thread at a time.
 */
#ifndef FIELD_PACKER_H
#define FIELD_PACKER_H

#include <cstdint>
#include <span>

#include "FieldRecord.h"

// Most bytes that one record takes: two of flags, and ten numbers of up to ten bytes.
constexpr uint32_t uiMostPackedBytes = 102;

// What the next record of a run is told against. All zeros at the begin of a run.
struct SPackedState
{
    SFieldRecord oLast = {};        // the last record; its stamp and counters are those of the last field
    uint64_t uiTickInterval = 0;    // between the last two fields
    uint64_t uiArrivalInterval = 0; // between the last two ends of waits
    uint64_t uiSetInterval = 0;     // set-buffer counts between the last two fields
};

/*
 * Appends a record to a run.
 *   roState    in/out  of the run
 *   roRecord   in      stamp, counters and parity of a wait that gave no field are not kept
 *   puiBytes   out     where to; room for uiMostPackedBytes
 * How many bytes it took.
 */
uint32_t FieldPacker_Pack(SPackedState& roState, const SFieldRecord& roRecord, uint8_t* puiBytes);

/*
 * Takes the next record out of a run.
 *   roState   in/out  of the run
 *   raoBytes  in/out  the rest of the run
 *   roRecord  out     as it was packed
 * False at the end of the run and when the bytes are none of a run.
 */
bool FieldPacker_Unpack(SPackedState& roState, std::span<const uint8_t>& raoBytes, SFieldRecord& roRecord);

#endif
