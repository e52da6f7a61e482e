// Console input: every answer is one line of standard input. The end of
// standard input ends the command as Ctrl-C does, so no prompt asks forever.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kInputLineSize = 1024;

// Clears `buffer` and reads one line into it (at most size - 1 characters,
// the line feed included when it fits). Returns how many characters were
// read, at least one: a typed NUL character is read like any other, so the
// text may end before the count does. Never returns at the end of input.
std::size_t ReadLine(char* buffer, std::size_t size);

// Discards the rest of a line whose beginning did not fit a buffer.
void DiscardRestOfLine();

// Reads one character (the "press a key" pause).
void ReadOneCharacter();

// True and the value when the line is one or more decimal digits directly
// followed by its line feed, within the 32-bit signed range; false otherwise,
// leaving `value` unchanged.
bool ReadNumber(std::int32_t* value);

// Reads a yes/no answer: 'Y', 'N', 'z' (a word that starts like yes or no but
// is neither, or a line of white space only), `defaultAnswer` for an empty
// line, or the first non-blank character of the line.
void ReadYesNo(char* answer, char defaultAnswer);
