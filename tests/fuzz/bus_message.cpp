#include "bus_message.h"

#include <libubus.h>

namespace fuzz {

namespace {

void put_u16(std::string &out, uint32_t value)
{
    out += static_cast<char>(value >> 8 & 0xff);
    out += static_cast<char>(value & 0xff);
}

void put_u32(std::string &out, uint32_t value)
{
    put_u16(out, value >> 16);
    put_u16(out, value & 0xffff);
}

void pad(std::string &out)
{
    while (out.size() % 4 != 0) {
        out += '\0';
    }
}

uint32_t take_id(Input &input)
{
    const uint8_t choice = input.u8();
    return choice < 8 ? choice : first_id + choice % 32;
}

// Few texts, so that what is published is also asked for; any other when the input insists.
std::string take_text(Input &input)
{
    static constexpr const char *known[] = {
        "ivarode.intf", "ivarode.route", "ivarode",         "*",       "iva*",   "add", "remove", "register",
        "send",         "query",         "ubus.object.add", "pattern", "object", "id",  "data",   ""};
    const uint8_t choice = input.u8();
    if (choice < 0xc0) {
        return std::string{known[choice % 16]} + '\0';
    }
    std::string text{input.bytes(choice & 0x1f)};
    return choice < 0xe0 ? text + '\0' : text;
}

std::string attribute(uint32_t id, std::string_view payload, bool extended)
{
    std::string out;
    put_u32(out, (extended ? 0x80000000U : 0U) | id << 24 | static_cast<uint32_t>(payload.size() + 4));
    out += payload;
    pad(out);
    return out;
}

// Named values, nested a few levels deep.
std::string take_values(Input &input, int depth)
{
    std::string out;
    for (uint8_t count = input.u8() % 5; count > 0; count--) {
        const std::string name = take_text(input);
        std::string payload;
        put_u16(payload, static_cast<uint32_t>(name.size() - (name.empty() ? 0 : 1)));
        payload += name;
        pad(payload);
        const uint8_t type = input.u8() % 9;
        if ((type == BLOBMSG_TYPE_ARRAY || type == BLOBMSG_TYPE_TABLE) && depth < 4) {
            payload += take_values(input, depth + 1);
        } else if (type == BLOBMSG_TYPE_STRING) {
            payload += take_text(input);
        } else if (type == BLOBMSG_TYPE_INT32) {
            put_u32(payload, take_id(input));
        } else {
            payload += input.bytes(input.u8() % 12);
        }
        out += attribute(type, payload, true);
    }
    return out;
}

std::string take_attribute(Input &input)
{
    const auto id = static_cast<uint8_t>(input.u8() % (UBUS_ATTR_MAX + 1));
    std::string payload;
    switch (id) {
    case UBUS_ATTR_STATUS:
    case UBUS_ATTR_OBJID:
    case UBUS_ATTR_OBJTYPE:
    case UBUS_ATTR_TARGET:
        put_u32(payload, take_id(input));
        break;
    case UBUS_ATTR_OBJPATH:
    case UBUS_ATTR_METHOD:
    case UBUS_ATTR_USER:
    case UBUS_ATTR_GROUP:
        payload = take_text(input);
        break;
    case UBUS_ATTR_SIGNATURE:
    case UBUS_ATTR_DATA:
    case UBUS_ATTR_SUBSCRIBERS:
        payload = take_values(input, 0);
        break;
    default:
        payload = input.bytes(input.u8() % 16);
    }
    return attribute(id, payload, false);
}

} // namespace

std::string bus_message(uint8_t type, uint16_t seq, uint32_t peer, std::string_view attributes)
{
    std::string out;
    out += '\0';
    out += static_cast<char>(type);
    put_u16(out, seq);
    put_u32(out, peer);
    put_u32(out, static_cast<uint32_t>(attributes.size() + 4));
    out += attributes;
    return out;
}

std::string take_bus_message(Input &input)
{
    const auto type = static_cast<uint8_t>(input.u8() % (__UBUS_MSG_LAST + 1));
    const uint16_t seq = input.u8();
    const uint32_t peer = take_id(input);
    const uint8_t shape = input.u8();
    std::string attributes;
    for (int count = shape & 7; count > 0; count--) {
        attributes += take_attribute(input);
    }
    if (shape & 0x40) {
        attributes.resize(attributes.size() + input.u16() % 16384, 'x');
    }
    std::string message = bus_message(type, seq, peer, attributes);
    // A byte of the finished message is replaced: lengths, ids, the version.
    for (int lies = shape >> 4 & 3; lies > 0; lies--) {
        const size_t place = input.u16() % message.size();
        message[place] = static_cast<char>(input.u8());
    }
    return message;
}

} // namespace fuzz
