// Plans are true: for random configurations, sensible and not, with random requests and events behind them,
// the end that ivarode-plan says is the one of the oracle, which was written from the books and not from the
// sources.
//
// The same holds of the status of each step, and of the ports that reach each other at the end.

#include "config_files.h"
#include "generator.h"
#include "plan/json.h"
#include "plan/operation.h"
#include "text.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace model {
namespace {

using seam::plan::Json;

constexpr unsigned steps = 12;

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

json_object *member(json_object *table, const char *name)
{
    return json_object_object_get(table, name);
}

size_t length(json_object *list)
{
    return json_object_array_length(list);
}

json_object *element(json_object *list, size_t index)
{
    return json_object_array_get_idx(list, index);
}

class Plans : public testing::Test {
protected:
    Plans()
    {
        char name[] = "/tmp/plans.XXXXXX";
        folder_ = mkdtemp(name);
        mkdir((folder_ + "/config").c_str(), 0755);
    }
    ~Plans() override
    {
        for (const char *file : {"/config/lan_intf", "/config/wan_intf", "/board.json", "/plan"}) {
            unlink((folder_ + file).c_str());
        }
        rmdir((folder_ + "/config").c_str());
        rmdir(folder_.c_str());
    }

    void check(unsigned seed)
    {
        Generator generator{seed};
        const BoardPlan &board = board_of(seed);
        Oracle oracle{board};
        oracle.kernel.devices["eth1"].kind = "port";
        oracle.kernel.longest_name = 15;
        const std::vector<Section> lans = for_a_file(generator.any_sections("lan"));
        const std::vector<Section> wans = for_a_file(generator.any_sections("wan"));
        write("/board.json", board_file(board));
        write("/config/lan_intf", config_file(lans));
        write("/config/wan_intf", config_file(wans));

        std::vector<std::string> words{PLAN_PROGRAM, "--json",           "--board", folder_ + "/board.json",
                                       "--config",   folder_ + "/config"};
        std::vector<int> statuses;
        const bool started = oracle.start(lans, wans) == 0;
        starts_[started]++;
        while (statuses.size() < steps) {
            const Action action = generator.next(oracle);
            if (action.kind == Action::Kind::restart || action.port >= front_ports) {
                continue;
            }
            const std::vector<std::string> more = words_of(action);
            words.insert(words.end(), more.begin(), more.end());
            if (started) {
                statuses.push_back(action.kind == Action::Kind::link
                                       ? oracle.link_event(action.port, action.on)
                                       : request(oracle, action));
                answers_[statuses.back() == 0]++;
            } else if (words.size() > 2 * steps) {
                break;
            }
        }
        compare(run(words), oracle, started, statuses);
    }

    std::map<bool, unsigned> starts_, answers_; // by success

private:
    void write(const std::string &file, const std::string &text) { std::ofstream{folder_ + file} << text; }

