#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

// An empty folder of its own for a test; gone with the object.
class ScratchFolder
{
public:
    ScratchFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zr-u3v-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        m_path = pattern;
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    void Write(const std::string& name, const std::string& contents) const
    {
        const std::filesystem::path file = m_path / std::filesystem::path(name).relative_path();
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << contents;
    }
    void Link(const std::string& name, const std::string& target) const
    {
        const std::filesystem::path file = m_path / std::filesystem::path(name).relative_path();
        std::filesystem::create_directories(file.parent_path());
        std::filesystem::create_symlink(target, file);
    }

private:
    std::filesystem::path m_path;
};
