/*
 * What a word that is none of the known ones was probably meant to be. Pure functions.
 */
#ifndef SIMULATED_BOARD_SCENARIO_SPELLING_H
#define SIMULATED_BOARD_SCENARIO_SPELLING_H

#include <string>
#include <string_view>
#include <vector>

/*
 * The known word that is nearest to szWord, by letters added, left out, changed or swapped and whatever their case;
 * null when even that has little in common with it.
 */
const std::string* Spelling_FindNearest(std::string_view szWord, const std::vector<std::string>& raszKnown);

/* "; did you mean <nearest>? (<all of them>)", as far as there is anything to say. */
std::string Spelling_Suggest(std::string_view szWord, const std::vector<std::string>& raszKnown);

#endif
