/*
 * Standard input, output and error of the process. No state; call it before any thread or file exists.
 */
#ifndef STANDARD_FILES_H
#define STANDARD_FILES_H

/*
 * Keeps the places of standard files that the caller has closed, so that none of the program's own files takes them and
 * gets what is said there. Using them fails as before.
 */
void StandardFiles_KeepPlaces();

#endif
