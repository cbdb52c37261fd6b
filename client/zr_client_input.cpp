#include "zr_client_input.h"

#include <cctype>
#include <cstdio>

namespace {

// A choice is taken as soon as its digit is there, so the rest of the line it was typed in, the
// enter key at least, is still to come.
bool g_lineIsOpen = false;

int ReadCharacter()
{
    std::fflush(stdout);
    const int character = std::getchar();
    g_lineIsOpen = character != '\n' && character != EOF;
    return character;
}

int ReadVisibleCharacter()
{
    int character = ReadCharacter();
    while (character != EOF && std::isspace(character) != 0) {
        character = ReadCharacter();
    }
    return character;
}

void SkipLine()
{
    for (int character = ReadCharacter(); character != EOF && character != '\n';) {
        character = ReadCharacter();
    }
}

} // namespace

int ReadMenuChoice(size_t entries)
{
    int character = ReadVisibleCharacter();
    if (character == EOF) {
        return kEndOfInput;
    }
    size_t number = 0;
    // Beyond nine entries "1" may be the start of "10": then the next character decides.
    while (std::isdigit(character) != 0) {
        number = number * 10 + static_cast<size_t>(character - '0');
        if (number == 0 || number * 10 > entries) {
            break;
        }
        character = ReadCharacter();
    }
    return number <= entries ? static_cast<int>(number) : kNoChoice;
}

void WaitForEnter()
{
    std::puts("please enter to continue...");
    if (g_lineIsOpen) {
        SkipLine();
    }
    SkipLine();
}
