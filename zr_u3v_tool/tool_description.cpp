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

// Far above any real document; a camera that names more is broken or hostile.
constexpr uint64_t kMaximumLength = 64U << 20U;

[[noreturn]] void Refuse(const std::string& reason)
{
    throw ToolError(ExitCode::Failure, reason);
}

// Nothing but digits: "0x10" and " 10" are no addresses of a URL.
uint64_t Hexadecimal(const std::string& digits, const std::string& url)
{
    uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, value, 16);
    if (result.ec != std::errc() || result.ptr != end) {
        Refuse("unexpected URL " + Printable(url));
    }
    return value;
}

// A per cent sign that no two digits follow stands for itself.
std::string PercentDecoded(const std::string& text)
{
    std::string decoded;
    for (size_t i = 0; i < text.size(); i++) {
        unsigned value = 0;
        if (text[i] == '%' && i + 2 < text.size() &&
            std::from_chars(&text[i + 1], &text[i + 3], value, 16).ptr == &text[i + 3]) {
            decoded += static_cast<char>(value);
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
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

std::string SafeFileName(const std::string& name)
{
    constexpr size_t kMaximum = 128;
    constexpr std::string_view kHarmless = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                           "0123456789._-";
    std::string safe = name.substr(name.find_last_of("/\\") + 1);
    std::replace_if(
        safe.begin(), safe.end(),
        [&](char c) { return kHarmless.find(c) == std::string_view::npos; }, '_');
    safe.erase(0, safe.size() - std::min(safe.size(), kMaximum));
    return safe.erase(0, std::min(safe.size(), safe.find_first_not_of(".-")));
}

namespace {

DescriptionUrl ParseFileUrl(const std::string& url)
{
    DescriptionUrl parsed;
    parsed.scheme = "file";
    parsed.path = PercentDecoded(url.substr(std::string_view("file:///").size()));
    // Both "file:////a/b" and "file:///a/b" are met in the field.
    parsed.path.insert(0, parsed.path.starts_with('/') ? "" : "/");
    parsed.name = SafeFileName(parsed.path);
    return parsed;
}

// Split from the back: behind the name nothing comes from the camera.
DescriptionUrl ParseLocalUrl(const std::string& url)
{
    constexpr size_t kName = std::string_view("local:").size();
    const size_t length = url.rfind(';');
    const size_t address = length == std::string::npos ? length : url.rfind(';', length - 1);
    if (address == std::string::npos || address < kName) {
        Refuse("unexpected URL " + Printable(url));
    }
    DescriptionUrl parsed;
    parsed.scheme = "local";
    parsed.name = SafeFileName(PercentDecoded(url.substr(kName, address - kName)));
    parsed.address = Hexadecimal(url.substr(address + 1, length - address - 1), url);
    parsed.length = Hexadecimal(url.substr(length + 1, url.find('?', length) - length - 1), url);
    if (parsed.length > kMaximumLength) {
        Refuse("the description file is said to have " + std::to_string(parsed.length) + " bytes");
    }
    return parsed;
}

} // namespace

DescriptionUrl ParseDescriptionUrl(const std::string& url)
{
    if (url.starts_with("file:///")) {
        return ParseFileUrl(url);
    }
    if (url.starts_with("local:")) {
        return ParseLocalUrl(url);
    }
    Refuse("unexpected URL " + Printable(url));
}

std::string DescriptionUrlOf(const Producer& api, PORT_HANDLE port)
{
    return api.Text("GCGetPortURLInfo", [&](INFO_DATATYPE* type, void* text, size_t* size) {
        return api.GCGetPortURLInfo(port, 0, URL_INFO_URL, type, text, size);
    });
}

// The camera tells the length; ParseDescriptionUrl has refused what no document has.
Description FetchDescription(const Producer& api, PORT_HANDLE port)
{
    Description description;
    description.url = DescriptionUrlOf(api, port);
    const DescriptionUrl url = ParseDescriptionUrl(description.url);
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
    if (entry.size > kMaximumLength) {
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
