/*
 * Where the fields of the kernel's event of a dequeued video buffer lie in its binary record, as the kernel describes
 * them itself. Plain C, for the reader of that description.
 */
#ifndef LINUX_BOARD_TRACE_LAYOUT_H
#define LINUX_BOARD_TRACE_LAYOUT_H

struct STraceField
{
    unsigned int uiOffset; /* bytes */
    unsigned int uiSize;   /* bytes; 0 when the kernel has no such field */
};

struct STraceLayout
{
    int iEventId; /* what the field of the event's number holds */
    struct STraceField oEventId;
    struct STraceField oMinor;
    struct STraceField oType;
    struct STraceField oFlags;
    struct STraceField oField;
    struct STraceField oStamp;
    struct STraceField oSequence;
};

#endif
