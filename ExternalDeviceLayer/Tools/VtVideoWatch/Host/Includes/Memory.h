/*
 * Work that may find no memory: it is dropped then, and the rest of the program goes on. Every such piece is counted,
 * and told in a line, one a second at most. Thread-safe.
 *
 * What is under way can often not be given up: a tree of JSON needs memory to be taken apart. For that there is a
 * reserve, which operator new falls back on; when half of it is used nothing more is begun until there is as much
 * again.
 */
#ifndef MEMORY_H
#define MEMORY_H

#include <cstdint>
#include <new>

#include "Fault.h"

/* Lays in the reserve, or what is missing of it, as far as the system has it. */
void Memory_Reserve();

/* Whether enough of the reserve is there. */
bool Memory_MayBegin();

/* Pieces of work that found none so far. */
uint64_t Memory_GetFailures();

/* Counts one more, and says what it was; needs no memory itself. */
void Memory_Lack(const char* szWhat);

/*
 * Does a piece of work.
 *   szWhat  in  what was not done if it found no memory: "no memory for ..."
 * False when it found none; what it had begun is as its own objects leave it.
 */
template <typename TDo> bool Memory_Do(const char* szWhat, const TDo& roDo)
{
    try
    {
        if (Memory_MayBegin())
        {
            roDo();
            return true;
        }
    }
    catch (const std::bad_alloc&)
    {
    }
    Memory_Lack(szWhat);
    return false;
}

/* Does what may fail, and tells the want of memory as any other fault; for what begins. */
template <typename TDo> CFault Memory_Try(const TDo& roDo)
{
    try
    {
        return roDo();
    }
    catch (const std::bad_alloc&)
    {
        return CFault("no memory"); // so short that it needs none
    }
}

#endif
