#include "zr_client.h"
#include "zr_client_text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

namespace {

constexpr size_t kUrlSize = 1024;
// Description files are some hundred kilobytes; a size beyond this comes from a broken camera.
constexpr uint64_t kLargestDocument = uint64_t{256} * 1024 * 1024;

// "local:" file name ";" address ";" size, the numbers in hexadecimal.
struct LocalUrl
{
    std::string fileName;
    uint64_t address = 0;
    uint64_t size = 0;
};

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

bool HasScheme(const std::string& url, const char* scheme)
{
    const size_t length = std::strlen(scheme);
    return _strnicmp(url.c_str(), scheme, length) == 0 && url[length] == ':';
}

// A number that fills the text; a query ("?SchemaVersion=...") may follow it.
std::optional<uint64_t> ParseHex(const std::string& text)
{
    uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, 16);
    if (error != std::errc() || (stop != end && *stop != '?')) {
        return std::nullopt;
    }
    return value;
}

// Split from the back: the name comes from the camera and may hold a ';' of its own.
std::optional<LocalUrl> ParseLocalUrl(const std::string& url)
{
    const size_t size = url.rfind(';');
    if (size == std::string::npos || size == 0) {
        return std::nullopt;
    }
    const size_t address = url.rfind(';', size - 1);
    if (address == std::string::npos) {
        return std::nullopt;
    }
    const size_t name = url.find(':') + 1;
    const auto addressValue = ParseHex(url.substr(address + 1, size - address - 1));
    const auto sizeValue = ParseHex(url.substr(size + 1));
    if (!addressValue || !sizeValue || *sizeValue == 0 || name > address) {
        return std::nullopt;
    }
    return LocalUrl{url.substr(name, address - name), *addressValue, *sizeValue};
}

// The name under which a document is written. The camera chose it, so only its last component
// counts, and it can neither hide the file nor hold control characters. "..", "." and nothing stay:
// they name no file that could be opened for writing.
std::string BaseName(const std::string& name)
{
    std::string base = name.substr(name.find_last_of("/\\") + 1);
    std::replace_if(
        base.begin(), base.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '_');
    if (base.starts_with('.') && base.find_first_not_of('.') != std::string::npos) {
        base[0] = '_';
    }
    return base;
}

bool WriteFile(const std::string& name, const char* data, size_t size)
{
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(name.c_str(), "wb"));
    return file != nullptr && std::fwrite(data, 1, size, file.get()) == size &&
           std::fclose(file.release()) == 0;
}

// Reads the document in one port read and writes it into the working directory.
std::string SaveLocalDocument(PORT_HANDLE hPort, const LocalUrl& url)
{
    size_t size = static_cast<size_t>(url.size);
    std::unique_ptr<char[]> text;
    GC_ERROR status = GC_ERR_OUT_OF_MEMORY;
    if (url.size <= kLargestDocument) {
        text.reset(new (std::nothrow) char[size]());
    }
    if (text != nullptr) {
        status = GCReadPort(hPort, url.address, text.get(), &size);
    }
    if (status != GC_ERR_SUCCESS) {
        std::printf("GCReadPort Failed! %d\n", status);
        return {};
    }
    std::string name = BaseName(url.fileName);
    if (!WriteFile(name, text.get(), std::min(size, static_cast<size_t>(url.size)))) {
        std::puts("xmlfile open failed!");
        return {};
    }
    return name;
}

// The first URL, "" if there is none to be had.
std::string FirstUrl(PORT_HANDLE hPort)
{
    char url[kUrlSize] = {};
    size_t size = sizeof(url);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    const GC_ERROR status = GCGetPortURLInfo(hPort, 0, URL_INFO_URL, &type, url, &size);
    url[sizeof(url) - 1] = '\0';
    return status == GC_ERR_SUCCESS ? url : "";
}

} // namespace

std::string PrintPortXml(PORT_HANDLE hPort)
{
    uint32_t count = 0;
    const GC_ERROR status = GCGetNumPortURLs(hPort, &count);
    if (status != GC_ERR_SUCCESS) {
        std::printf("GCGetNumPortURLs Failed! %d\n", status);
        return {};
    }
    const std::string url = count == 0 ? std::string() : FirstUrl(hPort);
    if (url.empty()) {
        std::puts("No Url Available");
        return {};
    }
    // Quirk Q88: all URLs are counted, only the first one is shown and fetched.
    std::printf("NumURLs %d\n", static_cast<int>(count));
    std::printf("URL: %s\n", Printable(url.c_str()).c_str());
    if (HasScheme(url, "file")) {
        return UriDecode(getFileNameFromURL(url));
    }
    const auto local = HasScheme(url, "local") ? ParseLocalUrl(url) : std::nullopt;
    return local ? SaveLocalDocument(hPort, *local) : std::string();
}
