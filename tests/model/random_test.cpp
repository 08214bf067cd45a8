// Anything that may come: random requests, sensible and not, link events, refusals of the kernel, restarts
// with random configurations. The daemon and the oracle stay alike at every step.

#include "bench.h"

#include <random>

namespace model {
namespace {

constexpr unsigned steps = 120;

class Random : public Bench {
protected:
    void start(unsigned seed)
    {
        random_.seed(seed);
        const BoardPlan *boards[] = {&one_cpu_board, &two_cpu_board, &shared_role_board,
                                     &lan1_on_port0_board};
        board(*boards[seed % 4]);
    }
    void run(unsigned seed)
    {
        start(seed);
        for (unsigned i = 0; i < steps && !differs(); i++) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i));
            if (chance(8)) {
                refuse(1 + pick(6));
            }
            step();
            compare_frames();
        }
    }

private:
    unsigned pick(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    bool chance(unsigned one_in) { return pick(one_in) == 0; }
    std::string any(std::initializer_list<const char *> of)
    {
        return of.begin()[pick(static_cast<unsigned>(of.size()))];
    }

    std::string any_name()
    {
        // An old friend more often than a stranger.
        std::vector<std::string> known;
        for (const Port &port : oracle->ports) {
            for (const Interface &entry : port.interfaces) {
                known.push_back(entry.name);
            }
        }
        if (!known.empty() && !chance(3)) {
            return known[pick(static_cast<unsigned>(known.size()))];
        }
        return new_name();
    }
    std::string new_name()
    {
        if (chance(15)) {
            return any({"lan", "LAN1", "lan10", "wan0", "br0", "lan9", "wan99", "lan2_a_longer_name"});
        }
        const std::string kind = chance(3) ? "wan" : "lan";
        return kind + std::to_string(1 + pick(kind == "lan" ? 4 : 3)) + any({"", ".1", "_b", "_default"});
    }
    std::string any_port_name()
    {
        return chance(12) ? new_name() : (chance(3) ? "wan" : "lan") + std::to_string(1 + pick(4));
    }
    void maybe(Fields &fields, const std::string &name, const std::string &value, unsigned of = 12)
    {
        if (!chance(of)) {
            fields[name] = value;
        }
    }
    void add_vlans(Fields &fields)
    {
        if (chance(2)) {
            return;
        }
        fields["vlanid1"] = any({"100", "100", "200", "300", "400", "4091", "4093", "0", "5000", "65535"});
        if (chance(3)) {
            fields["vlanid2"] = any({"1", "2", "65535"});
        }
    }
    void add_addresses(Fields &fields)
    {
        maybe(fields, "ipaddr", any({"192.168.1.1", "10.0.0.2", "172.16.5.4", "0.0.0.0"}));
        maybe(fields, "netmask", any({"255.255.255.0", "255.0.0.0", "0.0.0.0"}));
        maybe(fields, "gateway", any({"192.168.1.254", "10.0.0.1", "0.0.0.0"}), 4);
        maybe(fields, "username", any({"user", "other"}), 5);
        maybe(fields, "password", any({"word", "secret"}), 5);
        maybe(fields, "server", "isp", 2);
    }
    Fields any_fields()
    {
        Fields fields;
        maybe(fields, "proto",
              any({"static", "static", "dhcp", "dhcp", "pppoe", "statix", "dhcpv6", "l2tp"}));
        maybe(fields, "defrt_pri", any({"20001", "20002", "10002"}));
        maybe(fields, "mac", "02:aa:bb:cc:dd:0" + std::to_string(pick(10)), 3);
        add_vlans(fields);
        add_addresses(fields);
        return fields;
    }
    std::vector<std::string> any_names()
    {
        std::vector<std::string> names;
        for (unsigned i = 0, count = pick(4); i < count; i++) {
            names.push_back(any_name());
        }
        return names;
    }
    std::vector<Section> any_sections(const std::string &kind)
    {
        std::vector<Section> sections;
        for (unsigned i = 0, count = pick(4); i < count; i++) {
            Section one{chance(12) ? "guest"
                                   : kind + std::to_string(1 + pick(3)) + any({"", ".1", "_default"}),
                        any_fields()};
            maybe(one.fields, "enable", any({"0", "1", "1"}));
            sections.push_back(one);
        }
        return sections;
    }

    void step()
    {
        const unsigned what = pick(100);
        if (what < 30) {
            Fields fields = any_fields();
            maybe(fields, "intf", chance(6) ? any_name() : new_name(), 40);
            add(fields);
        } else if (what < 45) {
            del(any_names());
        } else if (what < 60) {
            Fields fields = any_fields();
            maybe(fields, "old_intf", any_name(), 40);
            maybe(fields, "intf", chance(2) ? any_name() : value_of(fields, "old_intf"), 40);
            config(fields);
        } else if (what < 68) {
            enable(any_names(), chance(2));
        } else if (what < 76) {
            port_add(any_port_name());
        } else if (what < 82) {
            port_del(any_port_name());
        } else if (what < 97) {
            link(pick(chance(20) ? 8 : 5), chance(2));
        } else {
            restart(!chance(3), any_sections("lan"), any_sections("wan"));
        }
    }
    static std::string value_of(const Fields &fields, const std::string &name)
    {
        const auto found = fields.find(name);
        return found == fields.end() ? "lan1" : found->second;
    }

    std::mt19937 random_;
};

TEST_F(Random, DaemonAndOracleStayAlike)
{
    const unsigned seeds = wanted("MODEL_SEEDS", 200);
    for (unsigned seed = 1; seed <= seeds && !differs(); seed++) {
        run(seed);
    }
    // A run in which one kind of request always fails, or never, would prove little.
    for (const auto &[step, statuses] : tally) {
        unsigned all = 0;
        for (const auto &[status, times] : statuses) {
            all += times;
        }
        EXPECT_GT(statuses.contains(0) ? statuses.at(0) : 0, all / 20) << step;
        EXPECT_GE(statuses.size(), 2U) << step;
    }
    RecordProperty("steps", static_cast<int>(seeds * steps));
}

} // namespace
} // namespace model
