#include "feature.h"

namespace standard_tl {

Feature TextFeature(const char* category, const char* name, const char* toolTip,
                    std::function<Value()> get, size_t length)
{
    return {.category = category,
            .name = name,
            .kind = FeatureKind::Text,
            .toolTip = toolTip,
            .get = std::move(get),
            .length = length};
}

Feature NumberFeature(const char* category, const char* name, const char* toolTip,
                      std::function<Value()> get)
{
    return {.category = category,
            .name = name,
            .kind = FeatureKind::Number,
            .toolTip = toolTip,
            .get = std::move(get)};
}

Feature TypeFeature(const char* category, const char* name, const char* toolTip)
{
    return {.category = category,
            .name = name,
            .kind = FeatureKind::Choice,
            .toolTip = toolTip,
            .get = [] { return Value(0); },
            .choices = {{"USB3Vision", 0}}};
}

} // namespace standard_tl
