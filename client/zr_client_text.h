#pragma once

#include <cstddef>
#include <string>

// Compares at most `count` characters without regard to ASCII case; <0, 0 or >0. A null text counts
// as the empty one.
int _strnicmp(const char* left, const char* right, size_t count);

// Replaces every %XX by its byte; a '%' without two hexadecimal digits stays as it is.
std::string UriDecode(const std::string& text);

// The part of a URL after its last '/', the whole text without one.
std::string getFileNameFromURL(const std::string& url);

// The text for the console: control characters (C0, delete, C1 in UTF-8 or as single bytes), with
// which a camera's strings could steer the terminal, become '?'.
std::string Printable(const char* text);
