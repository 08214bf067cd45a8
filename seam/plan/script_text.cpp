#include "plan/script_text.h"

#include <cstdio>

namespace seam::plan {

namespace {

std::string escaped(std::string_view field)
{
    std::string out;
    for (const char c : field) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f && c != '\\') {
            out += c;
        } else {
            char code[8];
            std::snprintf(code, sizeof(code), "\\x%02x", byte);
            out += code;
        }
    }
    return out;
}

} // namespace

void ScriptText::line(std::initializer_list<std::string_view> fields)
{
    const char *between = "";
    for (const std::string_view field : fields) {
        text_ += between + escaped(field);
        between = "\t";
    }
    text_ += '\n';
}

} // namespace seam::plan
