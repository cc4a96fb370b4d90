/*
 * The terminal: ANSI sequences and text to standard output, single keys from standard input. Keys are read by the main
 * thread alone; text may come from every thread.
 */
#ifndef TERMINAL_H
#define TERMINAL_H

#include <cstdint>
#include <initializer_list>

inline constexpr char szEraseToLineEnd[] = "\033[K";

/*
 * Writes the texts, one behind the other, as one piece to standard output, and waits while the terminal takes no more.
 * What cannot be written at all is dropped.
 */
void PrintToTerminal(std::initializer_list<const char*> oTexts);

/*
 * Reads one key without waiting.
 * The code of the next waiting input byte; -1 when none is waiting, standard input is at its end, or the process is in
 * the background of the terminal, which it then leaves alone. The terminal is raw only for the length of the call.
 */
int32_t getch();

/* Erases the screen, except in the one-shot report; the cursor stays where it is. */
void ClearScreen();

/*
 * Places the cursor, except in the one-shot report.
 *   uiXPos  in  column, from 0
 *   uiYPos  in  row, from 0
 */
void SetCursorPosition(uint32_t uiXPos, uint32_t uiYPos);

/* Whether the terminal has got another size since the last call. */
bool TakeScreenResize();

/*
 * To be called once before the first getch: a signal that ends or stops the process waits for the end of a key read,
 * and so leaves the terminal as it was found. Also opens /dev/null in the place of a closed standard stream, so that no
 * file opened later is taken for one.
 */
void PrepareTerminal();

#endif
