#include "camera_info.h"

namespace u3v_host {

namespace {

void AppendWord(std::string& text, const std::string& word)
{
    if (!text.empty() && !word.empty()) {
        text += ' ';
    }
    text += word;
}

} // namespace

std::string CameraInfo::DisplayName() const
{
    std::string text = vendor;
    AppendWord(text, model);
    const std::string& name = userDefinedName.empty() ? serial : userDefinedName;
    if (!name.empty()) {
        AppendWord(text, '(' + name + ')');
    }
    return text.empty() ? id : text;
}

} // namespace u3v_host
