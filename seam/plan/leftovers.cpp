#include "plan/leftovers.h"

#include "text.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace seam::plan {

namespace {

constexpr uint32_t connected_rule = 10001; // stands as long as a WAN's rule does
constexpr const char *jump = "-j ";
constexpr const char *accept = "ACCEPT";

bool is_wan(const std::string &name)
{
    return name.starts_with("wan");
}

// A script can have it as a word.
bool is_word(const std::string &text)
{
    return std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isgraph(c) != 0 && c != '"' && c != '\\' && c != '/';
    });
}

// The number of its WAN, which a client's command line bears behind "-m", or in "'pppoec,20001'".
uint32_t number_in(const std::string &line)
{
    for (const char *before : {" -m ", "pppoec,"}) {
        if (const size_t at = line.find(before); at != line.npos) {
            return static_cast<uint32_t>(std::atoi(line.c_str() + at + std::string_view{before}.size()));
        }
    }
    return 0;
}

class Search {
public:
    Search(const World &world_now, const Now &now, const World &clean)
        : system_{world_now.system}, now_{now}, clean_{clean.system}
    {}

    std::vector<Leftover> all()
    {
        clients();
        routes();
        defaults();
        rules();
        chains();
        addresses();
        members();
        devices();
        rows();
        return found_;
    }

private:
    void added(const std::string &what) { found_.push_back({true, what}); }
    void changed(const std::string &what) { found_.push_back({false, what}); }

    const Device *clean_device(const std::string &name) const
    {
        const auto found = clean_.devices.find(name);
        return found == clean_.devices.end() || found->second.kind.empty() ? nullptr : &found->second;
    }

    void clients()
    {
        for (const auto &[key, line] : system_.clients) {
            const auto &[service, instance] = key;
            if (!is_wan(instance) || !is_word(instance)) {
                continue;
            }
            const auto wanted = clean_.clients.find(key);
            if (wanted == clean_.clients.end()) {
                added("client " + service + " " + instance);
            } else if (!same_value("process ", wanted->second, line)) {
                changed("client " + service + " " + instance);
            } else {
                kept_clients_[instance] = number_in(line);
            }
        }
    }
    bool is_kept(const std::string &device, uint32_t number) const
    {
        const auto found = kept_clients_.find(device);
        return found != kept_clients_.end() && found->second == number;
    }

    void routes()
    {
        for (const auto &one : system_.routes) {
            const std::string &route = one.first;
            const auto wanted =
                std::find_if(clean_.routes.begin(), clean_.routes.end(),
                             [&](const auto &other) { return same_value("route ", other.first, route); });
            const auto device = now_.route_devices.find(route);
            if (wanted == clean_.routes.end()) {
                added("route " + route);
            } else if (device != now_.route_devices.end() && names_other(wanted->first, device->second)) {
                changed("route " + route);
            }
        }
    }
    static bool names_other(const std::string &route, const std::string &device)
    {
        const size_t at = route.find(" dev ");
        return at != route.npos && words(route.substr(at))[1] != device;
    }

    // Of a table and a device. A lease or session that goes on keeps its own.
    void defaults()
    {
        for (const auto &[key, gateway] : system_.gateways) {
            const auto &[table, device] = key;
            if ((is_wan(device) || device.starts_with("lan")) && !clean_.gateways.contains(key) &&
                !is_kept(device, static_cast<uint32_t>(table))) {
                added("default " + std::to_string(table) + " " + device);
            }
        }
    }

    void rules()
    {
        std::set<uint32_t> wanted;
        for (const auto &[key, nothing] : clean_.policies) {
            wanted.insert(static_cast<uint32_t>(key.first));
        }
        for (const auto &[device, number] : kept_clients_) {
            wanted.insert(number);
        }
        bool one_stays = false;
        for (const uint32_t number : now_.rules) {
            if (number != connected_rule && !wanted.contains(number)) {
                added("rule " + std::to_string(number));
            }
            one_stays = one_stays || wanted.contains(number);
        }
        if (now_.rules.contains(connected_rule) && !one_stays) {
            added("rule " + std::to_string(connected_rule));
        }
    }

