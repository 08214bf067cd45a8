#include "plan/json.h"

namespace seam::plan {

Json parse_json(const std::string &text, std::string &error)
{
    const std::unique_ptr<json_tokener, decltype(&json_tokener_free)> parser{json_tokener_new(),
                                                                             json_tokener_free};
    json_tokener_set_flags(parser.get(), JSON_TOKENER_STRICT);
    // With its terminator: without it a number at the end of the text might go on.
    Json value{json_tokener_parse_ex(parser.get(), text.c_str(), static_cast<int>(text.size() + 1))};
    const json_tokener_error code = json_tokener_get_error(parser.get());
    if (code == json_tokener_continue) {
        error = "ends too early";
    } else if (code != json_tokener_success) {
        error = json_tokener_error_desc(code);
    }
    return value;
}

} // namespace seam::plan
