/*
 * Looks through a text before the TOML library sees it, and refuses what the library is not made for: it asserts on
 * some texts that are no TOML, calls code unreachable that letters beyond ASCII outside of quotes reach, and recurses
 * as deeply as a text tells it to. What passes may still be no TOML; that the library says itself.
 */
#ifndef BOARD_COMMON_TOML_GUARD_H
#define BOARD_COMMON_TOML_GUARD_H

#include <string_view>

#include "TextFault.h"

/* False with roFault set. Takes time in proportion to the text. */
bool TomlGuard_Check(std::string_view szText, STextFault& roFault);

#endif
