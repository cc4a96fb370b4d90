/*
 * Texts that a board has written are data: they may be unterminated, and may carry what a terminal, a log file or a
 * scraper would obey. They come into the programs through here. No state; any thread.
 */
#ifndef BOARD_TEXT_H
#define BOARD_TEXT_H

#include <span>

#include "KrvTypes.h"

/*
 * Makes a text printable in its place, one '?' for every byte that is not. Printable are the characters of ASCII from
 * blank to tilde and well-formed UTF-8 from U+00A0 up, without the marks that separate lines or turn the direction of
 * writing. The controls C0, DEL and C1 are not, nor is a sequence that the end of the text cuts.
 *   szText  in/out  the text; ends at its first zero, or where the span ends
 */
void MakePrintable(std::span<char> szText);

/*
 * Copies a text that the board wrote, made printable.
 *   szText  in/out  what the board wrote, terminated or not; terminated and printable afterwards
 *   szCopy  out     the copy, cut to 63 characters
 */
void CopyBoardText(std::span<char> szText, VTSTR64& szCopy);

#endif
