#pragma once

#include <cstddef>

// Standard input, one character at a time, from a terminal as from a pipe. Used by the main thread
// only. Output is flushed before each read, so that a program at the other end sees the question.

// What ReadMenuChoice answers besides the number of an entry.
constexpr int kNoChoice = 0;
constexpr int kEndOfInput = -1;

// The next choice in a menu of `entries` entries numbered from 1; white space is passed over. One
// digit decides, unless a further digit could still name an entry. Anything else is kNoChoice.
int ReadMenuChoice(size_t entries);

// Asks for the enter key and waits for it; the end of input counts as well.
void WaitForEnter();
