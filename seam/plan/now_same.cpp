// When two facts say the same.

#include "../../libsys/command.h"
#include "plan/now.h"
#include "text.h"

#include <algorithm>
#include <cstddef>

namespace seam::plan {

namespace {

constexpr const char *between_rules = " ; ";

std::vector<std::string> sorted_words(const std::string &rule)
{
    std::vector<std::string> all = words(rule);
    // A match that follows from the protocol is named by iptables alone.
    for (size_t i = 0; i + 1 < all.size(); ++i) {
        if (all[i] == "-m" && all[i + 1] == "tcp") {
            all.erase(all.begin() + static_cast<std::ptrdiff_t>(i),
                      all.begin() + static_cast<std::ptrdiff_t>(i) + 2);
        }
    }
    std::sort(all.begin(), all.end());
    return all;
}

// As the platform library starts it: the supervisor lists words, without the quotes of the line.
std::vector<std::string> started_words(const std::string &line)
{
    libsys::argument_list all;
    if (all.add_words(line.c_str()) != 0) {
        return {line};
    }
    return {all.argv(), all.argv() + all.count()};
}

bool same_rules(const std::vector<std::string> &some, const std::vector<std::string> &others)
{
    return std::equal(
        some.begin(), some.end(), others.begin(), others.end(),
        [](const std::string &a, const std::string &b) { return sorted_words(a) == sorted_words(b); });
}

std::vector<std::string> rules_in(const std::string &value)
{
    return value.empty() ? std::vector<std::string>{} : parts(value, between_rules);
}

std::string value_now(const std::vector<std::string> &key)
{
    std::string out;
    if (const auto found = world.system.clients.find({key[1], key[2]});
        key[0] == "process" && found != world.system.clients.end()) {
        out = found->second;
    }
    if (const auto found = world.system.chains.find({key[1], key[2]});
        key[0] == "chain" && found != world.system.chains.end()) {
        for (const std::string &rule : found->second) {
            out += (out.empty() ? "" : between_rules) + rule;
        }
    }
    return out;
}

} // namespace

std::string without_device(const std::string &route)
{
    const size_t at = route.find(" dev ");
    return at == route.npos ? route : route.substr(0, at) + route.substr(route.find(' ', at + 5));
}

bool same_value(const std::string &key, const std::string &a, const std::string &b)
{
    if (key.starts_with("process ")) {
        return started_words(a) == started_words(b);
    }
    if (key.starts_with("route ")) {
        return without_device(a) == without_device(b);
    }
    return key.starts_with("chain ") ? same_rules(rules_in(a), rules_in(b)) : a == b;
}

bool says_the_same(const std::string &fact)
{
    const size_t at = fact.find(" = ");
    const std::string value = at == fact.npos ? "" : fact.substr(at + 3);
    const std::vector<std::string> key = words(fact.substr(0, at));
    // Of other facts only those come that are others.
    return key.size() == 3 && !value.empty() && !value_now(key).empty() &&
           same_value(key[0] + " ", value_now(key), value);
}

std::vector<std::string> differences(const Facts &before, const Facts &after)
{
    std::vector<std::string> out;
    for (const auto &[key, value] : after) {
        const auto found = before.find(key);
        if (found == before.end() || !same_value(key, found->second, value)) {
            out.push_back(value.empty() ? key : key + " = " + value);
        }
    }
    for (const auto &[key, value] : before) {
        if (!after.contains(key)) {
            out.push_back("-" + key);
        }
    }
    return out;
}

} // namespace seam::plan
