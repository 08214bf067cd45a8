#include "board_file.h"

#include "exports.h"
#include "file.h"

#include <cinttypes>
#include <cstdarg>

namespace libsys {

namespace {

constexpr size_t largest_file = 1 << 20;

size_t line_of(std::string_view content, size_t offset)
{
    size_t line = 1;
    for (size_t i = 0; i < offset && i < content.size(); ++i) {
        line += content[i] == '\n' ? 1 : 0;
    }
    return line;
}

} // namespace

int board_error(const char *key, const char *reason, ...)
{
    char text[256];
    va_list args;
    va_start(args, reason);
    vsnprintf(text, sizeof(text), reason, args);
    va_end(args);
    outlib_error("%s: %s: %s\n", board_path, key, text);
    return EINVAL;
}

json_object *member(json_object *object, const char *name)
{
    json_object *value = nullptr;
    json_object_object_get_ex(object, name, &value);
    return value;
}

int board_number(const char *key, json_object *value, int64_t least, int64_t most, int64_t &number)
{
    if (!json_object_is_type(value, json_type_int)) {
        return board_error(key, "is not a whole number");
    }
    number = json_object_get_int64(value);
    if (number < least || number > most) {
        return board_error(key, "%" PRId64 " is outside of %" PRId64 "..%" PRId64, number, least, most);
    }
    return 0;
}

int board_file::load()
{
    text content;
    if (int error = read_file(board_path, content, largest_file)) {
        outlib_error("%s: %s\n", board_path, strerror(error));
        return error;
    }
    const owned<json_tokener, json_tokener_free> parser(json_tokener_new());
    if (!parser) {
        return ENOMEM;
    }
    std::string_view source = content.view();
    // With its terminator: without it a number at the end of the text might go on.
    root_.reset(json_tokener_parse_ex(parser.get(), source.data(), static_cast<int>(source.size() + 1)));
    json_tokener_error code = json_tokener_get_error(parser.get());
    size_t end = json_tokener_get_parse_end(parser.get());
    if (code == json_tokener_continue || code == json_tokener_error_parse_eof) {
        return board_error("(whole file)", "ends too early");
    }
    if (code == json_tokener_success &&
        source.find_first_not_of(std::string_view(" \t\r\n"), end) != source.npos) {
        code = json_tokener_error_parse_unexpected;
    }
    if (code != json_tokener_success) {
        return board_error("(whole file)", "%s at line %zu", json_tokener_error_desc(code),
                           line_of(source, end));
    }
    if (!json_object_is_type(root_.get(), json_type_object)) {
        return board_error("(whole file)", "is not an object");
    }
    return 0;
}

json_object *board_file::find(const char *path) const
{
    json_object *value = root_.get();
    char name[64];
    size_t length = 0;
    for (; value != nullptr && *path; path += path[length] ? length + 1 : length) {
        length = strcspn(path, ".");
        snprintf(name, sizeof(name), "%.*s", static_cast<int>(length), path);
        value = member(value, name);
    }
    return value;
}

} // namespace libsys