    Json run(std::vector<std::string> &words)
    {
        std::vector<char *> arguments;
        for (std::string &word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (folder_ + "/plan").c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        pid_t child = 0;
        EXPECT_EQ(posix_spawn(&child, PLAN_PROGRAM, &actions, nullptr, arguments.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        std::string error;
        Json told = seam::plan::parse_json(seam::file_text(folder_ + "/plan").value_or(""), error);
        EXPECT_EQ(error, "");
        EXPECT_EQ(json_object_get_int(member(told.get(), "status")), WEXITSTATUS(status));
        return told;
    }

    static void compare(const Json &told, const Oracle &oracle, bool started,
                        const std::vector<int> &statuses)
    {
        const std::string ending = json_object_get_string(member(told.get(), "ending"));
        EXPECT_EQ(ending, started ? "" : "the daemon ended with status -3");
        json_object *phases = member(told.get(), "phases");
        ASSERT_EQ(length(phases), statuses.size() + 1);
        for (size_t i = 0; i < statuses.size(); ++i) {
            json_object *phase = element(phases, i + 1);
            EXPECT_EQ(json_object_get_int(member(phase, "status")), statuses[i])
                << json_object_get_string(member(phase, "said"));
        }
        json_object *end = member(told.get(), "end");
        EXPECT_EQ(system_in(member(end, "facts")), system_of(oracle));
        EXPECT_EQ(switch_in(end, oracle.sw.port_vlans_untagged), oracle.sw.picture());
        EXPECT_EQ(joined_in(element(phases, length(phases) - 1)), joined_of(oracle.sw));
    }

    // What the oracle knows of: not the firewall, nor the route table's rule, nor registers.
    static std::string system_in(json_object *facts)
    {
        std::string out;
        for (size_t i = 0; i < length(facts); ++i) {
            const std::string fact = json_object_get_string(element(facts, i));
            const bool known = std::none_of(std::begin(unknown), std::end(unknown),
                                            [&](const char *kind) { return fact.starts_with(kind); });
            out += known ? fact + "\n" : "";
        }
        return out;
    }
    static std::string system_of(const Oracle &oracle)
    {
        std::string out;
        for (const auto &[key, value] : seam::facts(oracle.kernel)) {
            out += seam::plan::without_password(value.empty() ? key : key + " = " + value) + "\n";
        }
        return out;
    }
    static constexpr const char *unknown[] = {"chain ", "rule ", "switch ", "phy "};

    static std::string switch_in(json_object *end, bool untagged)
    {
        Switch seen;
        seen.port_vlans_untagged = untagged;
        json_object *vlans = member(end, "vlans");
        for (size_t i = 0; i < length(vlans); ++i) {
            json_object *vlan = element(vlans, i);
            Vlan &entry = seen.table.at(static_cast<size_t>(json_object_get_int(member(vlan, "entry"))));
            entry.vid = static_cast<unsigned>(json_object_get_int(member(vlan, "vid")));
            json_object *members = member(vlan, "members");
            for (size_t m = 0; m < length(members); ++m) {
                entry.members.insert(static_cast<unsigned>(json_object_get_int(element(members, m))));
            }
        }
        for (unsigned port = 0; port < front_ports; ++port) {
            json_object *pvid = member(element(member(end, "ports"), port), "pvid");
            seen.pvid[port] = static_cast<unsigned>(json_object_get_int(pvid));
        }
        return seen.picture();
    }

    static std::set<std::pair<unsigned, unsigned>> joined_in(json_object *phase)
    {
        std::set<std::pair<unsigned, unsigned>> out;
        json_object *reach = member(phase, "reach");
        json_object *pairs = member(element(reach, length(reach) - 1), "joined");
        for (size_t i = 0; i < length(pairs); ++i) {
            json_object *pair = element(pairs, i);
            out.insert({static_cast<unsigned>(json_object_get_int(element(pair, 0))),
                        static_cast<unsigned>(json_object_get_int(element(pair, 1)))});
        }
        return out;
    }
    static std::set<std::pair<unsigned, unsigned>> joined_of(const Switch &sw)
    {
        std::set<std::pair<unsigned, unsigned>> out;
        for (unsigned port = 0; port < front_ports; ++port) {
            for (unsigned tag = 0; tag < 4096; ++tag) {
                const auto entry = sw.entry_of(port, tag);
                for (const unsigned other : entry ? sw.table[*entry].members : std::set<unsigned>{}) {
                    if (other < front_ports && other != port) {
                        out.insert({std::min(port, other), std::max(port, other)});
                    }
                }
            }
        }
        return out;
    }

    std::string folder_;
};

// A longer run: PLAN_SEEDS=5000.
TEST_F(Plans, SayWhatTheOracleSays)
{
    const char *wanted = std::getenv("PLAN_SEEDS");
    const unsigned seeds = wanted == nullptr ? 500 : static_cast<unsigned>(std::atoi(wanted));
    ASSERT_GT(seeds, 0U);
    for (unsigned seed = 1; seed <= seeds && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        check(seed);
    }
    // Runs in which everything succeeds, or nothing, would prove little.
    for (const auto *tally : {&starts_, &answers_}) {
        EXPECT_GT(tally->at(true), seeds / 10);
        EXPECT_GT(tally->at(false), seeds / 10);
    }
}

} // namespace
} // namespace model
