// Bundles from anywhere: the reader, and what every bundle that it accepts must satisfy.

#include "classification/bundle_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <set>

static void demand(bool holds)
{
    if (!holds)
        abort();
}

static void check(const t_bundle_content &content)
{
    std::set<int> ids;
    std::set<std::string> names;
    for (const qmdpi_signature &signature : content.signatures) {
        demand(signature.id >= BUNDLE_TEXT_MIN_ID && signature.id <= BUNDLE_TEXT_MAX_ID);
        demand(ids.insert(signature.id).second && names.insert(signature.name).second);
        demand(!signature.name.empty() && signature.name.size() <= BUNDLE_TEXT_MAX_NAME);
        demand(!signature.attrs.empty() && signature.attrs.size() <= BUNDLE_TEXT_MAX_ATTRS);
        demand(std::ranges::any_of(content.families, [&](const t_bundle_family &family) {
            return family.name == signature.family;
        }));
    }
    demand(!content.version.empty());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::string_view text(reinterpret_cast<const char *>(p_data), size);
    t_bundle_content content;
    t_bundle_text_error error = {};
    if (bundle_text_read(text, &content, &error) == BUNDLE_TEXT_OK)
        check(content);
    else
        demand(error.reason != nullptr);
    return 0;
}
