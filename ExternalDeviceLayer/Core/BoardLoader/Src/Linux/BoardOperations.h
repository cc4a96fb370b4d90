/*
 * The operations of the interface, each a call into the library that was loaded.
 */
#ifndef BOARD_OPERATIONS_H
#define BOARD_OPERATIONS_H

/*
 * Takes the address of every operation from a library. Main thread only.
 *   pvLibrary  in  as dlopen gave it
 * Null, or the name of the first operation that the library does not have.
 */
const char* BindBoardOperations(void* pvLibrary);

#endif
