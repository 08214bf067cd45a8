#include "plan/inputs.h"

#include "../../libsys/board_file.h"
#include "plan/options.h"
#include "platform/config.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <uci.h>
#include <unistd.h>

namespace seam::plan {

namespace {

constexpr unsigned lan_bit = 1;
constexpr unsigned wan_bit = 2;

// What the daemon walks through, and types of sections in it.
constexpr const char *packages[][2] = {
    {"lan_intf", "interface"}, {"wan_intf", "interface"}, {"route_config", "route"}};

struct Walk {
    const char *package;
    World &world;
};

int add_section(uci_context * /*context*/, uci_section *section, void *argument)
{
    const auto &[package, world] = *static_cast<Walk *>(argument);
    world.sections.push_back({package, section->type, section->e.name == nullptr ? "" : section->e.name, {}});
    uci_element *element = nullptr;
    uci_foreach_element(&section->options, element)
    {
        // A list is no text to those who ask for one.
        if (const uci_option *option = uci_to_option(element); option->type == UCI_TYPE_STRING) {
            world.sections.back().options.emplace_back(element->name, option->v.string);
        }
    }
    return 0;
}

// The devices that the board file gives to switch ports of the processor; a kernel has those.
void add_devices(System &system)
{
    libsys::board_file file;
    if (file.load() != 0) {
        return;
    }
    json_object *ports = file.find("switch.switch0.ports");
    for (size_t i = 0; i < json_object_array_length(ports); ++i) {
        json_object *device = libsys::member(json_object_array_get_idx(ports, i), "device");
        if (json_object_is_type(device, json_type_string)) {
            system.devices[json_object_get_string(device)].kind = "port";
        }
    }
}

} // namespace

Facts facts_of_world()
{
    Facts out = facts(world.system);
    out.merge(facts(world.hardware));
    return out;
}

unsigned Inputs::role(unsigned port) const
{
    for (const auto &ether : world.ports) {
        if (ether && ether->hw_port == port) {
            return ether->role;
        }
    }
    return 0;
}

std::string Inputs::serves(unsigned port) const
{
    std::string out;
    const auto add = [&](const char *kind, size_t number) {
        out += (out.empty() ? "" : " / ") + std::string{kind} + " " + std::to_string(number);
    };
    size_t wans = 0;
    for (size_t i = 0; i < world.ports.size(); ++i) {
        const auto &ether = world.ports[i];
        if (ether && ether->hw_port == port && (ether->role & lan_bit) != 0) {
            add("LAN", i + 1);
        }
    }
    for (size_t i = world.ports.size(); i-- > 0;) {
        const auto &ether = world.ports[i];
        if (ether && (ether->role & wan_bit) != 0) {
            ++wans;
            if (ether->hw_port == port) {
                add("WAN", wans);
            }
        }
    }
    return out;
}

bool read_board(const std::string &file, Inputs &inputs)
{
    libsys::board_path = file.c_str();
    if (sys_bdinfo_init() != 0) {
        return false;
    }
    World &world = inputs.world;
    std::copy_n(sys_bdinfo_macbase_get(), world.mac.size(), world.mac.begin());
    world.cpu = sys_bdinfo_cpuid_get();
    for (uint32_t i = 0; i < world.ports.size(); ++i) {
        if (const netbd_ether *ether = sys_bdinfo_ether_get(i); ether != nullptr) {
            world.ports[i] = *ether;
        }
    }
    add_devices(world.system);
    return true;
}

bool read_config(const std::string &folder, Inputs &inputs)
{
    // The library takes other paths for names of packages. An entry for itself has a folder alone.
    const std::unique_ptr<char, decltype(&std::free)> whole{realpath((folder + "/.").c_str(), nullptr),
                                                            std::free};
    if (!whole || access(whole.get(), R_OK | X_OK) != 0) {
        complain(folder + ": " + std::strerror(errno));
        return false;
    }
    libsys::config_folder = whole.get();
    for (const auto &[package, type] : packages) {
        const std::string path = folder + "/" + package;
        if (access(path.c_str(), F_OK) != 0) {
            continue;
        }
        Walk walk{package, inputs.world};
        if (ucilib_foreach_section(package, type, add_section, &walk) != 0) {
            complain(path + ": " + std::strerror(errno));
            return false;
        }
        inputs.world.packages.insert(package);
    }
    return true;
}

} // namespace seam::plan