    // A start makes what is missing, and puts it last. So from the first jump on that is not in its place all
    // of a chain are laid once more.
    void chains()
    {
        for (const auto &[key, rules] : clean_.chains) {
            const auto found = system_.chains.find(key);
            const std::vector<std::string> there =
                found == system_.chains.end() ? std::vector<std::string>{} : laid_in(found->second, rules);
            size_t good = 0;
            while (good < rules.size() && good < there.size() && same_rule(rules[good], there[good])) {
                ++good;
            }
            for (; good < rules.size(); ++good) {
                chain_again(key.first, key.second, rules[good], there);
            }
        }
    }
    static bool same_rule(const std::string &a, const std::string &b) { return same_value("chain ", a, b); }
    static std::vector<std::string> laid_in(const std::vector<std::string> &rules,
                                            const std::vector<std::string> &wanted)
    {
        std::vector<std::string> out;
        std::copy_if(rules.begin(), rules.end(), std::back_inserter(out), [&](const std::string &rule) {
            return std::any_of(wanted.begin(), wanted.end(),
                               [&](const std::string &one) { return same_rule(one, rule); });
        });
        return out;
    }
    // The chain that a rule leads to, or the acceptance of what goes on.
    void chain_again(const std::string &table, const std::string &parent, const std::string &rule,
                     const std::vector<std::string> &there)
    {
        const bool jumps = rule.starts_with(jump);
        const std::string target = jumps ? rule.substr(std::string_view{jump}.size()) : accept;
        const Two chain{table, target};
        const bool is_there = std::any_of(there.begin(), there.end(),
                                          [&](const std::string &one) { return same_rule(one, rule); });
        const std::string what = "chain " + table + " " + parent + " " + target;
        const bool known =
            std::any_of(found_.begin(), found_.end(), [&](const Leftover &one) { return one.what == what; });
        if (known || (jumps ? !clean_.chains.contains(chain) : !is_built_in(parent))) {
            return; // of the rules that each start lays afresh
        }
        if (jumps) {
            const auto found = system_.chains.find(chain);
            for (const std::string &inner : clean_.chains.at(chain)) {
                chain_again(table, target, inner,
                            found == system_.chains.end() ? std::vector<std::string>{} : found->second);
            }
        }
        if (is_there || system_.chains.contains(chain)) {
            changed(what);
        }
    }
    static bool is_built_in(const std::string &chain)
    {
        return std::none_of(chain.begin(), chain.end(), [](unsigned char c) { return std::islower(c) != 0; });
    }

    void addresses()
    {
        for (const auto &[name, device] : system_.devices) {
            const Device *wanted = clean_device(name);
            if (device.address.empty() || wanted == nullptr || wanted->kind != device.kind ||
                kept_clients_.contains(name)) {
                continue;
            }
            if (wanted->address.empty()) {
                added("address " + name);
            } else if (wanted->address == device.address && wanted->mask.empty() &&
                       device.mask != mask_by_class(device.address)) {
                changed("address " + name); // a start without a mask leaves the one that is there
            }
        }
    }

    void members()
    {
        for (const auto &[name, device] : system_.devices) {
            const Device *wanted = clean_device(name);
            if (wanted == nullptr || device.bridge.empty() || wanted->bridge == device.bridge) {
                continue;
            }
            found_.push_back({wanted->bridge.empty(), "member " + name});
        }
    }

    // Bridges, then what they stood on; the inner VLANs before the outer ones.
    void devices()
    {
        const auto depth = [](const std::string &name) -> long {
            return std::count(name.begin(), name.end(), '.');
        };
        for (long dots : {-1L, 2L, 1L}) {
            for (const auto &[name, device] : system_.devices) {
                const bool vlan = name.starts_with("eth");
                if (device.kind != "port" && vlan == (dots > 0) &&
                    (!vlan || std::min(depth(name), 2L) == dots)) {
                    device_there(name, device);
                }
            }
        }
    }
    void device_there(const std::string &name, const Device &device)
    {
        const Device *wanted = clean_device(name);
        if (wanted == nullptr) {
            if (is_of_the_daemon(device.kind)) {
                added("device " + name);
            }
        } else if (wanted->kind != device.kind || (wanted->mac.empty() && now_.own_macs.contains(name))) {
            changed("device " + name); // a MAC that was set cannot be taken back
        }
    }

    void rows()
    {
        for (const auto &[name, row] : system_.rows) {
            const auto wanted = clean_.rows.find(name);
            if (!is_word(name)) {
                continue;
            }
            if (wanted == clean_.rows.end()) {
                added("row " + name);
            } else if (wanted->second[0] != row[0]) {
                changed("row " + name);
            }
        }
    }

    const System &system_;
    const Now &now_;
    const System &clean_;
    std::map<std::string, uint32_t> kept_clients_; // those that go on, with the numbers of their WANs
    std::vector<Leftover> found_;
};

} // namespace

std::vector<Leftover> leftovers(const World &world_now, const Now &now, const World &clean)
{
    return Search{world_now, now, clean}.all();
}

std::string lines_of(const std::vector<Leftover> &found)
{
    std::string out;
    for (const Leftover &one : found) {
        out += (one.added ? "added " : "changed ") + one.what + "\n";
    }
    return out;
}

} // namespace seam::plan
