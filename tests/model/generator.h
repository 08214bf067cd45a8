// Anything that may come: random requests, sensible and not, link events, restarts with random
// configurations.
#pragma once

#include "oracle.h"

#include <initializer_list>
#include <random>
#include <string>
#include <vector>

namespace model {

struct Action {
    enum class Kind { add, del, config, enable, port_add, port_del, link, restart };
    Kind kind;
    Fields fields;                  // of add and config
    std::vector<std::string> names; // of del and enable; of port_add and port_del the one
    unsigned port = 0;              // of link
    bool on = false;                // enable, link; restart: with clean-up
    std::vector<Section> lans, wans;
};

// The same seed makes the same actions beside the same oracle.
class Generator {
public:
    explicit Generator(unsigned seed = 0) : random_{seed} {}

    // Names are more often than not those that the oracle knows.
    Action next(const Oracle &oracle);
    std::vector<Section> any_sections(const std::string &kind);
    unsigned pick(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    bool chance(unsigned one_in) { return pick(one_in) == 0; }

private:
    std::string any(std::initializer_list<const char *> of);
    std::string any_name(const Oracle &oracle);
    std::string new_name();
    std::string any_port_name();
    void maybe(Fields &fields, const std::string &name, const std::string &value, unsigned of = 12);
    void add_vlans(Fields &fields);
    void add_addresses(Fields &fields);
    Fields any_fields();
    std::vector<std::string> any_names(const Oracle &oracle);
    Fields config_fields(const Oracle &oracle);

    std::mt19937 random_;
};

// A request to the object that has the methods.
template <class Router> int request(Router &router, const Action &action)
{
    switch (action.kind) {
    case Action::Kind::add:
        return router.add(action.fields);
    case Action::Kind::del:
        return router.del(action.names);
    case Action::Kind::config:
        return router.config(action.fields);
    case Action::Kind::enable:
        return router.enable(action.names, action.on);
    case Action::Kind::port_add:
        return router.port_add(action.names.front());
    case Action::Kind::port_del:
        return router.port_del(action.names.front());
    default:
        return 0;
    }
}

} // namespace model
