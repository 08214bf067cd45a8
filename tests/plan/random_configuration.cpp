// random-configuration FOLDER SEED: writes the board file and packages of one random configuration into a
// folder that is there.

#include "config_files.h"
#include "generator.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace model {
namespace {

std::vector<Section> any_routes(Generator &generator)
{
    static constexpr const char *networks[] = {"10.20.0.0", "10.30.0.0"};
    static constexpr const char *gateways[] = {"192.168.1.254", "10.0.0.1", "172.16.5.1"};
    static constexpr const char *lines[] = {"auto", "auto", "lan1", "wan1"};
    std::vector<Section> out;
    for (unsigned i = 0, count = generator.pick(4); i < count; ++i) {
        out.push_back({"r" + std::to_string(i),
                       {{"enable", generator.chance(4) ? "0" : "1"},
                        {"line", lines[generator.pick(4)]},
                        {"dstaddr", networks[generator.pick(2)]},
                        {"netmask", "255.255.0.0"},
                        {"gateway", gateways[generator.pick(3)]},
                        {"metric", std::to_string(generator.pick(3))}}});
    }
    return out;
}

bool write(const std::string &folder, unsigned seed)
{
    Generator generator{seed};
    const auto file = [&](const std::string &name, const std::string &text) {
        return (std::ofstream{folder + "/" + name} << text).flush().good();
    };
    return file("board.json", board_file(board_of(seed))) &&
           file("lan_intf", config_file(for_a_file(generator.any_sections("lan")))) &&
           file("wan_intf", config_file(for_a_file(generator.any_sections("wan")))) &&
           file("route_config", config_file(any_routes(generator), "route"));
}

} // namespace
} // namespace model

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "Usage: random-configuration FOLDER SEED\n");
        return 2;
    }
    return model::write(argv[1], static_cast<unsigned>(std::atoi(argv[2]))) ? 0 : 1;
}
