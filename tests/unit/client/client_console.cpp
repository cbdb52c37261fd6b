#include "client_console.h"

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <stdio_ext.h>
#include <unistd.h>

namespace {

// Puts another file in the place of a descriptor for a scope.
class Redirection
{
public:
    Redirection(int descriptor, int replacement)
        : m_descriptor(descriptor), m_saved(dup(descriptor))
    {
        if (m_saved < 0 || dup2(replacement, descriptor) < 0) {
            throw std::runtime_error("dup");
        }
    }
    ~Redirection()
    {
        dup2(m_saved, m_descriptor);
        close(m_saved);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    int m_descriptor;
    int m_saved;
};

int PipeWith(const std::string& input)
{
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0 ||
        write(ends[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
        throw std::runtime_error("pipe");
    }
    close(ends[1]);
    return ends[0];
}

std::string ReadBack(std::FILE* file)
{
    std::string text;
    std::rewind(file);
    for (int character = std::fgetc(file); character != EOF; character = std::fgetc(file)) {
        text += static_cast<char>(character);
    }
    return text;
}

} // namespace

std::string RunConsole(const std::string& input, const std::function<void()>& body)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(std::tmpfile(), std::fclose);
    const int source = PipeWith(input);
    std::fflush(stdout);
    {
        const Redirection in(STDIN_FILENO, source);
        const Redirection out(STDOUT_FILENO, fileno(output.get()));
        __fpurge(stdin);
        std::clearerr(stdin);
        body();
        std::fflush(stdout);
    }
    close(source);
    return ReadBack(output.get());
}

std::string Lines(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}
