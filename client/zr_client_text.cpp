#include "zr_client_text.h"

namespace {

int LowerCase(char character)
{
    const auto code = static_cast<unsigned char>(character);
    return code >= 'A' && code <= 'Z' ? code - 'A' + 'a' : code;
}

int HexDigit(char character)
{
    const int lower = LowerCase(character);
    if (lower >= '0' && lower <= '9') {
        return lower - '0';
    }
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The byte of the escape that begins at `place`, or -1.
int Escape(const std::string& text, size_t place)
{
    if (text[place] != '%' || text.size() - place < 3) {
        return -1;
    }
    const int high = HexDigit(text[place + 1]);
    const int low = HexDigit(text[place + 2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

} // namespace

int _strnicmp(const char* left, const char* right, size_t count)
{
    const char* l = left == nullptr ? "" : left;
    const char* r = right == nullptr ? "" : right;
    for (size_t i = 0; i < count; ++i) {
        const int difference = LowerCase(l[i]) - LowerCase(r[i]);
        if (difference != 0 || l[i] == '\0') {
            return difference;
        }
    }
    return 0;
}

std::string UriDecode(const std::string& text)
{
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        const int byte = Escape(text, i);
        if (byte < 0) {
            decoded += text[i];
        } else {
            decoded += static_cast<char>(byte);
            i += 2;
        }
    }
    return decoded;
}

std::string getFileNameFromURL(const std::string& url)
{
    const size_t slash = url.rfind('/');
    return slash == std::string::npos ? url : url.substr(slash + 1);
}

namespace {

// Bytes that follow the first one of a character in UTF-8.
unsigned Following(unsigned char first)
{
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    return first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
}

// The least byte that may follow this one: a smaller one would make a C1 control character or an
// over-long form.
unsigned LeastBehind(unsigned char byte)
{
    if (byte == 0xC2 || byte == 0xE0) {
        return 0xA0;
    }
    return byte == 0xF0 ? 0x90 : 0x80;
}

} // namespace

std::string Printable(const char* text)
{
    std::string printable(text == nullptr ? "" : text);
    unsigned following = 0;
    unsigned char previous = 0;
    for (char& character : printable) {
        const auto code = static_cast<unsigned char>(character);
        const bool follows = following > 0 && code >= LeastBehind(previous) && code < 0xC0;
        following = follows ? following - 1 : Following(code);
        previous = code;
        if (code < 0x20 || (code >= 0x7F && code < 0xA0 && !follows)) {
            character = '?';
        }
    }
    return printable;
}
