#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "printable.h"

// Standard output of the program, kept apart from what libraries below print on descriptor 1: the
// producer tells its user about time-outs there, and a script that reads our JSON must not see it.
// From construction on descriptor 1 leads to standard error (`showLibraryOutput`) or to nowhere,
// and our own output goes to a private copy of the descriptor. One object per process, made before
// the producer is loaded. Used by the main thread only.
class Console
{
public:
    explicit Console(bool showLibraryOutput);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Text, without what could steer a terminal: PrintableLines of it. This and the next throw
    // ToolError when nothing can be written (a full disk, a closed pipe).
    void Print(std::string_view text);
    // The bytes as they are.
    void PrintBytes(const void* data, size_t size);
    void Flush();

    bool IsTerminal() const;
    // Columns of the terminal behind standard output or error; 80 when there is none.
    static unsigned Columns(int descriptor);

private:
    std::FILE* m_output = nullptr;
};

// "zr-u3v: <text>" on standard error, without what could steer a terminal.
void Complain(const std::string& text);
// "zr-u3v: warning: <text>" in the same way.
void Warn(const std::string& text);

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
using consumer::Printable;
using consumer::PrintableLines;
