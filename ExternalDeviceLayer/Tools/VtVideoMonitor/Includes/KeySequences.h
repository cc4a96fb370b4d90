/*
 * Tells keys from the sequences that terminals send for arrows, function keys and the like: their letters are no
 * commands. Works byte by byte, for a sequence may come in pieces. State in one record, no terminal; main thread only.
 */
#ifndef KEY_SEQUENCES_H
#define KEY_SEQUENCES_H

#include <cstdint>

#include "KrvTypes.h"

/* What the last bytes began. */
enum class EKeySequence
{
    NONE,
    ESCAPE,        // ESC
    INTERMEDIATE,  // ESC and bytes from blank to '/'
    CONTROL_FIRST, // ESC [
    CONTROL,       // the same, with parameters
    CONSOLE_KEY,   // ESC [ [: a function key of the Linux console
    SINGLE_SHIFT,  // ESC O
    STRING,        // ESC and one of P X ] ^ _: ends with BEL or ESC and a backslash
    STRING_ESCAPE  // ESC in a string
};

struct SKeySequence
{
    EKeySequence eSequence;
    uint64_t uiLastByteMs; // when its last byte came
};

/*
 * Takes in a byte from the terminal.
 *   roSequence  in/out  all zero at start
 *   iByte       in      the byte
 *   uiNowMs     in      time, milliseconds
 * 1 for a key of its own, 0 for a byte of a sequence. ESC is never a key of its own.
 */
Bool32 IsKeyOfItsOwn(SKeySequence& roSequence, int32_t iByte, uint64_t uiNowMs);

/*
 * To be called when no byte is waiting: gives up a sequence whose rest is overdue, so that the next key counts. Bytes
 * that are waiting belong to the sequence however late the caller looks at them: to miss a key is better than to quit
 * on half a sequence.
 */
void ForgetOverdueSequence(SKeySequence& roSequence, uint64_t uiNowMs);

#endif
