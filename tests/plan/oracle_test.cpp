// Plans are true: for random configurations, sensible and not, with random requests and events behind them,
// the end that ivarode-plan says is the one of the oracle, which was written from the books and not from the
// sources.
//
// The same holds of the status of each step, and of the ports that reach each other at the end.

#include "case.h"
#include "plan/json.h"
#include "plan/operation.h"
#include "text.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace model {
namespace {

using seam::plan::Json;

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
        const Case one{seed};
        ASSERT_TRUE(one.write(folder_));
        starts_[one.started]++;
        for (const int status : one.statuses) {
            answers_[status == 0]++;
        }
        std::vector<std::string> words{PLAN_PROGRAM, "--json",           "--board", folder_ + "/board.json",
                                       "--config",   folder_ + "/config"};
        words.insert(words.end(), one.words.begin(), one.words.end());
        compare(run(words), one);
    }

    std::map<bool, unsigned> starts_, answers_; // by success

private:
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

    static void compare(const Json &told, const Case &one)
    {
        const Oracle &oracle = one.oracle;
        const std::vector<int> &statuses = one.statuses;
        const std::string ending = json_object_get_string(member(told.get(), "ending"));
        EXPECT_EQ(ending, one.started ? "" : "the daemon ended with status -3");
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
        EXPECT_EQ(joined_in(element(phases, length(phases) - 1)), oracle.sw.joined());
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

    static PortPairs joined_in(json_object *phase)
    {
        PortPairs out;
        json_object *reach = member(phase, "reach");
        json_object *pairs = member(element(reach, length(reach) - 1), "joined");
        for (size_t i = 0; i < length(pairs); ++i) {
            json_object *pair = element(pairs, i);
            out.insert({static_cast<unsigned>(json_object_get_int(element(pair, 0))),
                        static_cast<unsigned>(json_object_get_int(element(pair, 1)))});
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
