#include "double.h"

namespace unit {

World world;
Handed handed;

namespace {

struct Answer {
    std::string line_begin;
    long result;
    unsigned nth;
    unsigned seen;
};

std::vector<std::string> lines;
std::vector<Answer> answers;
unsigned hidden = 0;

bool is_shown(Shown shown)
{
    return shown == Shown::always || (shown == Shown::registers && world.show_registers) ||
           (shown == Shown::board && world.show_board);
}

struct BitField {
    uint32_t offset;
    uint32_t shift;
    uint32_t mask;
};

// Where the switch's data sheet puts an entry's VLAN ID and its members.
BitField vid_field(uint32_t index)
{
    return {0x50 + 4 * (index / 2), index % 2 == 0 ? 0U : 12U, 0xfff};
}

BitField members_field(uint32_t index)
{
    return {0x70 + 4 * (index / 4), 8 * (index % 4), 0x7f};
}

uint32_t field_get(const BitField &field)
{
    return world.registers[field.offset] >> field.shift & field.mask;
}

void field_put(const BitField &field, uint32_t value)
{
    uint32_t &reg = world.registers[field.offset];
    reg = (reg & ~(field.mask << field.shift)) | value << field.shift;
}

} // namespace

void double_reset()
{
    world = {};
    handed = {};
    lines.clear();
    answers.clear();
    hidden = 0;
}

std::vector<std::string> trace_take()
{
    return std::exchange(lines, {});
}

unsigned hidden_take()
{
    return std::exchange(hidden, 0U);
}

void answer(const std::string &line_begin, long result, unsigned nth)
{
    answers.push_back({line_begin, result, nth, 0});
}

void answers_forget()
{
    answers.clear();
}

std::string quote(std::string_view text)
{
    return '\'' + doubles::escaped(text) + '\'';
}

std::string quote(const char *text)
{
    return text == nullptr ? "null" : quote(std::string_view{text});
}

Call::Call(std::string_view name, Shown shown) : CallText{name}, shown_{shown} {}

Call &Call::text(const char *value)
{
    return raw(quote(value));
}

std::optional<long> Call::done()
{
    const std::string line = whole();
    if (is_shown(shown_)) {
        lines.push_back(line);
    } else {
        hidden++;
    }
    std::optional<long> wanted;
    for (Answer &answer : answers) {
        if (line.compare(0, answer.line_begin.size(), answer.line_begin) == 0) {
            answer.seen++;
            if (answer.nth == 0 || answer.nth == answer.seen) {
                wanted = answer.result;
            }
        }
    }
    return wanted;
}

int Call::result(long ok)
{
    return static_cast<int>(done().value_or(ok));
}

VlanEntry vlan_entry(uint32_t index)
{
    return {field_get(vid_field(index)), field_get(members_field(index))};
}

void vlan_entry_put(uint32_t index, VlanEntry entry)
{
    field_put(vid_field(index), entry.vid);
    field_put(members_field(index), entry.members);
}

uint32_t pvid(uint32_t port)
{
    return field_get({0x40 + 4 * (port / 2), port % 2 == 0 ? 0U : 12U, 0xfff});
}

} // namespace unit
