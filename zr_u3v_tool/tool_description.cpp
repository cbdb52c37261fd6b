#include "tool_description.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <memory>
#include <sstream>
#include <zip.h>

#include "tool_console.h"
#include "tool_error.h"

namespace {

[[noreturn]] void Refuse(const std::string& reason)
{
    throw ToolError(ExitCode::Failure, reason);
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    if (!file || !(contents << file.rdbuf())) {
        Refuse("cannot read " + path);
    }
    return contents.str();
}

struct ArchiveDeleter
{
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct EntryDeleter
{
    void operator()(zip_file_t* entry) const { zip_fclose(entry); }
};

// The archive reads from `bytes`, which must therefore outlive it.
std::unique_ptr<zip_t, ArchiveDeleter> OpenArchive(const std::string& bytes)
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* const source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
    zip_t* const archive =
        source == nullptr ? nullptr : zip_open_from_source(source, ZIP_RDONLY, &error);
    std::string reason;
    if (archive == nullptr) {
        reason = zip_error_strerror(&error);
        zip_source_free(source); // the archive would have taken it over
    }
    zip_error_fini(&error);
    if (archive == nullptr) {
        Refuse("the zip archive is damaged: " + reason);
    }
    return std::unique_ptr<zip_t, ArchiveDeleter>(archive);
}

} // namespace

// The camera tells the length; ParseDescriptionUrl has refused what no document has.
Description FetchDescription(const Producer& api, PORT_HANDLE port)
{
    Description description;
    description.url = consumer::FirstUrl(api, port);
    const consumer::DescriptionUrl url = consumer::ParseDescriptionUrl(description.url);
    description.name = url.name;
    description.address = url.address;
    if (url.scheme == "file") {
        description.contents = ReadFile(url.path);
    } else {
        description.contents.resize(url.length);
        size_t size = url.length;
        GENTL_CALL(api, GCReadPort, port, url.address, description.contents.data(), &size);
    }
    description.isZipped = IsZipArchive(description.contents);
    return description;
}

bool IsZipArchive(const std::string& contents)
{
    return contents.starts_with("PK\x03\x04");
}

std::string Unzip(const std::string& bytes)
{
    const auto archive = OpenArchive(bytes);
    zip_stat_t entry;
    zip_stat_init(&entry);
    if (zip_stat_index(archive.get(), 0, 0, &entry) != 0 || (entry.valid & ZIP_STAT_SIZE) == 0) {
        Refuse(std::string("the zip archive is damaged: ") + zip_strerror(archive.get()));
    }
    if (entry.size > consumer::kLongestDescription) {
        Refuse("the zip archive names a file of " + std::to_string(entry.size) + " bytes");
    }
    const std::unique_ptr<zip_file_t, EntryDeleter> file(zip_fopen_index(archive.get(), 0, 0));
    std::string contents(entry.size, '\0');
    // One byte more than is there makes the library compare the check sum at the end.
    char beyond = 0;
    if (file == nullptr ||
        zip_fread(file.get(), contents.data(), contents.size()) !=
            static_cast<zip_int64_t>(contents.size()) ||
        zip_fread(file.get(), &beyond, 1) != 0) {
        Refuse("the zip archive is damaged: its file cannot be unpacked");
    }
    return contents;
}
