/* A text from a regular file. Entered by any thread, keeps nothing. */
#ifndef BOARD_COMMON_TEXT_FILE_H
#define BOARD_COMMON_TEXT_FILE_H

#include <string>

#include "TextFault.h"

/*
 * Reads at most uiMostBytes + 1 bytes, so that whoever takes the text can say that it is too long. False with roFault
 * set when there is no such file, it is none that can be read to its end, or the system refuses it. Blocks as the file
 * does.
 */
bool TextFile_Read(const std::string& rszFile, size_t uiMostBytes, std::string& rszText, STextFault& roFault);

#endif
