#include "plan/diff.h"

#include "plan/json.h"
#include "plan/now.h"
#include "plan/operation.h"
#include "plan/switch_words.h"
#include "text.h"

#include <algorithm>
#include <arpa/inet.h>

namespace seam::plan {

namespace {

// Of a kind of facts: its first word, how one is named, and why one may be missing, another, or too many.
// Where there is no reason, that is no difference: others may have made it so.
struct Row {
    const char *kind;
    const char *name;
    const char *missing;
    const char *other;
    const char *more;
};

constexpr const char *by_hand = "by hand, or by another program";
constexpr const char *over_bus = "added over the bus since the start, or left by a start that failed";

constexpr Row rows[] = {
    {"device ", "device", "deleted by hand, or over the bus since the start",
     "another device was given its name", over_bus},
    {"bridge of ", "bridge of", "taken out of its bridge by hand", "moved to another bridge by hand",
     over_bus},
    {"up ", "up:", "set down by hand, or an interface that was switched off over the bus", nullptr, nullptr},
    {"mac ", "MAC of", nullptr, "changed by hand, or over the bus by config", nullptr},
    {"address ", "address of", "removed by hand, or an interface that was switched off over the bus",
     "changed by hand, or over the bus by config", nullptr},
    {"netmask ", "netmask of", nullptr, "changed by hand, or over the bus by config", nullptr},
    {"gateway ", "default route of table and WAN", "removed by hand, or with an address of its network",
     by_hand, nullptr},
    {"policy ", "rule of WAN", "removed by hand; the WAN's link comes and goes with it", by_hand, nullptr},
    {"rule ", "rule", "removed by hand", by_hand, nullptr},
    {"route ", "route", "removed by hand, or its gateway cannot be reached", by_hand,
     "added over the bus since the start"},
    {"wan ", "row of", "deleted by hand: no script knows of this WAN",
     "written by hand, or over the bus by config", "left by a WAN that is gone"},
    {"process ", "client", "ended by hand, or it failed again and again and was given up",
     "started with other words: config over the bus", "started over the bus since the start"},
};

const Row *row_of(const std::string &key)
{
    const auto *found = std::find_if(std::begin(rows), std::end(rows),
                                     [&](const Row &row) { return key.starts_with(row.kind); });
    return found == std::end(rows) ? nullptr : found;
}

class Drift {
public:
    Drift(const World &now, const std::set<uint32_t> &rules, const World &clean,
          const std::set<std::string> &without_link)
        : now_{now}, rules_{rules}, clean_{clean}, without_link_{without_link}
    {}

    std::vector<Difference> all()
    {
        const Facts now = comparable(now_.system);
        const Facts clean = comparable(clean_.system);
        for (const auto &[key, value] : clean) {
            const auto found = now.find(key);
            if (found == now.end()) {
                missing(key, value);
            } else if (!same_value(key, value, found->second)) {
                other(key, value, found->second);
            }
        }
        for (const auto &[key, value] : now) {
            if (!clean.contains(key)) {
                more(key, value);
            }
        }
        chains();
        registers();
        return found_;
    }

private:
    void add(const std::string &what, const char *reason)
    {
        if (reason != nullptr) {
            found_.push_back({without_password(what), reason});
        }
    }
    static Facts comparable(const System &system)
    {
        Facts out;
        for (const auto &[key, value] : facts(system)) {
            out[key.starts_with("route ") ? without_device(key) : key] = value;
        }
        return out;
    }
    static std::string named(const Row &row, const std::string &key)
    {
        return row.name + (" " + key.substr(std::string_view{row.kind}.size()));
    }
    void missing(const std::string &key, const std::string &value)
    {
        const Row *row = row_of(key);
        if (row != nullptr && !went_with_link(key) && !is_rule_of_nobody(key)) {
            add(named(*row, key) + (value.empty() ? "" : " = " + value) + ": is missing", row->missing);
        }
    }
    // A rule is known as a WAN's by the routes in its table; without any it is there all the same.
    bool is_rule_of_nobody(const std::string &key) const
    {
        const std::vector<std::string> all = words(key);
        const auto &gateways = now_.system.gateways;
        return all[0] == "policy" && rules_.contains(static_cast<uint32_t>(std::stoul(all[1]))) &&
               std::none_of(gateways.begin(), gateways.end(), [&](const auto &gateway) {
                   return std::to_string(gateway.first.first) == all[1];
               });
    }
    // The kernel takes the routes of a device that goes down.
    bool went_with_link(const std::string &key) const
    {
        const std::vector<std::string> all = words(key);
        if (all[0] == "up" || all[0] == "gateway") {
            return without_link_.contains(all.back()) && is_down(all.back());
        }
        return all[0] == "route" && all.size() > 4 &&
               std::any_of(without_link_.begin(), without_link_.end(),
                           [&](const std::string &name) { return is_down(name) && reaches(name, all[4]); });
    }
    bool is_down(const std::string &name) const
    {
        const auto found = now_.system.devices.find(name);
        return found != now_.system.devices.end() && !found->second.up;
    }
    bool reaches(const std::string &name, const std::string &gateway) const
    {
        const Device &device = now_.system.devices.at(name);
        const uint32_t mask = inet_addr(device.mask.c_str());
        return !device.address.empty() &&
               (inet_addr(device.address.c_str()) & mask) == (inet_addr(gateway.c_str()) & mask);
    }
    void other(const std::string &key, const std::string &value, const std::string &is)
    {
        // Leases and sessions write into the row of their WAN.
        const bool others =
            key.starts_with("wan ") && words(value)[0] != "static" && words(value)[0] == words(is)[0];
        if (const Row *row = row_of(key); row != nullptr && !others) {
            add(named(*row, key) + ": is " + is + " instead of " + value, row->other);
        }
    }
    void more(const std::string &key, const std::string &value)
    {
        const Row *row = row_of(key);
        const bool others = key.starts_with("device ") && !is_of_the_daemon(value);
        if (row != nullptr && !others) {
            add(named(*row, key) + (value.empty() ? "" : " = " + value) + ": is too many", row->more);
        }
    }

