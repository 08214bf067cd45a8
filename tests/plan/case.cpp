#include "case.h"

#include "config_files.h"
#include "generator.h"

#include <filesystem>
#include <fstream>

namespace model {

namespace {

std::string object_of(const Fields &fields)
{
    std::string out;
    for (const auto &[name, value] : fields) {
        const std::string quote = name.starts_with("vlanid") ? "" : "\"";
        out += (out.empty() ? "\"" : ",\"") + name + "\":" + quote + value + quote;
    }
    return "{" + out + "}";
}

std::string list_of(const std::vector<std::string> &names)
{
    std::string out;
    for (const std::string &name : names) {
        out += (out.empty() ? "\"" : ",\"") + name + "\"";
    }
    return "[" + out + "]";
}

// As two words of the command line.
std::vector<std::string> words_of(const Action &action)
{
    const auto call = [](const std::string &method, const std::string &message) {
        return std::vector<std::string>{"--call", "ivarode.intf " + method + " " + message};
    };
    switch (action.kind) {
    case Action::Kind::add:
        return call("add", object_of(action.fields));
    case Action::Kind::config:
        return call("config", object_of(action.fields));
    case Action::Kind::del:
        return call("del", "{\"intf\":" + list_of(action.names) + "}");
    case Action::Kind::enable:
        return call("enable",
                    "{\"intf\":" + list_of(action.names) + ",\"enable\":" + (action.on ? "1" : "0") + "}");
    case Action::Kind::port_add:
        return call("port_add", object_of({{"name", action.names.front()}}));
    case Action::Kind::port_del:
        return call("port_del", object_of({{"name", action.names.front()}}));
    default:
        return {"--link", std::to_string(action.port) + (action.on ? "=up" : "=down")};
    }
}

bool lay(const std::string &path, const std::string &text)
{
    std::ofstream file{path};
    file << text;
    file.close();
    return !file.fail();
}

} // namespace

Case::Case(unsigned seed) : oracle{board_of(seed)}, board_{board_of(seed)}
{
    Generator generator{seed};
    oracle.kernel.devices["eth1"].kind = "port";
    oracle.kernel.longest_name = 15;
    oracle.kernel.checks_gateways = true;
    lans = for_a_file(generator.any_sections("lan"));
    wans = for_a_file(generator.any_sections("wan"));
    started = oracle.start(lans, wans) == 0;
    if (!started) {
        oracle.kernel.clients_end();
    }
    while (words.size() < size_t{2} * steps) {
        const Action action = generator.next(oracle);
        if (action.kind == Action::Kind::restart || action.port >= front_ports) {
            continue;
        }
        const std::vector<std::string> more = words_of(action);
        words.insert(words.end(), more.begin(), more.end());
        if (started) {
            statuses.push_back(action.kind == Action::Kind::link ? oracle.link_event(action.port, action.on)
                                                                 : request(oracle, action));
        }
    }
}

bool Case::write(const std::string &folder) const
{
    std::error_code error;
    std::filesystem::create_directory(folder + "/config", error);
    return !error && lay(folder + "/board.json", board_file(board_)) &&
           lay(folder + "/config/lan_intf", config_file(lans)) &&
           lay(folder + "/config/wan_intf", config_file(wans));
}

} // namespace model
