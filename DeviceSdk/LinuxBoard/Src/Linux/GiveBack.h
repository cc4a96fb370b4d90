/*
 * Gives back what the board has changed when nobody is left to do it. Every change is noted before it is made. A child
 * process, the guardian, sleeps until this process ends, by whatever means, and then follows the notes; where both are
 * killed, the next start does, from a file in a folder that only its user can write. A child, because a library must
 * neither take signals from the program that loads it nor guess whether that program is going to survive one; and none
 * of it can be done after a kill. Thread-safe.
 */
#ifndef LINUX_BOARD_GIVE_BACK_H
#define LINUX_BOARD_GIVE_BACK_H

#include <string>

#include "GiveBackNote.h"

/* Follows and removes the notes of processes that are no more. Once, before devices are looked at. */
void GiveBack_Leftovers();

/* Null when there is no room: then nothing is noted, and nobody but this process gives back. */
SGiveBackNote* GiveBack_NoteInput(const std::string& szNode, int iFd, const SInputSettings& roFound);
SGiveBackNote* GiveBack_NoteTrace(const std::string& szInstance);

/* What was noted has been given back, or went away. Null is allowed. */
void GiveBack_Drop(SGiveBackNote* poNote);

/* Follows what is still noted of a node that has no owner in this process: its device did not take it before. */
void GiveBack_Settle(const std::string& szNode);

/* No note is left that could not wait: lets the guardian go. */
void GiveBack_End();

#endif