    // Others put rules into these chains: only what is missing counts.
    void chains()
    {
        for (const auto &[key, rules] : clean_.system.chains) {
            const std::string name = key.first + " " + key.second;
            const auto found = now_.system.chains.find(key);
            const bool there = found != now_.system.chains.end();
            // Those of iptables itself cannot be deleted.
            if (!there && now_.system.chain_exists(key.first, key.second) == 0) {
                add("chain " + name + ": is missing",
                    "deleted by hand, or with all chains by another program");
                continue;
            }
            for (const std::string &rule : rules) {
                if (!there || !has(found->second, rule)) {
                    add("rule of chain " + name + ", " + rule + ": is missing",
                        "removed by hand; no start brings a jump back");
                }
            }
        }
    }
    static bool has(const std::vector<std::string> &rules, const std::string &wanted)
    {
        return std::any_of(rules.begin(), rules.end(),
                           [&](const std::string &rule) { return same_value("chain ", wanted, rule); });
    }

    void registers()
    {
        Hardware clean = clean_.hardware;
        Hardware now = now_.hardware;
        Hardware::forget_idle(clean, now);
        if (const std::string change = switch_change(clean, now); !change.empty()) {
            add("switch, against a clean start: " + change, "ports or VLANs changed over the bus since the "
                                                            "start, or registers written by another program");
        }
    }

    const World &now_;
    const std::set<uint32_t> &rules_;
    const World &clean_;
    const std::set<std::string> &without_link_;
    std::vector<Difference> found_;
};

Json json_of(const Difference &one)
{
    return JsonTable{}.add("what", one.what).add("reason", one.reason).take();
}

} // namespace

std::vector<Difference> drift(const World &now, const std::set<uint32_t> &rules, const World &clean,
                              const std::set<std::string> &without_link)
{
    return Drift{now, rules, clean, without_link}.all();
}

std::string for_person(const std::vector<Difference> &found)
{
    std::string out;
    for (const Difference &one : found) {
        out += one.what + "\n    " + one.reason + "\n";
    }
    return out.empty() ? "as a clean start would make it\n" : out;
}

std::string for_programs(const std::vector<Difference> &found, int status)
{
    Json list{json_object_new_array()};
    for (const Difference &one : found) {
        json_object_array_add(list.get(), json_of(one).release());
    }
    const Json out =
        JsonTable{}.add("version", 1).add("status", status).add("differences", std::move(list)).take();
    return json_object_to_json_string_ext(out.get(), JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED |
                                                         JSON_C_TO_STRING_NOSLASHESCAPE) +
           std::string{"\n"};
}

} // namespace seam::plan
