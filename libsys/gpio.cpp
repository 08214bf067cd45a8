// The GPIO lines that the board file names, set once and held for the life of the process: the kernel gives a
// line back, and its level with it, when its descriptor closes.
//
//   "ivarode": { "gpio": [ { "chip": "gpiochip0", "line": 12, "value": 1, "active_low": false, "name":
//   "wan-led" } ] }
//
// A line with a value becomes an output of that value, one without an input. Only "line" is required.
#include "board_file.h"
#include "exports.h"
#include "internal.h"

#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <linux/gpio.h>
#include <sys/ioctl.h>

namespace {

using libsys::board_error;
using libsys::board_number;
using libsys::member;

constexpr const char *gpio_key = "ivarode.gpio";
constexpr size_t most_lines = 32;

struct line_set {
    libsys::unique_fd lines[most_lines];
    size_t count = 0;
};

bool held = false; // until the process ends, so the descriptors need no place here

int text_of(const char *key, json_object *value, const char *absent, const char *&text)
{
    text = absent;
    if (value == nullptr) {
        return 0;
    }
    if (!json_object_is_type(value, json_type_string)) {
        return board_error(key, "is not a text");
    }
    text = json_object_get_string(value);
    return 0;
}

int chip_path(const char *key, json_object *value, char (&path)[64])
{
    const char *chip = nullptr;
    if (int error = text_of(key, value, "gpiochip0", chip)) {
        return error;
    }
    if (strncmp(chip, "gpiochip", 8) != 0 || strchr(chip, '/') != nullptr || strlen(chip) > 32) {
        return board_error(key, "is not the name of a GPIO chip");
    }
    snprintf(path, sizeof(path), "/dev/%s", chip);
    return 0;
}

int request_line(size_t position, json_object *entry, libsys::unique_fd &line)
{
    char key[64];
    auto key_of = [&](const char *name) {
        snprintf(key, sizeof(key), "%s[%zu].%s", gpio_key, position, name);
        return key;
    };
    char path[64];
    const char *name = nullptr;
    int64_t offset = 0;
    int64_t value = 0;
    json_object *value_object = member(entry, "value");
    json_object *inverted = member(entry, "active_low");
    if (int error = chip_path(key_of("chip"), member(entry, "chip"), path)) {
        return error;
    }
    if (int error = text_of(key_of("name"), member(entry, "name"), "ivarode", name)) {
        return error;
    }
    if (int error = board_number(key_of("line"), member(entry, "line"), 0, UINT16_MAX, offset)) {
        return error;
    }
    if (int error = value_object != nullptr ? board_number(key_of("value"), value_object, 0, 1, value) : 0) {
        return error;
    }
    if (inverted != nullptr && !json_object_is_type(inverted, json_type_boolean)) {
        return board_error(key_of("active_low"), "is neither true nor false");
    }
    gpio_v2_line_request request{};
    request.offsets[0] = static_cast<uint32_t>(offset);
    request.num_lines = 1;
    strncpy(request.consumer, name, sizeof(request.consumer) - 1);
    request.config.flags = value_object != nullptr ? GPIO_V2_LINE_FLAG_OUTPUT : GPIO_V2_LINE_FLAG_INPUT;
    if (json_object_get_boolean(inverted)) {
        request.config.flags |= GPIO_V2_LINE_FLAG_ACTIVE_LOW;
    }
    if (value_object != nullptr) {
        request.config.num_attrs = 1;
        request.config.attrs[0].mask = 1;
        request.config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
        request.config.attrs[0].attr.values = static_cast<uint64_t>(value);
    }
    libsys::unique_fd chip(libsys::retry_eintr([&] { return open(path, O_RDWR | O_CLOEXEC); }));
    if (!chip ||
        libsys::retry_eintr([&] { return ioctl(chip.get(), GPIO_V2_GET_LINE_IOCTL, &request); }) != 0) {
        int error = errno;
        board_error(key_of("line"), "%s line %u: %s", path, request.offsets[0], strerror(error));
        return error;
    }
    line.reset(request.fd);
    return 0;
}

int request_all(json_object *lines, line_set &wanted)
{
    if (!json_object_is_type(lines, json_type_array)) {
        return board_error(gpio_key, "is not an array");
    }
    if (json_object_array_length(lines) > most_lines) {
        return board_error(gpio_key, "has more than %zu lines", most_lines);
    }
    for (size_t i = 0; i < json_object_array_length(lines); ++i) {
        if (int error = request_line(i, json_object_array_get_idx(lines, i), wanted.lines[i])) {
            return error;
        }
        wanted.count++;
    }
    return 0;
}

} // namespace

int sys_gpio_init2(void)
{
    if (held) {
        return 0;
    }
    libsys::board_file file;
    line_set wanted;
    int error = file.load();
    if (error == 0) {
        if (json_object *lines = file.find(gpio_key)) {
            error = request_all(lines, wanted);
        }
    }
    if (error != 0) {
        return libsys::fail(error, "sys_gpio_init2", "%s", libsys::board_path);
    }
    for (size_t i = 0; i < wanted.count; ++i) {
        wanted.lines[i].release();
        held = true;
    }
    return 0;
}
