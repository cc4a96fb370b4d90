/* Lines for whoever runs a program, made of texts that come from outside. Pure functions. */
#ifndef BOARD_COMMON_TEXT_LINE_H
#define BOARD_COMMON_TEXT_LINE_H

#include <string>

#include "TextFault.h"

/* What would break a line or move a cursor becomes a blank. */
std::string TextLine_Make(std::string szText);

/* "<file>:<line>: <fault>", as a line. */
std::string TextLine_OfFault(const std::string& rszFile, const STextFault& roFault);

#endif
