// The world in words, and back.

#include "text.h"
#include "world.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace seam {
namespace {

constexpr const char *between_rules = " ; ";
std::string save_path;
Facts last_facts;

// How each type of key and value is written, and read.

std::string word(const std::string &text)
{
    return text;
}

std::string word(int number)
{
    return std::to_string(number);
}

// Where the key says all.
std::string word(Nothing /*none*/)
{
    return {};
}

std::string word(bool /*set*/)
{
    return {};
}

template <class A, class B> std::string word(const std::pair<A, B> &pair)
{
    return word(pair.first) + " " + word(pair.second);
}

std::string word(const System::Row &row)
{
    std::string out;
    for (const Text &column : row) {
        out += (&column == row.begin() ? "" : " ") + column.value_or("-");
    }
    return out;
}

std::string word(const std::vector<std::string> &rules)
{
    std::string out;
    for (const std::string &rule : rules) {
        out += (out.empty() ? "" : between_rules) + rule;
    }
    return out;
}

void read(const std::string &text, std::string &out)
{
    out = text;
}

void read(const std::string &text, int &out)
{
    out = std::atoi(text.c_str());
}

void read(const std::string & /*text*/, Nothing & /*out*/) {}

void read(const std::string & /*text*/, bool &out)
{
    out = true;
}

template <class A, class B> void read(const std::string &text, std::pair<A, B> &out)
{
    const size_t at = text.find(' ');
    read(text.substr(0, at), out.first);
    read(at == text.npos ? "" : text.substr(at + 1), out.second);
}

void read(const std::string &text, System::Row &row)
{
    std::vector<std::string> columns = parts(text, " ");
    columns.resize(row.size());
    for (size_t i = 0; i < row.size(); ++i) {
        row[i] = columns[i] == "-" ? Text{} : columns[i];
    }
}

void read(const std::string &text, std::vector<std::string> &rules)
{
    rules = text.empty() ? std::vector<std::string>{} : parts(text, between_rules);
}

// One kind of fact: its first word, how those of a system are shown, and how one is stated, or taken away
// where there is no value.
struct Kind {
    std::string_view first;
    void (*show)(const System &system, const std::string &first, Facts &out);
    void (*state)(System &system, const std::string &key, const std::string *value);
};

template <auto Table> constexpr Kind map_kind(std::string_view first)
{
    return {first,
            [](const System &system, const std::string &first_word, Facts &out) {
                for (const auto &[key, value] : system.*Table) {
                    out[first_word + word(key)] = word(value);
                }
            },
            [](System &system, const std::string &text, const std::string *value) {
                typename std::decay_t<decltype(system.*Table)>::key_type key;
                read(text, key);
                if (value == nullptr) {
                    (system.*Table).erase(key);
                } else {
                    read(*value, (system.*Table)[key]);
                }
            }};
}

// Of a device; an empty text is none.
template <auto Member> constexpr Kind device_kind(std::string_view first)
{
    return {first,
            [](const System &system, const std::string &first_word, Facts &out) {
                for (const auto &[name, device] : system.devices) {
                    if (device.*Member != decltype(device.*Member){}) {
                        out[first_word + name] = word(device.*Member);
                    }
                }
            },
            [](System &system, const std::string &name, const std::string *value) {
                system.devices[name].*Member = {};
                if (value != nullptr) {
                    read(*value, system.devices[name].*Member);
                }
            }};
}

constexpr Kind kinds[] = {
    device_kind<&Device::kind>("device "),     device_kind<&Device::up>("up "),
    device_kind<&Device::mac>("mac "),         device_kind<&Device::bridge>("bridge of "),
    device_kind<&Device::address>("address "), device_kind<&Device::mask>("netmask "),
    map_kind<&System::gateways>("gateway "),   map_kind<&System::policies>("policy "),
    map_kind<&System::rows>("wan "),           map_kind<&System::routes>("route "),
    map_kind<&System::rules>("rule "),         map_kind<&System::chains>("chain "),
    map_kind<&System::clients>("process "),    map_kind<&System::pids>("pid "),
    map_kind<&System::secrets>("secret "),
};

// A register by its offset, or of a PHY by both numbers.
bool state_register(Hardware &hardware, const std::string &key, uint32_t value)
{
    unsigned first = 0;
    unsigned second = 0;
    if (std::sscanf(key.c_str(), "switch %x", &first) == 1) {
        hardware.write(first, value);
    } else if (std::sscanf(key.c_str(), "phy %u %u", &first, &second) == 2) {
        hardware.phy_write(first, second, value);
    } else {
        return false;
    }
    return true;
}

Facts all()
{
    Facts out = facts(world.system);
    out.merge(facts(world.hardware));
    return out;
}

} // namespace

Facts facts(const System &system)
{
    Facts out;
    for (const Kind &kind : kinds) {
        kind.show(system, std::string{kind.first}, out);
    }
    return out;
}

Facts facts(const Hardware &hardware)
{
    Facts out;
    for (const auto &[offset, value] : hardware.registers) {
        out["switch " + hex(offset, 3)] = hex(value, 8);
    }
    for (const auto &[key, value] : hardware.phys) {
        out["phy " + std::to_string(key.first) + " " + std::to_string(key.second)] = hex(value, 8);
    }
    std::erase_if(out, [](const auto &fact) { return fact.second == hex(0, 8); });
    return out;
}

std::string lines_of(const Facts &facts, const std::string &prefix)
{
    std::string out;
    for (const auto &[key, value] : facts) {
        if (key.starts_with(prefix)) {
            out += value.empty() ? key + "\n" : key + " = " + value + "\n";
        }
    }
    return out;
}

std::string picture(const std::string &prefix)
{
    if (prefix == "vlans") {
        return world.hardware.vlans();
    }
    return prefix == "pvids" ? world.hardware.pvids() : lines_of(all(), prefix);
}

bool state_fact(const std::string &fact)
{
    const bool away = fact.starts_with('-');
    const size_t at = fact.find(" = ");
    const std::string key = fact.substr(away ? 1 : 0, away ? fact.npos : at);
    const std::string value = away || at == fact.npos ? "" : fact.substr(at + 3);
    for (const Kind &kind : kinds) {
        if (key.starts_with(kind.first)) {
            kind.state(world.system, key.substr(kind.first.size()), away ? nullptr : &value);
            return true;
        }
    }
    return state_register(world.hardware, key,
                          static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 16)));
}

std::vector<std::string> changed_facts()
{
    Facts before = std::exchange(last_facts, all());
    std::vector<std::string> out;
    for (const auto &[key, value] : last_facts) {
        const auto found = before.find(key);
        if (found == before.end() || found->second != value) {
            out.push_back(value.empty() ? key : key + " = " + value);
        }
        before.erase(key);
    }
    for (const auto &[key, value] : before) {
        out.push_back("-" + key);
    }
    return out;
}

void load(const std::string &path)
{
    const Text text = file_text(path);
    if (!text) {
        return;
    }
    world.system = {};
    world.system.devices.clear();
    world.hardware.registers.clear();
    world.hardware.phys.clear();
    for (const std::string &line : parts(*text, "\n")) {
        if (!line.empty() && !state_fact(line)) {
            abort();
        }
    }
}

void save_to(const std::string &path)
{
    save_path = path;
}

void save()
{
    if (save_path.empty()) {
        return;
    }
    const int fd = open(save_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const std::string text = picture({});
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        abort();
    }
    syscall(SYS_close, fd);
}

} // namespace seam
