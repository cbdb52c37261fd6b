#include "manifest.h"

#include <algorithm>
#include <charconv>

namespace vcam {

namespace {

constexpr std::size_t kMaxEntries = 60;

// The text up to the mark, which goes as well.
std::string_view TakeUpTo(std::string_view& text, char mark)
{
    const std::size_t end = std::min(text.find(mark), text.size());
    const std::string_view head = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return head;
}

template <typename T>
bool TakeNumber(std::string_view& text, T& number)
{
    const std::string_view digits = TakeUpTo(text, '.');
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() && end == digits.data() + digits.size();
}

// "1.1" or "1.1.0".
bool ParseVersion(std::string_view text, FileVersion& version)
{
    version = {};
    return TakeNumber(text, version.major) && TakeNumber(text, version.minor) &&
           (text.empty() || TakeNumber(text, version.subMinor)) && text.empty();
}

bool ApplyWord(std::string_view word, ManifestEntry& entry)
{
    constexpr std::pair<std::string_view, bool ManifestEntry::*> kWords[] = {
        {"zip", &ManifestEntry::zip},
        {"wrong-hash", &ManifestEntry::wrongHash},
        {"empty", &ManifestEntry::empty},
        {"huge", &ManifestEntry::huge},
        {"nowhere", &ManifestEntry::nowhere},
        {"wrong-type", &ManifestEntry::wrongType},
        {"wrong-format", &ManifestEntry::wrongFormat}};
    if (word == "no-hash") {
        entry.hash = false;
        return true;
    }
    for (const auto& [name, member] : kWords) {
        if (name == word) {
            entry.*member = true;
            return true;
        }
    }
    return false;
}

std::optional<ManifestEntry> ParseEntry(std::string_view text)
{
    ManifestEntry entry;
    if (!ParseVersion(TakeUpTo(text, '/'), entry.schema)) {
        return std::nullopt;
    }
    for (bool first = true; !text.empty(); first = false) {
        const std::string_view word = TakeUpTo(text, '/');
        const bool isVersion = first && ParseVersion(word, entry.file);
        if (!isVersion && !ApplyWord(word, entry)) {
            return std::nullopt;
        }
    }
    return entry;
}

} // namespace

std::optional<std::vector<ManifestEntry>> ParseManifest(std::string_view text)
{
    std::vector<ManifestEntry> entries;
    if (text == "none") {
        return entries;
    }
    while (!text.empty() && entries.size() < kMaxEntries) {
        const auto entry = ParseEntry(TakeUpTo(text, '+'));
        if (!entry) {
            return std::nullopt;
        }
        entries.push_back(*entry);
    }
    return text.empty() && !entries.empty() ? std::optional(entries) : std::nullopt;
}

} // namespace vcam
